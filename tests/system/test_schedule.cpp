// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The cron and anacron tables the real helper installs, a real anacron run, the pane's save, backup button and master switch.
#include "OVBackupItemModel.h"
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSaveJob.h"
#include "OVScheduleTables.h"
#include "OVScriptBuilder.h"
#include "OVSettings.h"
#include "OVSettingsDomain.h"
#include "OVToolLauncher.h"
#include "ovsheetchild.h"
#include "ovtestfiles.h"
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>

using namespace OVScheduleTables;

namespace
{
// The tables as Debian's cron and anacron install them, read before any test writes the sandbox's copies.
QByteArray DebianCrontab, DebianAnacrontab;

// Hands the parts to a helper as the pane does (root needs no unlock) and waits for its answer.
bool launched(const char *tool, const OVToolLauncher::Parts &parts)
{
    QSignalSpy finished(OVToolLauncher::instance(), &OVToolLauncher::toolFinished);
    OVToolLauncher::launch(tool, OVToolLauncher::parts(parts));
    const bool ok = OVToolLauncher::instance()->waitForAll(30000) && finished.size() == 1 && finished.first().at(1).toBool();
    if (!ok) {
        qWarning() << finished;
    }
    return ok;
}

bool installed(const std::optional<QByteArray> &crontab, const std::optional<QByteArray> &anacrontab = std::nullopt)
{
    OVToolLauncher::Parts parts;
    for (const auto &[name, table] : {std::pair{"crontab", crontab}, {"anacrontab", anacrontab}}) {
        if (table) {
            parts.append({name, *table});
        }
    }
    return launched(OVFixedPaths::InstallCrontabTool, parts);
}

OVBackupItem item(int frequency, const char *destination = "/root/destination")
{
    OVBackupItem result;
    result.setFrequencyColumn(frequency);
    result.setCheckColumn(true);
    result.setSourcePath(QStringLiteral("/root/source"));
    result.setBackupSource(QStringLiteral("source"));
    result.setDestPath(QString::fromUtf8(destination));
    result.setBackupDestination(QStringLiteral("destination"));
    return result;
}
}

