// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The version index and the restore operation on backups laid out by hand
// in a temporary folder: any user, no root.

#include "OVRestoreJob.h"
#include "OVRestoreSources.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace
{
QDateTime at(const char *text)
{
    return QDateTime::fromString(QString::fromLatin1(text), QStringLiteral("yyyy-MM-dd HH:mm"));
}

void put(const QString &path, const QByteArray &content, const QDateTime &modified, QFile::Permissions permissions = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.close();
    if (permissions) {
        file.setPermissions(permissions);
    }
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QStringList names(const QVector<OVEntry> &entries)
{
    QStringList list;
    for (const OVEntry &entry : entries) {
        list.append(entry.name + (entry.inSource ? QString() : QStringLiteral(" (deleted)"))
                    + (entry.hasVersion ? QString() : QStringLiteral(" (not backed up)")));
    }
    return list;
}
}

class TestVersionIndex : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_source;
    QString m_dest;
    QString m_safetyNet;
    OVRestoreSources::Setup m_setup;

    QString archive(const char *name)
    {
        return m_safetyNet + QLatin1Char('/') + QLatin1String(name) + m_dest;
    }

private Q_SLOTS:
    // Four daily runs: 01/09 (first), 01/10 10:00 (a.txt changed, gone.txt
    // and old/ deleted), 01/12 10:00 (a.txt changed again), 01/13 (nothing).
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_source = m_dir.filePath(QStringLiteral("Documents"));
        m_dest = m_dir.filePath(QStringLiteral("Backup Disk/Documents"));
        m_safetyNet = m_dir.filePath(QStringLiteral("Safety Net Archives"));
        put(m_source + QStringLiteral("/a.txt"), "version 3", at("2026-01-11 09:00"));
        put(m_source + QStringLiteral("/new.txt"), "new", at("2026-01-12 08:00"));
        put(m_source + QStringLiteral("/Ünïcødé dir/c.txt"), "c", at("2026-01-08 09:00"));
        put(m_source + QStringLiteral("/never.txt"), "never", at("2026-01-13 12:00"));
        put(m_dest + QStringLiteral("/a.txt"), "version 3", at("2026-01-11 09:00"));
        put(m_dest + QStringLiteral("/new.txt"), "new", at("2026-01-12 08:00"));
        put(m_dest + QStringLiteral("/Ünïcødé dir/c.txt"), "c", at("2026-01-08 09:00"));
        put(m_dest + QStringLiteral("/.psync-work/junk"), "engine", at("2026-01-08 09:00"));
        put(m_dest + QStringLiteral("/.orvane-kept-4242/kept/a.txt"), "staged", at("2026-01-08 09:00"));
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/a.txt"), "version 1", at("2026-01-08 09:00"), QFile::ReadOwner | QFile::WriteOwner);
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/gone.txt"), "gone", at("2026-01-08 09:00"));
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/old/deep/x.txt"), "x", at("2026-01-08 09:00"));
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/old/y.txt"), "y", at("2026-01-08 09:00"));
        put(archive("2026-01-12 10.00.00 Daily") + QStringLiteral("/a.txt"), "version 2 longer", at("2026-01-09 12:00"));
        // Another destination's archive of the same run, and a weekly one.
        put(m_safetyNet + QStringLiteral("/2026-01-12 10.00.00 Daily/elsewhere/a.txt"), "not ours", at("2026-01-09 12:00"));
        put(m_safetyNet + QStringLiteral("/2026-01-11 10.00.00 Weekly") + m_dest + QStringLiteral("/a.txt"), "not ours", at("2026-01-09 12:00"));
        put(m_dir.filePath(QStringLiteral("support/.daily/.lastbackup")), "01/13/26\n", at("2026-01-13 10:00"));

        OVBackupItem item;
        item.setCheckColumn(true);
        item.setFrequencyColumn(int(OVFrequency::Manual));
        item.setSourcePath(m_source);
        item.setDestPath(m_dest + QLatin1Char('/'));
        m_setup.items = {item};
        m_setup.settings.insert(QStringLiteral("SafetyNetFolder"), m_safetyNet);
        m_setup.supportFolder = m_dir.filePath(QStringLiteral("support"));
    }

    void textFormats()
    {
        QCOMPARE(OVRestoreSources::parseMarker("07/04/06\n"), QDate(2006, 7, 4));
        QCOMPARE(OVRestoreSources::parseMarker(" 12/31/68 "), QDate(2068, 12, 31));
        QCOMPARE(OVRestoreSources::parseMarker("12/31/99"), QDate(1999, 12, 31));
        QVERIFY(!OVRestoreSources::parseMarker("yesterday").isValid());
        QDateTime time;
        QString frequency;
        QVERIFY(OVRestoreSources::parseArchiveName(QStringLiteral("2026-11-20 14.05.09 Weekly"), &time, &frequency));
        QCOMPARE(time, QDateTime(QDate(2026, 11, 20), QTime(14, 5, 9)));
        QCOMPARE(frequency, QStringLiteral("Weekly"));
        QVERIFY(!OVRestoreSources::parseArchiveName(QStringLiteral("2026-11-20 14.05.09 Hourly"), &time, &frequency));
        QVERIFY(!OVRestoreSources::parseArchiveName(QStringLiteral("2026-13-20 14.05.09 Daily"), &time, &frequency));
        QCOMPARE(OVRestoreSources::frequencyName(int(OVFrequency::Manual)), QStringLiteral("Daily"));
        QCOMPARE(OVRestoreJob::datedName(QStringLiteral("/a/report.odt"), at("2026-01-10 10:00"), 1), QStringLiteral("/a/report (2026-01-10 10.00.00).odt"));
        QCOMPARE(OVRestoreJob::datedName(QStringLiteral("/a/.hidden"), at("2026-01-10 10:00"), 2), QStringLiteral("/a/.hidden (2026-01-10 10.00.00 2)"));
    }

    void sourcesOfAPath()
    {
        // A manual item's runs are daily ones: its copy is dated by the
        // daily marker, and only this destination's daily archives count.
        const OVRestoreSources sources = OVRestoreSources::forPath(m_source + QStringLiteral("/Ünïcødé dir/c.txt"), m_setup);
        QCOMPARE(sources.sourceRoot, m_source);
        QCOMPARE(sources.relativePath, QStringLiteral("Ünïcødé dir/c.txt"));
        QVERIFY(sources.problems.isEmpty());
        QCOMPARE(sources.index.snapshots().size(), 3);
        QCOMPARE(sources.index.snapshot(0).kind, OVSnapshot::Copy);
        QCOMPARE(sources.index.snapshot(0).time, at("2026-01-13 00:00"));

        // A source inside another item's source: the outer item's backups
        // count too, below the inner folder.
        OVRestoreSources::Setup nested = m_setup;
        OVBackupItem inner;
        inner.setCheckColumn(true);
        inner.setSourcePath(m_source + QStringLiteral("/Ünïcødé dir"));
        inner.setDestPath(QStringLiteral("/Volumes/Backup Disk/Inner"));
        nested.items.append(inner);
        const OVRestoreSources both = OVRestoreSources::forPath(m_source + QStringLiteral("/Ünïcødé dir/c.txt"), nested);
        QCOMPARE(both.sourceRoot, m_source + QStringLiteral("/Ünïcødé dir"));
        QCOMPARE(both.index.versionsOf(QStringLiteral("c.txt")).size(), 1);
        QCOMPARE(both.problems.size(), 1);
        QCOMPARE(both.problems.first().kind, OVRestoreProblem::DiskMissing);
        QCOMPARE(both.problems.first().subject, QStringLiteral("Backup Disk"));

        // Outside every source; the remote volume not mounted.
        QCOMPARE(OVRestoreSources::forPath(m_dir.path(), m_setup).problems.first().kind, OVRestoreProblem::NotInAnyItem);
        OVRestoreSources::Setup remote = m_setup;
        remote.items.first().setDestPath(QStringLiteral("/Volumes/Share/Documents"));
        remote.settings.insert(QStringLiteral("RemoteVolumeName"), QStringLiteral("Share"));
        remote.settings.insert(QStringLiteral("RemoteServerAddress"), QStringLiteral("smb://nas"));
        const OVRestoreProblem problem = OVRestoreSources::forPath(m_source, remote).problems.first();
        QCOMPARE(problem.kind, OVRestoreProblem::RemoteNotMounted);
        QCOMPARE(problem.server, QStringLiteral("smb://nas"));
        QCOMPARE(problem.volume, QStringLiteral("Share"));
    }

    void versionsNewestFirst()
    {
        const OVVersionIndex index = OVRestoreSources::forPath(m_source, m_setup).index;
        const QVector<OVVersion> versions = index.versionsOf(QStringLiteral("a.txt"));
        QCOMPARE(versions.size(), 3);
        QCOMPARE(read(versions[0].path), QByteArray("version 3"));
        QCOMPARE(read(versions[1].path), QByteArray("version 2 longer"));
        QCOMPARE(versions[1].size, qint64(16));
        QCOMPARE(index.snapshot(versions[1].snapshot).time, at("2026-01-12 10:00"));
        QCOMPARE(read(versions[2].path), QByteArray("version 1"));
        QCOMPARE(index.versionsOf(QStringLiteral("gone.txt")).size(), 1);
        QVERIFY(index.versionsOf(QStringLiteral("never.txt")).isEmpty());
        QCOMPARE(index.relativePathOf(m_source + QStringLiteral("/x/y")), QStringLiteral("x/y"));
        QVERIFY(index.relativePathOf(m_source + QStringLiteral("x")).isNull());
    }

    void folderNowAndOnADate()
    {
        const OVVersionIndex index = OVRestoreSources::forPath(m_source, m_setup).index;
        // Now: deleted names marked, the engine's own folder hidden.
        QCOMPARE(names(index.listFolder(QString())),
                 QStringList({QStringLiteral("old (deleted)"),
                              QStringLiteral("Ünïcødé dir"),
                              QStringLiteral("a.txt"),
                              QStringLiteral("gone.txt (deleted)"),
                              QStringLiteral("never.txt (not backed up)"),
                              QStringLiteral("new.txt")}));
        const auto contentAt = [&index](const char *when, const QString &name) {
            for (const OVEntry &entry : index.listFolder(QString(), at(when))) {
                if (entry.name == name) {
                    return read(entry.version.path);
                }
            }
            return QByteArray("<absent>");
        };
        QCOMPARE(contentAt("2026-01-09 23:59", QStringLiteral("a.txt")), QByteArray("version 1"));
        QCOMPARE(contentAt("2026-01-09 23:59", QStringLiteral("gone.txt")), QByteArray("gone"));
        QCOMPARE(contentAt("2026-01-10 23:59", QStringLiteral("a.txt")), QByteArray("version 2 longer"));
        QCOMPARE(contentAt("2026-01-10 23:59", QStringLiteral("gone.txt")), QByteArray("<absent>"));
        QCOMPARE(contentAt("2026-01-11 23:59", QStringLiteral("new.txt")), QByteArray("<absent>"));
        QCOMPARE(contentAt("2026-01-13 23:59", QStringLiteral("a.txt")), QByteArray("version 3"));
        QCOMPARE(contentAt("2026-01-13 23:59", QStringLiteral("never.txt")), QByteArray("<absent>"));
        QCOMPARE(names(index.listFolder(QStringLiteral("old"), at("2026-01-09 23:59"))),
                 QStringList({QStringLiteral("deep (deleted)"), QStringLiteral("y.txt (deleted)")}));
    }

    void restoreVersions()
    {
        const OVVersionIndex index = OVRestoreSources::forPath(m_source, m_setup).index;
        const QString target = m_dir.filePath(QStringLiteral("restored"));
        const QVector<OVVersion> versions = index.versionsOf(QStringLiteral("a.txt"));

        // Elsewhere, keeping the path; mode and time come back.
        OVRestoreJob first(index, OVRestoreJob::plan(index, {versions[2]}, target), OVRestoreJob::KeepBoth);
        QSignalSpy progress(&first, &OVRestoreJob::progress);
        QVERIFY(first.run());
        QVERIFY(!progress.isEmpty());
        QCOMPARE(read(target + QStringLiteral("/a.txt")), QByteArray("version 1"));
        QCOMPARE(QFileInfo(target + QStringLiteral("/a.txt")).lastModified(), at("2026-01-08 09:00"));
        QCOMPARE(QFileInfo(target + QStringLiteral("/a.txt")).permissions() & 0x7777,
                 QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);

        // The same place again: another version comes back beside it, the
        // same version is not kept twice, and Replace replaces.
        OVRestoreJob second(index, OVRestoreJob::plan(index, {versions[1], versions[2]}, target), OVRestoreJob::KeepBoth);
        QVERIFY(second.run());
        QCOMPARE(read(target + QStringLiteral("/a.txt")), QByteArray("version 1"));
        QCOMPARE(read(target + QStringLiteral("/a (2026-01-12 10.00.00).txt")), QByteArray("version 2 longer"));
        QCOMPARE(second.kept(), QStringList({target + QStringLiteral("/a.txt")}));
        OVRestoreJob third(index, OVRestoreJob::plan(index, {versions[0]}, target), OVRestoreJob::Replace);
        QVERIFY(third.run());
        QCOMPARE(read(target + QStringLiteral("/a.txt")), QByteArray("version 3"));

        // A deleted folder comes back whole, as it was before its deletion.
        const QVector<OVVersion> old = index.versionsOf(QStringLiteral("old"));
        QCOMPARE(old.size(), 1);
        OVRestoreJob folder(index, OVRestoreJob::plan(index, old, target), OVRestoreJob::KeepBoth);
        QVERIFY(folder.run());
        QCOMPARE(read(target + QStringLiteral("/old/deep/x.txt")), QByteArray("x"));
        QCOMPARE(read(target + QStringLiteral("/old/y.txt")), QByteArray("y"));

        // Cancelled: nothing half-written, no temporary file left.
        const QString cancelTarget = m_dir.filePath(QStringLiteral("cancelled"));
        OVRestoreJob cancelled(index, OVRestoreJob::plan(index, {versions[0]}, cancelTarget), OVRestoreJob::KeepBoth);
        cancelled.cancel();
        QVERIFY(!cancelled.run());
        QVERIFY(QDir(cancelTarget).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestVersionIndex)
#include "test_versionindex.moc"
