// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The version index, the restore operation and the command line on backups laid out by hand: any user, no root.
#include "OVExclusions.h"
#include "OVRestoreCommand.h"
#include "OVRestoreJob.h"
#include "OVRestoreSources.h"
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>
#include <sys/xattr.h>

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
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush());
    QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime) && (!permissions || file.setPermissions(permissions)));
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QByteArray attribute(const QString &path, const char *name)
{
    QByteArray value(256, 0);
    const ssize_t size = lgetxattr(QFile::encodeName(path).constData(), name, value.data(), value.size());
    return size < 0 ? QByteArray("<none>") : value.left(int(size));
}

QString names(const QVector<OVEntry> &entries)
{
    QStringList list;
    for (const OVEntry &entry : entries) {
        list.append(entry.name + (entry.inSource ? QString() : QStringLiteral(" (deleted)"))
                    + (entry.hasVersion ? QString() : QStringLiteral(" (not backed up)")) + (entry.excluded ? QStringLiteral(" (excluded)") : QString()));
    }
    return list.join(QStringLiteral(", "));
}

// The exit status, and what went to standard output.
std::pair<int, QString> command(const OVRestoreSources::Setup &setup, const QStringList &arguments)
{
    QString out, err;
    QTextStream outStream(&out), errStream(&err);
    const int status = OVRestoreCommand::run(QStringList{QStringLiteral("orvane-restore")} + arguments, setup, outStream, errStream);
    outStream.flush();
    return {status, out};
}
}

class TestVersionIndex : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_source, m_dest, m_safetyNet;
    OVRestoreSources::Setup m_setup;

    QString archive(const char *name)
    {
        return m_safetyNet + QLatin1Char('/') + QLatin1String(name) + m_dest;
    }