class TestSchedule : public QObject
{
    Q_OBJECT
    const Times m_times{{{{30, 15}, {5, 0}, {45, 11}}}, 6, 28};

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        DebianCrontab = readFile(OVFixedPaths::Crontab);
        DebianAnacrontab = readFile(OVFixedPaths::Anacrontab);
        QVERIFY2(DebianCrontab.contains("run-parts") && DebianAnacrontab.contains("cron.daily"), "needs Debian's cron and anacron (dev/install-deps test)");
    }

    void init()
    {
        writeFile(path(OVFixedPaths::Crontab), DebianCrontab);
        writeFile(path(OVFixedPaths::Anacrontab), DebianAnacrontab);
        QFile::remove(path(OVFixedPaths::SavedCrontab));
        OVSettingsDomain::remove();
    }

    void helperInstallsTheEditedTablesByteForByte()
    {
        QVERIFY(installed(crontabWith(m_times, {true, true, true}), anacrontabWith({false, false, true})));
        QCOMPARE(readFile(OVFixedPaths::Crontab),
                 DebianCrontab + cronLine(OVFrequency::Daily, m_times) + cronLine(OVFrequency::Weekly, m_times) + cronLine(OVFrequency::Monthly, m_times));
        QCOMPARE(readFile(OVFixedPaths::SavedCrontab), DebianCrontab);
        QCOMPARE(readFile(OVFixedPaths::Anacrontab), DebianAnacrontab + anacronLine(OVFrequency::Monthly));
        // cron's own lines and order survive any number of edits.
        const Times later{{{{30, 4}, {5, 0}, {45, 11}}}, 6, 28};
        QVERIFY(installed(crontabWith(later, {true, false, true})));
        QCOMPARE(readFile(OVFixedPaths::Crontab), DebianCrontab + cronLine(OVFrequency::Daily, later) + cronLine(OVFrequency::Monthly, later));
        QVERIFY(installed(crontabWith(later, {}), anacrontabWith({})));
        QCOMPARE(readFile(OVFixedPaths::Crontab), DebianCrontab);
        QCOMPARE(readFile(OVFixedPaths::Anacrontab), DebianAnacrontab);
    }

    void fallBacksAndMissingFiles()
    {
        // Without /etc/crontab the saved copy is the base.
        QFile::remove(path(OVFixedPaths::Crontab));
        writeFile(path(OVFixedPaths::SavedCrontab), "SAVED=1\n");
        QVERIFY(installed(crontabWith(m_times, {true, false, false})));
        QCOMPARE(readFile(OVFixedPaths::Crontab), "SAVED=1\n" + cronLine(OVFrequency::Daily, m_times));
        // Neither readable: no table to hand over. (An unterminated last line never joined: test_helpers.)
        QFile::remove(path(OVFixedPaths::Crontab));
        QFile::remove(path(OVFixedPaths::SavedCrontab));
        QVERIFY(!crontabWith(m_times, {true, true, true}));
        // No anacron: no anacron table, and a save's schedule goes to cron.
        QFile::remove(path(OVFixedPaths::Anacrontab));
        QVERIFY(!anacrontabWith({true, true, true}));
        writeFile(path(OVFixedPaths::Crontab), DebianCrontab);
        bool useAnacron = true;
        const auto parts = tables(useAnacron, m_times, {true, false, false});
        QVERIFY(!useAnacron);
        QCOMPARE(parts, (OVToolLauncher::Parts{{"crontab", DebianCrontab + cronLine(OVFrequency::Daily, m_times)}}));
    }

    void anacronAcceptsAndRunsTheTable()
    {
        QVERIFY(installed(std::nullopt, anacrontabWith({true, true, true})));
        QCOMPARE(QProcess::execute(QStringLiteral("anacron"), {QStringLiteral("-T"), QStringLiteral("-t"), path(OVFixedPaths::Anacrontab)}), 0);
        QFile::remove(path(OVFixedPaths::DailyLastBackup));
        writeFile(QStringLiteral("/root/source/file"), "daily");
        QDir().mkpath(QStringLiteral("/root/destination"));
        OVSettings settings;
        settings.setSafetyNet(false);
        QVERIFY(launched(OVFixedPaths::InstallScriptsTool, OVScriptBuilder::buildScheduledScripts({item(int(OVFrequency::Daily))}, settings, QString())));
        const QString spool = QStringLiteral("/tmp/anacron-spool");
        QVERIFY(QDir(spool).removeRecursively() && QDir().mkpath(spool));
        QProcess anacron;
        anacron.start(QStringLiteral("anacron"),
                      QStringLiteral("-d -n -s -t %1 -S %2 orvane.daily").arg(path(OVFixedPaths::Anacrontab), spool).split(QLatin1Char(' ')));
        QVERIFY(anacron.waitForFinished(60000));
        QCOMPARE(anacron.exitCode(), 0);
        QVERIFY2(QFile::exists(path(OVFixedPaths::DailyLastBackup)), anacron.readAllStandardError().constData());
        QCOMPARE(readFile(OVFixedPaths::DailyLastBackup), QDate::currentDate().toString(QStringLiteral("MM/dd/yy")).toLatin1());
        QVERIFY(QFile::exists(spool + QStringLiteral("/orvane.daily")));
        QCOMPARE(readFile("/root/destination/file"), QByteArray("daily"));
    }

    void paneSavesAndSwitchesTheSchedule()
    {
        QDir(QStringLiteral("/root/destination")).removeRecursively();
        writeFile(QStringLiteral("/root/source/sub/a \"file\".txt"), "daily");
        QVERIFY(QDir().mkpath(QStringLiteral("/root/destination")) && QDir().mkpath(QStringLiteral("/root/manual")));
        OVOrvanePref pane(nullptr, {});
        pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
        // Set in the options and applied by their OK, as the user does.
        pane.showOptions(nullptr);
        OVOptionsSheet *ui = pane.optionsSheet();
        UI(ui, kcfg_DailyHour)->setCurrentIndex(3);
        UI(ui, kcfg_DailyMinute)->setCurrentIndex(UI(ui, kcfg_DailyMinute)->findText(QStringLiteral(":30 PM")));
        UI(ui, kcfg_WeeklyDay)->setCurrentIndex(6);
        UI(ui, kcfg_DayOfMonth)->setCurrentIndex(27);
        UI(ui, kcfg_SafetyNet)->setChecked(false);
        pane.backupItems()->setItems(
            {item(int(OVFrequency::Daily)), item(int(OVFrequency::Weekly)), item(int(OVFrequency::Monthly)), item(int(OVFrequency::Manual), "/root/manual")});
        pane.hideOptions(UI(ui, okButton));
        const Times times = OVScheduleTables::times(pane.settings());
        QCOMPARE(times.at[0].hour, 15);
        const QByteArray three =
            DebianCrontab + cronLine(OVFrequency::Daily, times) + cronLine(OVFrequency::Weekly, times) + cronLine(OVFrequency::Monthly, times);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(OVFixedPaths::Crontab), three, 5000);
        // The scripts are root's alone. (Run as cron runs them: test_journeys.)
        QVERIFY(OVSaveJob::finishAll(30000));
        QCOMPARE(ownerAndMode(OVFixedPaths::DailyScript), QStringLiteral("0:0 700"));
        // The backup button runs the manual items, and says it started.
        auto *backup = pane.findChild<QPushButton *>(QStringLiteral("backupButton"));
        pane.updateUI();
        QVERIFY(backup->isEnabled());
        backup->click();
        QTRY_VERIFY(pane.findChild<QMessageBox *>(QStringLiteral("manualBackupSheet")));
        QTRY_COMPARE_WITH_TIMEOUT(readFile("/root/manual/sub/a \"file\".txt"), QByteArray("daily"), 15000);
        QVERIFY(OVToolLauncher::instance()->waitForAll(30000));
        // Backups off: the button does nothing at all.
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        master->setCurrentIndex(1);
        pane.performBackup(&pane);
        QVERIFY(!OVToolLauncher::instance()->isBusy());
        master->setCurrentIndex(0);
        // Anacron takes the schedule over: cron loses the lines.
        pane.backupItems()->setItems({item(int(OVFrequency::Monthly))});
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}, {QStringLiteral("Locked"), false}}));
        pane.restoreSavedOptions();
        QVERIFY(pane.useAnacron());
        pane.saveChanges(nullptr, nullptr);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(OVFixedPaths::Crontab), DebianCrontab, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(OVFixedPaths::Anacrontab), DebianAnacrontab + anacronLine(OVFrequency::Monthly), 5000);
        QVERIFY(!QFile::exists(path(OVFixedPaths::DailyScript)));
        // Anacron gone: the next save goes back to cron and forgets anacron.
        QFile::remove(path(OVFixedPaths::Anacrontab));
        pane.saveChanges(nullptr, nullptr);
        QVERIFY(!pane.useAnacron());
        QVERIFY(!OVSettingsDomain::read()->value(QStringLiteral("UseAnacron")).toBool());
        QVERIFY(!UI(ui, kcfg_UseAnacron)->isChecked());
        QTRY_COMPARE_WITH_TIMEOUT(readFile(OVFixedPaths::Crontab),
                                  DebianCrontab + cronLine(OVFrequency::Monthly, OVScheduleTables::times(pane.settings())),
                                  5000);
        // Backups off: the lines go, then the scripts; again and again.
        for (int round = 0; round < 2; ++round) {
            QVERIFY(QFile::exists(path(OVFixedPaths::MonthlyScript)));
            master->setCurrentIndex(1);
            pane.masterToggle(master);
            QVERIFY(OVSaveJob::finishAll(10000));
            QCOMPARE(readFile(OVFixedPaths::Crontab), DebianCrontab);
            QVERIFY(!QFile::exists(path(OVFixedPaths::MonthlyScript)));
            master->setCurrentIndex(0);
            pane.saveChanges(nullptr, nullptr);
            QVERIFY(OVSaveJob::finishAll(10000));
        }
        master->setCurrentIndex(1);
        pane.masterToggle(master);
        // Off, a save installs no schedule; locked, neither does it, nor does the switch remove anything.
        pane.saveChanges(nullptr, nullptr);
        master->setCurrentIndex(0);
        pane.removePrivilege();
        pane.saveChanges(nullptr, nullptr);
        QVERIFY(OVSaveJob::finishAll(10000));
        QCOMPARE(readFile(OVFixedPaths::Crontab), DebianCrontab);
        writeFile(path(OVFixedPaths::MonthlyScript), "#!/usr/bin/ruby\n");
        master->setCurrentIndex(1);
        pane.masterToggle(master);
        QVERIFY(OVSaveJob::finishAll(10000));
        QVERIFY(QFile::exists(path(OVFixedPaths::MonthlyScript)));
    }

    // Each tool's result and refusal come back in launch order, also of a tool that cannot start; waitForAll waits for all.
    void launcherReportsEachToolInOrder()
    {
        OVToolLauncher *launcher = OVToolLauncher::instance();
        QSignalSpy finished(launcher, &OVToolLauncher::toolFinished);
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool, QByteArrayLiteral("not a property list"));
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool, QByteArrayLiteral("bplist00 items"));
        OVToolLauncher::launch(OVFixedPaths::InstallScriptsTool, OVToolLauncher::parts({{"daily", "#!/bin/sh\nid\n"}}));
        OVToolLauncher::launch("no_such_tool");
        QVERIFY(launcher->isBusy());
        QVERIFY(launcher->waitForAll(30000));
        QVERIFY(!launcher->isBusy());
        QCOMPARE(finished.count(), 4);
        const std::tuple<const char *, bool, const char *> expected[] = {
            {"archive_table", false, "archive_table: refused: the item list is not a property list"},
            {"archive_table", true, ""},
            {"install_scripts", false, "not Orvane's backup script"},
            {"no_such_tool", false, "no_such_tool: cannot be started"}};
        for (int i = 0; i < 4; ++i) {
            const auto &[tool, ok, message] = expected[i];
            QCOMPARE(finished.at(i).at(0).toString(), QLatin1String(tool));
            QCOMPARE(finished.at(i).at(1).toBool(), ok);
            QVERIFY2(finished.at(i).at(2).toString().contains(QLatin1String(message)), qPrintable(finished.at(i).at(2).toString()));
        }
        QCOMPARE(finished.at(0).at(2).toString(), QLatin1String(std::get<2>(expected[0])));
        QCOMPARE(readFile(OVFixedPaths::ItemsArchive), QByteArray("bplist00 items"));
    }
};

QTEST_MAIN(TestSchedule)
#include "test_schedule.moc"
