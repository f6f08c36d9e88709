// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Restoring real backups by the window's code path as the user; test_restore.sh runs beforeTheWeeklyRun, then the rest.
#include "OVRestoreJob.h"
#include "OVRestoreSources.h"
#include "OVRestoreWindow.h"
#include "OVSettingsDomain.h"
#include "ovtestfiles.h"
#include <QHelpEvent>
#include <QStandardItemModel>
#include <QToolTip>
#include <QTreeView>
#include <QTreeWidget>
#include <sys/xattr.h>

namespace
{
const QString Home = QStringLiteral("/home/ovrestore");
const QString Source = QStringLiteral("/home/ovrestore/Documents");
const QString Fixture = QStringLiteral("/tmp/restore-fixture");
// The Safety Net at its default place, inside the source.
const QString SafetyNet = QStringLiteral("/home/ovrestore/Documents/Safety Net Archives");

bool restore(const OVVersionIndex &index, const QVector<OVVersion> &versions, const QString &target = QString())
{
    OVRestoreJob job(index, OVRestoreJob::plan(index, versions, target), OVRestoreJob::KeepBoth);
    const bool done = job.run() && job.filesMissingAttributes().isEmpty();
    if (!done) {
        qWarning() << job.errors() << job.filesMissingAttributes();
    }
    return done;
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
        QVERIFY(becomeUser("ovrestore", Home));
        qunsetenv("XDG_CONFIG_HOME");
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("SafetyNet"), true}, {QStringLiteral("SafetyNetFolder"), SafetyNet}}));
        m_sources = OVRestoreSources::forPath(Source + QStringLiteral("/report.txt"), OVRestoreSources::installed());
        QVERIFY2(m_sources.problems.isEmpty(), qPrintable(m_sources.describeProblems().join(QLatin1Char('\n'))));
        QCOMPARE(m_sources.relativePath, QStringLiteral("report.txt"));
    }

    // Moved from Daily to Weekly: the daily runs' versions all there, the copy not said to be of a run that did not finish.
    void beforeTheWeeklyRun()
    {
        const OVVersionIndex &index = m_sources.index;
        const QVector<OVVersion> versions = index.versionsOf(QStringLiteral("report.txt"));
        QCOMPARE(versions.size(), 3);
        QCOMPARE(index.snapshot(versions[0].snapshot).kind, OVSnapshot::Copy);
        QVERIFY(!index.snapshot(versions[0].snapshot).time.isValid());
        QCOMPARE(index.snapshot(versions[1].snapshot).frequency, QStringLiteral("Daily"));
        OVRestoreWindow window;
        window.openAt(Source + QStringLiteral("/report.txt"));
        const auto *shown = window.findChild<QTreeWidget *>(QStringLiteral("versionList"));
        QCOMPARE(shown->topLevelItemCount(), 3);
        QCOMPARE(shown->topLevelItem(0)->text(0), QStringLiteral("Backup copy from an earlier run (no Weekly run has finished yet)"));
        QVERIFY2(shown->topLevelItem(1)->text(0).startsWith(QStringLiteral("As it was when deleted, ")), qPrintable(shown->topLevelItem(1)->text(0)));
        QVERIFY2(shown->topLevelItem(2)->text(0).startsWith(QStringLiteral("As it was until ")), qPrintable(shown->topLevelItem(2)->text(0)));
    }

    // After the weekly run: every version of both frequencies, byte for byte, to the nanosecond, restored elsewhere.
    void everyVersionComesBack()
    {
        m_sources = OVRestoreSources::forPath(Source + QStringLiteral("/report.txt"), OVRestoreSources::installed());
        const OVVersionIndex &index = m_sources.index;
        const QVector<OVVersion> versions = index.versionsOf(QStringLiteral("report.txt"));
        QCOMPARE(versions.size(), 4);
        QCOMPARE(index.snapshot(versions[0].snapshot).time.date(), QDate(2026, 1, 9));
        // The archive's time (the copy's is that of the weekly run, above), its frequency, the fixture's day, deleted.
        const std::tuple<int, const char *, const char *, bool> expected[] = {{0, "Weekly", "2026-01-09", false},
                                                                              {9, "Weekly", "2026-01-08", false},
                                                                              {7, "Daily", "2026-01-06", true},
                                                                              {6, "Daily", "2026-01-05", false}};
        for (int i = 0; i < versions.size(); ++i) {
            const auto &[archiveDay, frequency, day, deleted] = expected[i];
            const OVSnapshot &snapshot = index.snapshot(versions[i].snapshot);
            QVERIFY2(!archiveDay || snapshot.time == QDateTime(QDate(2026, 1, archiveDay), QTime(20, 0)), qPrintable(snapshot.time.toString(Qt::ISODate)));
            QCOMPARE(snapshot.frequency, QString::fromLatin1(frequency));
            QCOMPARE(index.wasDeletedBy(versions[i]), deleted);
            const QString target = QDir::tempPath() + QStringLiteral("/restored-") + QString::number(i);
            QVERIFY(restore(index, {versions[i]}, target));
            const QString restored = target + QStringLiteral("/report.txt");
            QCOMPARE(stamp(restored), stamp(Fixture + QLatin1Char('/') + QLatin1String(day) + QStringLiteral("/report.txt")));
            QCOMPARE(QFileInfo(restored).ownerId(), geteuid());
        }
    }

    // A time within the second, and a Dolphin tag, come back as the backup kept them, from the copy and the Safety Net.
    void metadataComesBack()
    {
        const OVVersionIndex &index = m_sources.index;
        const QVector<OVVersion> precise = index.versionsOf(QStringLiteral("precise.txt"));
        QCOMPARE(precise.size(), 2);
        const QVector<OVVersion> tagged = index.versionsOf(QStringLiteral("tagged.txt"));
        QCOMPARE(tagged.size(), 1);
        const QString target = QDir::tempPath() + QStringLiteral("/metadata");
        QVERIFY(restore(index, {precise[1], tagged[0]}, target));
        QVERIFY2(stamp(target + QStringLiteral("/precise.txt")).contains(QLatin1String(".489320685 ")),
                 qPrintable(stamp(target + QStringLiteral("/precise.txt"))));
        QByteArray tags(64, 0);
        const ssize_t size = getxattr(QFile::encodeName(target + QStringLiteral("/tagged.txt")).constData(), "user.xdg.tags", tags.data(), tags.size());
        QVERIFY2(size > 0, "the tag did not come back");
        QCOMPARE(tags.left(int(size)), QByteArray("Wichtig,Arbeit"));
    }

    // The Safety Net folder lies in the source but is no part of it: the backups never hold it, the window never shows it.
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

    // A deleted file and folder come back at their places; an existing file is kept and the old version comes back beside it.
    void backInPlace()
    {
        const OVVersionIndex &index = m_sources.index;
        const QVector<OVEntry> now = index.listFolder(QStringLiteral("Ünïcødé"));
        QCOMPARE(now.size(), 2);
        QCOMPARE(now[0].name, QStringLiteral("löschen.txt"));
        QVERIFY(!now[0].inSource && now[0].hasVersion);
        QVERIFY(restore(index, {now[0].version}));
        QCOMPARE(readFile(Source + QStringLiteral("/Ünïcødé/löschen.txt")), QByteArray("wird gelöscht"));
        const QVector<OVVersion> project = index.versionsOf(QStringLiteral("Projekt"));
        QCOMPARE(project.size(), 1);
        QVERIFY(restore(index, project));
        QCOMPARE(tree(Source + QStringLiteral("/Projekt")), tree(Fixture + QStringLiteral("/2026-01-05/Projekt")));
        QVERIFY(restore(index, {index.versionsOf(QStringLiteral("report.txt")).last()}));
        QCOMPARE(readFile(Source + QStringLiteral("/report.txt")), QByteArray("Bericht, wöchentlich"));
        QCOMPARE(readFile(Source + QStringLiteral("/report (2026-01-06 20.00.00).txt")), QByteArray("Bericht, erste Fassung"));
    }

    // The window: a tip where a text is cut, a folder opened expanded, excluded paths said so; the screenshots.
    void window()
    {
        OVRestoreWindow window;
        window.openAt(Source + QStringLiteral("/report.txt"));
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.sourceRoot(), Source);
        QCOMPARE(window.selectedPaths(), QStringList({QStringLiteral("report.txt")}));
        QCOMPARE(window.versionCount(), 4);
        QCOMPARE(window.windowTitle(), QStringLiteral("Restore: Documents"));
        const auto shot = [&window](const char *name) {
            const QString shots = qEnvironmentVariable("OV_SCREENSHOTS");
            return shots.isEmpty() || (QDir().mkpath(shots) && window.grab().save(shots + QLatin1Char('/') + QLatin1String(name)));
        };
        QVERIFY(shot("restore-window.png"));
        auto *versions = window.findChild<QTreeWidget *>(QStringLiteral("versionList"));
        // A cut text shows whole as its tip.
        versions->setColumnWidth(0, 40);
        const QRect cell = versions->visualRect(versions->model()->index(0, 0));
        QHelpEvent help(QEvent::ToolTip, cell.center(), versions->viewport()->mapToGlobal(cell.center()));
        QCoreApplication::sendEvent(versions->viewport(), &help);
        QTRY_COMPARE(QToolTip::text(), versions->topLevelItem(0)->text(0));
        // On a folder: that folder selected, open, its names shown.
        window.openAt(Source + QStringLiteral("/Ünïcødé"));
        auto *treeView = window.findChild<QTreeView *>(QStringLiteral("treeView"));
        QCOMPARE(window.selectedPaths(), QStringList({QStringLiteral("Ünïcødé")}));
        const QModelIndex folder = treeView->currentIndex();
        QVERIFY(treeView->isExpanded(folder));
        QVERIFY(treeView->model()->rowCount(folder) >= 2);
        const auto stateOf = [model = treeView->model()](const QString &name) {
            const QModelIndexList found = model->match(model->index(0, 0, model->index(0, 0)), Qt::DisplayRole, name, 1, Qt::MatchExactly);
            return found.isEmpty() ? QStringLiteral("<absent>") : found.first().siblingAtColumn(1).data().toString();
        };
        QCOMPARE(stateOf(QStringLiteral("notes.tmp")), QStringLiteral("Excluded"));
        QCOMPARE(stateOf(QStringLiteral("report.txt")), QStringLiteral("Backed up"));
        window.setAsOf(QDate(2026, 1, 5));
        window.openAt(Source + QStringLiteral("/Projekt/Daten"));
        QCOMPARE(window.selectedPaths(), QStringList({QStringLiteral("Projekt/Daten")}));
        QVERIFY(shot("restore-window-as-of.png"));
        writeFile(Source + QStringLiteral("/fresh.txt"), QByteArray());
        window.setAsOf(QDate());
        window.openAt(Source + QStringLiteral("/fresh.txt"));
        QCOMPARE(window.versionCount(), 0);
        QVERIFY2(window.message().contains(QStringLiteral("has never been backed up")), qPrintable(window.message()));
    }

    // What cannot be restored says why.
    void clearAnswers()
    {
        OVRestoreSources::Setup setup = OVRestoreSources::installed();
        for (const auto &[source, destination] : {std::pair{"/Pictures", "/Volumes/Holiday Disk/Pictures"}, {"/Mail", "/Volumes/Backup Disk/Private"}}) {
            OVBackupItem item;
            item.setCheckColumn(true);
            item.setFrequencyColumn(int(OVFrequency::Daily));
            item.setSourcePath(Home + QLatin1String(source));
            item.setDestPath(QString::fromUtf8(destination));
            setup.items.append(item);
        }
        OVRestoreWindow window;
        window.setSetup(setup);
        window.openAt(Home + QStringLiteral("/Pictures/beach.jpg"));
        QVERIFY2(window.message().contains(QStringLiteral("The backup disk “Holiday Disk” is not connected")), qPrintable(window.message()));
        window.openAt(Home + QStringLiteral("/Mail"));
        QVERIFY2(window.message().contains(QStringLiteral("You may not read “/Volumes/Backup Disk/Private”")), qPrintable(window.message()));
        // An archive the user has shut: named, and the rest still shown.
        const QString archive = SafetyNet + QStringLiteral("/2026-01-07 20.00.00 Daily");
        QVERIFY(QFile::setPermissions(archive, {}));
        window.setSetup(OVRestoreSources::installed());
        window.openAt(Source + QStringLiteral("/report.txt"));
        QVERIFY2(window.message().contains(QStringLiteral("You may not read “") + archive + QStringLiteral("”")), qPrintable(window.message()));
        QCOMPARE(window.versionCount(), 3);
        QVERIFY(QFile::setPermissions(archive, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
};

QTEST_MAIN(TestRestore)
#include "test_restore.moc"
