// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Orvane's lines in /etc/crontab and /etc/anacrontab: the edits, the tables
// the real helper installs, anacron's own check and a real anacron run, and
// the pane's save and master switch. Runs as root in the sandbox with polkitd.
#include "OVBackupItemModel.h"
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVScheduleTables.h"
#include "OVScriptBuilder.h"
#include "OVSettingsDomain.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"
#include "ovsheetchild.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

using namespace OVScheduleTables;

namespace
{
const QByteArray DebianCrontab =
    "# /etc/crontab: system-wide crontab\n"
    "# Unlike any other crontab you don't have to run the `crontab'\n"
    "SHELL=/bin/sh\n"
    "PATH=/usr/local/sbin:/usr/local/bin:/sbin:/bin:/usr/sbin:/usr/bin\n"
    "\n"
    "# Example of job definition:\n"
    "17 *\t* * *\troot\tcd / && run-parts --report /etc/cron.hourly\n"
    "25 6\t* * *\troot\ttest -x /usr/sbin/anacron || { cd / && run-parts --report /etc/cron.daily; }\n"
    "47 6\t* * 7\troot\ttest -x /usr/sbin/anacron || { cd / && run-parts --report /etc/cron.weekly; }\n"
    "52 6\t1 * *\troot\ttest -x /usr/sbin/anacron || { cd / && run-parts --report /etc/cron.monthly; }\n"
    "#\n";
const QByteArray DebianAnacrontab =
    "# /etc/anacrontab: configuration file for anacron\n"
    "SHELL=/bin/sh\n"
    "HOME=/root\n"
    "LOGNAME=root\n"
    "1\t5\tcron.daily\trun-parts --report /etc/cron.daily\n"
    "7\t10\tcron.weekly\trun-parts --report /etc/cron.weekly\n"
    "@monthly\t15\tcron.monthly\trun-parts --report /etc/cron.monthly\n";

QString path(const char *fixed)
{
    return QString::fromUtf8(fixed);
}

QByteArray read(const char *file)
{
    QFile in(path(file));
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
}

void write(const QString &file, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(file).absolutePath());
    QFile::remove(file);
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(contents);
}

// Hands what the edits made to install_crontab, as the pane does, and
// waits for its answer (root needs no unlock).
bool installed()
{
    QSignalSpy finished(OVToolLauncher::instance(), &OVToolLauncher::toolFinished);
    installCrontab();
    if (!OVToolLauncher::instance()->waitForAll(30000) || finished.size() != 1) {
        return false;
    }
    if (!finished.first().at(1).toBool()) {
        qWarning() << finished.first();
    }
    return finished.first().at(1).toBool();
}

OVBackupItem item(int frequency)
{
    OVBackupItem result;
    result.setFrequencyColumn(frequency);
    result.setCheckColumn(true);
    result.setSourcePath(QStringLiteral("/root/source"));
    result.setDestPath(QStringLiteral("/root/destination"));
    return result;
}
}

class TestSchedule : public QObject
{
    Q_OBJECT

