// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Restoring from real backups (made by make-backups.sh in the sandbox), as
// the user: the set-up runs as root, then the test drops to the user for
// good, so every read and write below has only the user's rights.

#include "OVItemArchive.h"
#include "OVRestoreJob.h"
#include "OVRestoreSources.h"
#include "OVRestoreWindow.h"
#include "OVSettingsDomain.h"
#include "ovfixedpaths.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTest>
#include <QTreeWidget>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
const QString User = QStringLiteral("ovrestore");
const QString Home = QStringLiteral("/home/ovrestore");
const QString Source = QStringLiteral("/home/ovrestore/Documents");
const QString Fixture = QStringLiteral("/tmp/restore-fixture");
// The Safety Net at its default place, inside the source.
const QString SafetyNet = QStringLiteral("/home/ovrestore/Documents/Safety Net Archives");

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

OVBackupItem item(const QString &source, const QString &destination)
{
    OVBackupItem item;
    item.setCheckColumn(true);
    item.setFrequencyColumn(int(OVFrequency::Daily));
    item.setSourcePath(source);
    item.setDestPath(destination);
    return item;
}

// Every file below a folder, with its content, mode and time.
QStringList tree(const QString &root)
{
    QStringList lines;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        struct stat st;
        lstat(QFile::encodeName(path).constData(), &st);
        QString line = path.mid(root.size()) + QStringLiteral(" mode=") + QString::number(st.st_mode & 0777, 8);
        if (S_ISREG(st.st_mode)) {
            line += QStringLiteral(" mtime=") + QString::number(st.st_mtime) + QStringLiteral(" md5=")
                + QString::fromLatin1(QCryptographicHash::hash(read(path), QCryptographicHash::Md5).toHex());
        }
        lines.append(line);
    }
    lines.sort();
    return lines;
}
}

class TestRestore : public QObject
{
    Q_OBJECT

    OVRestoreSources m_sources;

private Q_SLOTS:
    void initTestCase()
    {
        QCOMPARE(geteuid(), uid_t(0));
        const struct passwd *pw = getpwnam("ovrestore");
        QVERIFY(pw);
        // The item list as the pane installs it: a daily item of the
        // Documents folder, and one whose destination only root may read.
        QVector<OVBackupItem> items = {item(Source, QStringLiteral("/Volumes/Backup Disk/Documents"))};
        QFile archive(QString::fromLatin1(OVFixedPaths::ItemsArchive));
        QVERIFY(archive.open(QIODevice::WriteOnly));
        archive.write(OVItemArchive::archive(items));
        archive.close();
        QVERIFY(archive.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther));

        // Drop to the user for good.
        QVERIFY(setgroups(0, nullptr) == 0);
        QVERIFY(setresgid(pw->pw_gid, pw->pw_gid, pw->pw_gid) == 0);
        QVERIFY(setresuid(pw->pw_uid, pw->pw_uid, pw->pw_uid) == 0);
        qputenv("HOME", Home.toUtf8());
        qunsetenv("XDG_CONFIG_HOME");
        QVariantMap settings;
        settings.insert(QStringLiteral("SafetyNet"), true);
        settings.insert(QStringLiteral("SafetyNetFolder"), SafetyNet);
        QVERIFY(OVSettingsDomain::replace(settings));