private Q_SLOTS:
    // Daily runs on 01/09 (first) and 01/10 10:00 (a.txt changed, gone.txt and old/ deleted); then weekly, its run on 01/12 10:00
    // changed a.txt. The daily marker is younger than this item's runs (other items ran); the weekly one older than its archive.
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_source = m_dir.filePath(QStringLiteral("Documents"));
        m_dest = m_dir.filePath(QStringLiteral("Backup Disk/Documents"));
        m_safetyNet = m_dir.filePath(QStringLiteral("Safety Net Archives"));
        for (const QString &root : {m_source, m_dest}) {
            put(root + QStringLiteral("/a.txt"), "version 3", at("2026-01-11 09:00"));
            put(root + QStringLiteral("/new.txt"), "new", at("2026-01-12 08:00"));
            put(root + QStringLiteral("/Ünïcødé dir/c.txt"), "c", at("2026-01-08 09:00"));
        }
        put(m_source + QStringLiteral("/never.txt"), "never", at("2026-01-13 12:00"));
        put(m_source + QStringLiteral("/scratch.tmp"), "scratch", at("2026-01-13 12:00"));
        put(m_source + QStringLiteral("/build/CACHEDIR.TAG"), "Signature: 8a477f597d28d172789f06886806bc55\n", at("2026-01-08 09:00"));
        put(m_source + QStringLiteral("/build/out/o.bin"), "o", at("2026-01-08 09:00"));
        put(m_dest + QStringLiteral("/.psync-work/junk"), "engine", at("2026-01-08 09:00"));
        put(m_dest + QStringLiteral("/.orvane-kept-4242/kept/a.txt"), "staged", at("2026-01-08 09:00"));
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/a.txt"), "version 1", at("2026-01-08 09:00"), QFile::ReadOwner | QFile::WriteOwner);
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/gone.txt"), "gone", at("2026-01-08 09:00"));
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/old/deep/x.txt"), "x", at("2026-01-08 09:00"));
        put(archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/old/y.txt"), "y", at("2026-01-08 09:00"));
        put(archive("2026-01-12 10.00.00 Weekly") + QStringLiteral("/a.txt"), "version 2 longer", at("2026-01-09 12:00"));
        // Another destination's archive of a run: not this source's.
        put(m_safetyNet + QStringLiteral("/2026-01-12 10.00.00 Daily/elsewhere/a.txt"), "not ours", at("2026-01-09 12:00"));
        put(m_dir.filePath(QStringLiteral("support/.daily/.lastbackup")), "01/13/26\n", at("2026-01-13 10:00"));
        put(m_dir.filePath(QStringLiteral("support/.weekly/.lastbackup")), "01/11/26\n", at("2026-01-13 10:00"));

        OVBackupItem item;
        item.setCheckColumn(true);
        item.setFrequencyColumn(int(OVFrequency::Weekly));
        item.setSourcePath(m_source);
        item.setDestPath(m_dest + QLatin1Char('/'));
        item.setExclusions({QStringLiteral("*.tmp")});
        m_setup.items = {item};
        m_setup.settings.insert(QStringLiteral("SafetyNetFolder"), m_safetyNet);
        m_setup.supportFolder = m_dir.filePath(QStringLiteral("support"));
    }

    void textFormats()
    {
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
        // The command line's dates: a day stands for its end (its other forms: test_restore.sh).
        QCOMPARE(OVRestoreCommand::parseDate(QStringLiteral("2026-11-25")), QDateTime(QDate(2026, 11, 25), QTime(23, 59, 59)));
        QVERIFY(!OVRestoreCommand::parseDate(QStringLiteral("2026-02-30")).isValid());
        QCOMPARE(OVRestoreCommand::escaped(QStringLiteral("a\tb\\c\nd")), QStringLiteral("a\\tb\\\\c\\nd"));
    }

    // Every version of the source, whatever frequency made it; the copy dated by what is known of the runs that wrote it.
    void sourcesAcrossFrequencies()
    {
        const OVRestoreSources sources = OVRestoreSources::forPath(m_source + QStringLiteral("/Ünïcødé dir/c.txt"), m_setup);
        QCOMPARE(sources.sourceRoot, m_source);
        QCOMPARE(sources.relativePath, QStringLiteral("Ünïcødé dir/c.txt"));
        QVERIFY(sources.problems.isEmpty());
        QStringList snapshots;
        for (const OVSnapshot &snapshot : sources.index.snapshots()) {
            const bool copy = snapshot.kind == OVSnapshot::Copy;
            snapshots += snapshot.frequency + (copy ? snapshot.time.toLocalTime().toString(QStringLiteral(" 'copy of' yyyy-MM-dd HH:mm")) : QString());
        }
        snapshots.sort();
        // The weekly archive, younger than the weekly marker, tells the copy's day; the daily marker is not this item's any more.
        QCOMPARE(snapshots.join(QStringLiteral(", ")), QStringLiteral("Daily, Weekly, Weekly copy of 2026-01-12 00:00"));
        // A destination no run is known to have written: no date, and whose run is awaited; as a manual item, the daily marker counts.
        OVRestoreSources::Setup fresh = m_setup;
        fresh.items.first().setDestPath(m_dir.filePath(QStringLiteral("Other Disk")));
        put(m_dir.filePath(QStringLiteral("Other Disk/a.txt")), "other", at("2026-01-02 09:00"));
        fresh.items.first().setFrequencyColumn(int(OVFrequency::Monthly));
        OVRestoreSources monthly = OVRestoreSources::forPath(m_source, fresh);
        QCOMPARE(monthly.index.snapshots().size(), 1);
        QVERIFY(!monthly.index.snapshot(0).time.isValid());
        QCOMPARE(monthly.index.snapshot(0).frequency, QStringLiteral("Monthly"));
        fresh.items.first().setFrequencyColumn(int(OVFrequency::Manual));
        QCOMPARE(OVRestoreSources::forPath(m_source, fresh).index.snapshot(0).time, at("2026-01-13 00:00"));
        // A source inside another item's source: the outer item's backups count too, below the inner folder.
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
        // The remote volume not mounted (outside every source, a disk not connected: test_restore).
        OVRestoreSources::Setup remote = m_setup;
        remote.items.first().setDestPath(QStringLiteral("/Volumes/Share/Documents"));
        remote.settings.insert(QStringLiteral("RemoteVolumeName"), QStringLiteral("Share"));
        remote.settings.insert(QStringLiteral("RemoteServerAddress"), QStringLiteral("smb://nas"));
        const OVRestoreProblem problem = OVRestoreSources::forPath(m_source, remote).problems.first();
        QCOMPARE(problem.kind, OVRestoreProblem::RemoteNotMounted);
        QCOMPARE(problem.server, QStringLiteral("smb://nas"));
        QCOMPARE(problem.volume, QStringLiteral("Share"));
    }

    void folderNowAndOnADate()
    {
        const OVVersionIndex index = OVRestoreSources::forPath(m_source, m_setup).index;
        // A path is the source's only below its folder.
        QCOMPARE(index.relativePathOf(m_source + QStringLiteral("/x/y")), QStringLiteral("x/y"));
        QVERIFY(index.relativePathOf(m_source + QStringLiteral("x")).isNull());
        // Deleted names marked, what the item leaves out marked (a pattern, a cache-tagged folder), the engine's own folders hidden.
        QCOMPARE(names(index.listFolder(QString())),
                 QStringLiteral("build (not backed up) (excluded), old (deleted), Ünïcødé dir, a.txt, gone.txt (deleted), "
                                "never.txt (not backed up), new.txt, scratch.tmp (not backed up) (excluded)"));
        QVERIFY(index.isExcluded(QStringLiteral("build/out/o.bin"), false));
        QVERIFY(!index.isExcluded(QStringLiteral("Ünïcødé dir/c.txt"), false));
        const auto contentAt = [&index](const char *when, const QString &name) {
            for (const OVEntry &entry : index.listFolder(QString(), at(when))) {
                if (entry.name == name) {
                    return read(entry.version.path);
                }
            }
            return QByteArray("<absent>");
        };
        QCOMPARE(contentAt("2026-01-09 23:59", QStringLiteral("a.txt")), QByteArray("version 1"));
        QCOMPARE(contentAt("2026-01-10 23:59", QStringLiteral("a.txt")), QByteArray("version 2 longer"));
        QCOMPARE(contentAt("2026-01-10 23:59", QStringLiteral("gone.txt")), QByteArray("<absent>"));
        QCOMPARE(contentAt("2026-01-11 23:59", QStringLiteral("new.txt")), QByteArray("<absent>"));
        QCOMPARE(names(index.listFolder(QStringLiteral("old"), at("2026-01-09 23:59"))), QStringLiteral("deep (deleted), y.txt (deleted)"));
    }

    // A restored version keeps its attributes and ACL, is a version of its own when they differ, leaves nothing when cancelled.
    void restoreVersions()
    {
        const QString first = archive("2026-01-10 10.00.00 Daily") + QStringLiteral("/a.txt");
        if (lsetxattr(QFile::encodeName(first).constData(), "user.xdg.tags", "Work,Urgent", 11, 0) != 0) {
            QSKIP("this file system holds no extended attributes");
        }
        const QString setfacl = QStandardPaths::findExecutable(QStringLiteral("setfacl"));
        if (!setfacl.isEmpty()) {
            QCOMPARE(QProcess::execute(setfacl, {QStringLiteral("-m"), QStringLiteral("u:nobody:r"), first}), 0);
        }
        const OVVersionIndex index = OVRestoreSources::forPath(m_source, m_setup).index;
        const QString target = m_dir.filePath(QStringLiteral("restored"));
        const QVector<OVVersion> versions = index.versionsOf(QStringLiteral("a.txt"));
        QCOMPARE(versions[2].path, first);
        OVRestoreJob job(index, OVRestoreJob::plan(index, {versions[2]}, target), OVRestoreJob::KeepBoth);
        QSignalSpy progress(&job, &OVRestoreJob::progress);
        QVERIFY(job.run());
        QVERIFY(!progress.isEmpty());
        const QString restored = target + QStringLiteral("/a.txt");
        QCOMPARE(read(restored), QByteArray("version 1"));
        QCOMPARE(attribute(restored, "user.xdg.tags"), QByteArray("Work,Urgent"));
        if (!setfacl.isEmpty()) {
            QCOMPARE(attribute(restored, "system.posix_acl_access"), attribute(first, "system.posix_acl_access"));
        }
        QVERIFY(job.filesMissingAttributes().isEmpty());
        // Same content, but the tag taken off since: a version of its own.
        QVERIFY(lremovexattr(QFile::encodeName(restored).constData(), "user.xdg.tags") == 0);
        OVRestoreJob untagged(index, OVRestoreJob::plan(index, {versions[2]}, target), OVRestoreJob::KeepBoth);
        QVERIFY(untagged.run());
        QCOMPARE(attribute(target + QStringLiteral("/a (2026-01-10 10.00.00).txt"), "user.xdg.tags"), QByteArray("Work,Urgent"));
        const QString cancelTarget = m_dir.filePath(QStringLiteral("cancelled"));
        OVRestoreJob cancelled(index, OVRestoreJob::plan(index, {versions[0]}, cancelTarget), OVRestoreJob::KeepBoth);
        cancelled.cancel();
        QVERIFY(!cancelled.run());
        QVERIFY(QDir(cancelTarget).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());
    }

    // The command line on what real backups do not show: folders listed before files, the exit code of every misuse.
    void commandLine()
    {
        const QString a = m_source + QStringLiteral("/a.txt");
        const auto [status, out] = command(m_setup, {QStringLiteral("--list"), QStringLiteral("--at"), QStringLiteral("2026-01-09"), m_source});
        QCOMPARE(status, 0);
        QStringList tree;
        for (const QString &line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            tree.append(line.section(QLatin1Char('\t'), 4, 4).mid(m_source.size()) + QLatin1Char(' ') + line.section(QLatin1Char('\t'), 3, 3));
        }
        QCOMPARE(tree.join(QLatin1Char(',')),
                 QStringLiteral(" present,/old deleted,/old/deep deleted,/old/deep/x.txt deleted,/old/y.txt deleted,"
                                "/Ünïcødé dir present,/Ünïcødé dir/c.txt present,/a.txt present,/gone.txt deleted"));
        const QString to = m_dir.filePath(QStringLiteral("by-command"));
        QDir().mkpath(to);
        QCOMPARE(command(m_setup, {QStringLiteral("--restore"), a, m_source + QStringLiteral("/never.txt"), QStringLiteral("--to"), to}).first, 1);
        QCOMPARE(command(m_setup, {QStringLiteral("--list"), QStringLiteral("--restore"), a}).first, 2);
        QCOMPARE(command(m_setup, {QStringLiteral("--restore")}).first, 2);
    }
};

QTEST_GUILESS_MAIN(TestVersionIndex)
#include "test_versionindex.moc"