    Times m_times;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        m_times.dailyMinute = 30;
        m_times.dailyHour = 15;
        m_times.weeklyMinute = 5;
        m_times.weeklyHour = 0;
        m_times.weeklyDay = 6;
        m_times.monthlyMinute = 45;
        m_times.monthlyHour = 11;
        m_times.dayOfMonth = 28;
    }

    void init()
    {
        write(path(OVFixedPaths::Crontab), DebianCrontab);
        write(path(OVFixedPaths::Anacrontab), DebianAnacrontab);
        QFile::remove(path(OVFixedPaths::SavedCrontab));
        OVSettingsDomain::remove();
    }

    void helperInstallsTheEditedTablesByteForByte()
    {
        buildCrontab(m_times, {true, true, true});
        QVERIFY(buildAnacrontab({false, false, true}));
        QVERIFY(installed());
        QCOMPARE(read(OVFixedPaths::Crontab),
                 DebianCrontab + cronLine(OVFrequency::Daily, m_times) + cronLine(OVFrequency::Weekly, m_times) + cronLine(OVFrequency::Monthly, m_times));
        QCOMPARE(read(OVFixedPaths::SavedCrontab), DebianCrontab);
        QCOMPARE(read(OVFixedPaths::Anacrontab), DebianAnacrontab + anacronLine(OVFrequency::Monthly));

        // cron's own lines and order survive any number of edits.
        Times later = m_times;
        later.dailyHour = 4;
        buildCrontab(later, {true, false, true});
        QVERIFY(installed());
        QCOMPARE(read(OVFixedPaths::Crontab), DebianCrontab + cronLine(OVFrequency::Daily, later) + cronLine(OVFrequency::Monthly, later));
        restoreCrontab();
        QVERIFY(restoreAnacrontab());
        QVERIFY(installed());
        QCOMPARE(read(OVFixedPaths::Crontab), DebianCrontab);
        QCOMPARE(read(OVFixedPaths::Anacrontab), DebianAnacrontab);
    }

    void fallBacksAndMissingFiles()
    {
        // Without /etc/crontab the saved copy is the base.
        QFile::remove(path(OVFixedPaths::Crontab));
        write(path(OVFixedPaths::SavedCrontab), "SAVED=1\n");
        buildCrontab(m_times, {true, false, false});
        QVERIFY(installed());
        QCOMPARE(read(OVFixedPaths::Crontab), "SAVED=1\n" + cronLine(OVFrequency::Daily, m_times));

        // An unterminated last line is never joined by the line installed.
        write(path(OVFixedPaths::Crontab), "A=1");
        buildCrontab(m_times, {false, true, false});
        QVERIFY(installed());
        QCOMPARE(read(OVFixedPaths::Crontab), "A=1\n" + cronLine(OVFrequency::Weekly, m_times));

        // Neither readable: nothing is handed over, nothing changes.
        QFile::remove(path(OVFixedPaths::Crontab));
        QFile::remove(path(OVFixedPaths::SavedCrontab));
        buildCrontab(m_times, {true, true, true});
        installed();
        QVERIFY(!QFile::exists(path(OVFixedPaths::Crontab)));

        // No anacron: no anacron table is made.
        QFile::remove(path(OVFixedPaths::Anacrontab));
        QVERIFY(!buildAnacrontab({true, true, true}));
        QVERIFY(!restoreAnacrontab());
        installed();
        QVERIFY(!QFile::exists(path(OVFixedPaths::Anacrontab)));
    }

    void anacronAcceptsAndRunsTheTable()
    {
        QVERIFY(buildAnacrontab({true, true, true}));
        QVERIFY(installed());
        QProcess check;
        check.start(QStringLiteral("anacron"), {QStringLiteral("-T"), QStringLiteral("-t"), path(OVFixedPaths::Anacrontab)});
        QVERIFY(check.waitForFinished());
        QCOMPARE(check.exitCode(), 0);

        // A real daily script, installed by install_scripts, backs up one folder.
        const QString marker = path(OVFixedPaths::DailyFolder) + QStringLiteral("/.lastbackup");
        QFile::remove(marker);
        write(QStringLiteral("/root/source/file"), "daily");
        QDir().mkpath(QStringLiteral("/root/destination"));
        QSignalSpy finished(OVToolLauncher::instance(), &OVToolLauncher::toolFinished);
        const auto scripts = OVScriptBuilder::buildScheduledScripts(
            {item(int(OVFrequency::Daily))},
            [](OVFrequency) {
                return OVScriptBuilder::FrequencyOptions();
            },
            OVScriptBuilder::SharedOptions());
        OVToolLauncher::launch(OVFixedPaths::InstallScriptsTool, OVToolLauncher::parts(scripts));
        QVERIFY(OVToolLauncher::instance()->waitForAll(30000));
        QCOMPARE(finished.size(), 1);
        QVERIFY2(finished.first().at(1).toBool(), qPrintable(finished.first().at(2).toString()));

        const QString spool = QStringLiteral("/tmp/anacron-spool");
        QDir(spool).removeRecursively();
        QDir().mkpath(spool);
        QProcess anacron;
        anacron.start(QStringLiteral("anacron"),
                      {QStringLiteral("-d"),
                       QStringLiteral("-n"),
                       QStringLiteral("-s"),
                       QStringLiteral("-t"),
                       path(OVFixedPaths::Anacrontab),
                       QStringLiteral("-S"),
                       spool,
                       QStringLiteral("orvane.daily")});
        QVERIFY(anacron.waitForFinished(60000));
        QCOMPARE(anacron.exitCode(), 0);
        QFile markerFile(marker);
        QVERIFY2(markerFile.open(QIODevice::ReadOnly), anacron.readAllStandardError().constData());
        QCOMPARE(markerFile.readAll(), QDate::currentDate().toString(QStringLiteral("MM/dd/yy")).toLatin1());
        QVERIFY(QFile::exists(spool + QStringLiteral("/orvane.daily")));
        QCOMPARE(read("/root/destination/file"), QByteArray("daily"));
    }

    void paneSavesAndSwitchesTheSchedule()
    {
        OVOrvanePref pane(nullptr, {});
        pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
        OVOptionsSheet *ui = pane.optionsSheet();
        UI(ui, dailyHourPopUp)->setCurrentIndex(3);
        UI(ui, dailyMinutePopUp)->setCurrentIndex(UI(ui, dailyMinutePopUp)->findText(QStringLiteral(":30 PM")));
        UI(ui, weeklyDayPopUp)->setCurrentIndex(6);
        UI(ui, dayOfMonthPopUp)->setCurrentIndex(27);
        const Times times = pane.optionsSheet()->scheduleTimes();
        QCOMPARE(times.dailyHour, 15);
        QCOMPARE(times.dailyMinute, 30);
        QCOMPARE(times.weeklyDay, 6);
        QCOMPARE(times.dayOfMonth, 28);
        UI(ui, dailyMinutePopUp)->setCurrentIndex(UI(ui, dailyMinutePopUp)->findText(QStringLiteral(":30 AM")));
        QCOMPARE(pane.optionsSheet()->scheduleTimes().dailyHour, 3);
        UI(ui, dailyMinutePopUp)->setCurrentIndex(UI(ui, dailyMinutePopUp)->findText(QStringLiteral(":30 PM")));

        pane.backupItems()->setItems(
            {item(int(OVFrequency::Daily)), item(int(OVFrequency::Weekly)), item(int(OVFrequency::Monthly)), item(int(OVFrequency::Manual))});
        QVERIFY(pane.saveChanges(nullptr, &pane));
        const QByteArray three =
            DebianCrontab + cronLine(OVFrequency::Daily, times) + cronLine(OVFrequency::Weekly, times) + cronLine(OVFrequency::Monthly, times);
        QTRY_COMPARE_WITH_TIMEOUT(read(OVFixedPaths::Crontab), three, 5000);

        // Anacron takes the schedule over: cron loses the lines.
        pane.backupItems()->setItems({item(int(OVFrequency::Monthly))});
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}, {QStringLiteral("Locked"), false}}));
        pane.restoreSavedOptions();
        QVERIFY(pane.useAnacron());
        pane.saveChanges(nullptr, nullptr);
        QTRY_COMPARE_WITH_TIMEOUT(read(OVFixedPaths::Crontab), DebianCrontab, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(read(OVFixedPaths::Anacrontab), DebianAnacrontab + anacronLine(OVFrequency::Monthly), 5000);

        // Anacron gone: the next save goes back to cron and forgets anacron.
        QFile::remove(path(OVFixedPaths::Anacrontab));
        pane.saveChanges(nullptr, nullptr);
        QVERIFY(!pane.useAnacron());
        // (The restore above put the absent day of the month, the 1st, in the dialog.)
        QCOMPARE(pane.optionsSheet()->scheduleTimes().dayOfMonth, 1);
        QTRY_COMPARE_WITH_TIMEOUT(read(OVFixedPaths::Crontab), DebianCrontab + cronLine(OVFrequency::Monthly, pane.optionsSheet()->scheduleTimes()), 5000);

        // Backups off: the lines go.
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        master->setCurrentIndex(1);
        pane.masterToggle(master);
        QTRY_COMPARE_WITH_TIMEOUT(read(OVFixedPaths::Crontab), DebianCrontab, 5000);

        // Off, a save installs no schedule; locked, neither does it.
        pane.saveChanges(nullptr, nullptr);
        master->setCurrentIndex(0);
        pane.removePrivilege();
        pane.saveChanges(nullptr, nullptr);
        QTest::qWait(500);
        QCOMPARE(read(OVFixedPaths::Crontab), DebianCrontab);
    }
};

QTEST_MAIN(TestSchedule)
#include "test_schedule.moc"