        m_sources = OVRestoreSources::forPath(Source + QStringLiteral("/report.txt"), OVRestoreSources::installed());
        QVERIFY(m_sources.problems.isEmpty());
        QCOMPARE(m_sources.relativePath, QStringLiteral("report.txt"));
    }

    // A file changed, deleted and re-created: each version byte for byte,
    // with its time, restored elsewhere keeping its path.
    void everyVersionComesBack()
    {
        const OVVersionIndex &index = m_sources.index;
        const QVector<OVVersion> versions = index.versionsOf(QStringLiteral("report.txt"));
        QCOMPARE(versions.size(), 3);
        const QStringList days = {QStringLiteral("2026-01-08"), QStringLiteral("2026-01-06"), QStringLiteral("2026-01-05")};
        QCOMPARE(index.snapshot(versions[0].snapshot).kind, OVSnapshot::Copy);
        QCOMPARE(index.snapshot(versions[0].snapshot).time.date(), QDate(2026, 1, 8));
        QCOMPARE(index.snapshot(versions[1].snapshot).time, QDateTime(QDate(2026, 1, 7), QTime(20, 0)));
        QCOMPARE(index.snapshot(versions[2].snapshot).time, QDateTime(QDate(2026, 1, 6), QTime(20, 0)));
        for (int i = 0; i < versions.size(); ++i) {
            const QString target = QDir::tempPath() + QStringLiteral("/restored-") + QString::number(i);
            OVRestoreJob job(index, OVRestoreJob::plan(index, {versions[i]}, target), OVRestoreJob::KeepBoth);
            QVERIFY2(job.run(), qPrintable(job.errors().join(QLatin1Char('\n'))));
            const QString original = Fixture + QLatin1Char('/') + days[i] + QStringLiteral("/report.txt");
            QCOMPARE(read(target + QStringLiteral("/report.txt")), read(original));
            QCOMPARE(QFileInfo(target + QStringLiteral("/report.txt")).lastModified(), QFileInfo(original).lastModified());
            QCOMPARE(QFileInfo(target + QStringLiteral("/report.txt")).ownerId(), geteuid());
        }
    }

    // The Safety Net folder lies in the source but is no part of it: the
    // backups never hold it, and the window never shows it.
    void safetyNetIsNoPartOfTheSource()
    {
        const OVVersionIndex &index = m_sources.index;
        QVERIFY(QFileInfo(SafetyNet + QStringLiteral("/2026-01-06 20.00.00 Daily")).isDir());
        QStringList names;
        for (const OVEntry &entry : index.listFolder(QString())) {
            names.append(entry.name);
        }
        QVERIFY2(!names.contains(QStringLiteral("Safety Net Archives")), qPrintable(names.join(QLatin1Char(','))));
        QVERIFY(names.contains(QStringLiteral("Ünïcødé")));
        QVERIFY(index.versionsOf(QStringLiteral("Safety Net Archives")).isEmpty());
        QVERIFY(index.listFolder(QStringLiteral("Safety Net Archives")).isEmpty());
        QVERIFY(!QFileInfo::exists(QStringLiteral("/Volumes/Backup Disk/Documents/Safety Net Archives")));
    }

    // A deleted file and a deleted folder come back at their places; an
    // existing file is kept and the old version comes back beside it.
    void backInPlace()
    {
        const OVVersionIndex &index = m_sources.index;
        const QVector<OVEntry> now = index.listFolder(QStringLiteral("Ünïcødé"));
        QCOMPARE(now.size(), 2);
        QCOMPARE(now[0].name, QStringLiteral("löschen.txt"));
        QVERIFY(!now[0].inSource && now[0].hasVersion);

        OVRestoreJob file(index, OVRestoreJob::plan(index, {now[0].version}), OVRestoreJob::KeepBoth);
        QVERIFY(file.run());
        QCOMPARE(read(Source + QStringLiteral("/Ünïcødé/löschen.txt")), QByteArray("wird gelöscht"));

        const QVector<OVVersion> project = index.versionsOf(QStringLiteral("Projekt"));
        QCOMPARE(project.size(), 1);
        OVRestoreJob folder(index, OVRestoreJob::plan(index, project), OVRestoreJob::KeepBoth);
        QVERIFY(folder.run());
        QCOMPARE(tree(Source + QStringLiteral("/Projekt")), tree(Fixture + QStringLiteral("/2026-01-05/Projekt")));

        const OVVersion first = index.versionsOf(QStringLiteral("report.txt")).last();
        OVRestoreJob kept(index, OVRestoreJob::plan(index, {first}), OVRestoreJob::KeepBoth);
        QVERIFY(kept.run());
        QCOMPARE(read(Source + QStringLiteral("/report.txt")), QByteArray("Bericht, neu geschrieben"));
        QCOMPARE(read(Source + QStringLiteral("/report (2026-01-06 20.00.00).txt")), QByteArray("Bericht, erste Fassung"));
    }

    // The window at a path, as of a date, and the screenshot for the help.
    void window()
    {
        OVRestoreWindow window;
        window.openAt(Source + QStringLiteral("/report.txt"));
        window.resize(900, 520);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.sourceRoot(), Source);
        QCOMPARE(window.selectedPaths(), QStringList({QStringLiteral("report.txt")}));
        QCOMPARE(window.versionCount(), 3);
        QCOMPARE(window.windowTitle(), QStringLiteral("Restore: Documents"));
        const QString shots = qEnvironmentVariable("OV_SCREENSHOTS");
        if (!shots.isEmpty()) {
            QDir().mkpath(shots);
            QVERIFY(window.grab().save(shots + QStringLiteral("/restore-window.png")));
        }
        window.setAsOf(QDate(2026, 1, 5));
        window.openAt(Source + QStringLiteral("/Projekt/Daten"));
        QCOMPARE(window.selectedPaths(), QStringList({QStringLiteral("Projekt/Daten")}));
        if (!shots.isEmpty()) {
            QVERIFY(window.grab().save(shots + QStringLiteral("/restore-window-as-of.png")));
        }
        // Never backed up.
        QFile fresh(Source + QStringLiteral("/fresh.txt"));
        QVERIFY(fresh.open(QIODevice::WriteOnly));
        fresh.close();
        window.setAsOf(QDate());
        window.openAt(fresh.fileName());
        QCOMPARE(window.versionCount(), 0);
        QVERIFY2(window.message().contains(QStringLiteral("has never been backed up")), qPrintable(window.message()));
    }

    // What cannot be restored says why.
    void clearAnswers()
    {
        OVRestoreSources::Setup setup = OVRestoreSources::installed();
        setup.items.append(item(Home + QStringLiteral("/Pictures"), QStringLiteral("/Volumes/Holiday Disk/Pictures")));
        setup.items.append(item(Home + QStringLiteral("/Mail"), QStringLiteral("/Volumes/Backup Disk/Private")));
        OVRestoreWindow window;
        window.setSetup(setup);
        window.openAt(Home + QStringLiteral("/Pictures/beach.jpg"));
        QVERIFY2(window.message().contains(QStringLiteral("The backup disk “Holiday Disk” is not connected")), qPrintable(window.message()));
        window.openAt(Home + QStringLiteral("/Mail"));
        QVERIFY2(window.message().contains(QStringLiteral("You may not read “/Volumes/Backup Disk/Private”")), qPrintable(window.message()));
        window.openAt(QStringLiteral("/etc/hostname"));
        QVERIFY2(window.message().contains(QStringLiteral("is in no backup item's source folder")), qPrintable(window.message()));

        // An archive the user has shut: named, and the rest still shown.
        const QString archive = SafetyNet + QStringLiteral("/2026-01-07 20.00.00 Daily");
        QVERIFY(QFile::setPermissions(archive, {}));
        window.setSetup(OVRestoreSources::installed());
        window.openAt(Source + QStringLiteral("/report.txt"));
        QVERIFY2(window.message().contains(QStringLiteral("You may not read “") + archive + QStringLiteral("”")), qPrintable(window.message()));
        QCOMPARE(window.versionCount(), 2);
        QVERIFY(QFile::setPermissions(archive, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
};

QTEST_MAIN(TestRestore)
#include "test_restore.moc"
