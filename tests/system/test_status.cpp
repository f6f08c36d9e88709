// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The status rows and the log sheet, in real windows under Xvfb inside the sandbox.
#include "OVLocalizedStrings.h"
#include "OVLogSheet.h"
#include "OVOrvanePref.h"
#include "OVSettingsDomain.h"
#include "OVStatusMonitor.h"
#include "ovtestfiles.h"
#include "ui_logsheet.h"
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QVBoxLayout>

class TestStatus : public QObject
{
    Q_OBJECT
    QWidget *m_window = nullptr;
    std::array<OVStatusMonitor::Row, 3> m_rows{};
    OVStatusMonitor *m_monitor = nullptr;
    QProcess m_ruby;

    // The row's image as one of the bundle's, or "none".
    QString imageOf(int row) const
    {
        const QImage shown = m_rows[row].image->pixmap(Qt::ReturnByValue).toImage();
        for (const char *name : {"complete", "caution"}) {
            const QImage image(QStringLiteral("/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/%1.tiff").arg(QLatin1String(name)));
            if (!shown.isNull() && shown.convertToFormat(image.format()) == image) {
                return QLatin1String(name);
            }
        }
        return shown.isNull() ? QStringLiteral("none") : QStringLiteral("another");
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        m_window = new QWidget;
        auto *layout = new QVBoxLayout(m_window);
        for (auto &row : m_rows) {
            row.button = new QPushButton(m_window);
            row.image = new QLabel(m_window);
            layout->addWidget(row.image);
            layout->addWidget(row.button);
        }
        // Unlocked. (Locked, no status button can be used: test_lock.)
        m_monitor = new OVStatusMonitor(
            m_rows,
            [] {
                return true;
            },
            m_window);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window));
    }

    void cleanupTestCase()
    {
        m_ruby.kill();
        m_ruby.waitForFinished();
        delete m_window;
    }

    void init()
    {
        for (const auto &files : OVFixedPaths::Scheduled) {
            QDir().mkpath(path(files.folder));
            for (const char *file : {files.runFlag, files.errors, files.log, files.lastBackup, files.lastRun}) {
                QFile::remove(path(file));
            }
        }
    }

    void rowsShowNoneCompleteCautionAndWorking()
    {
        m_monitor->updateLogButtons();
        for (int row = 0; row < 3; ++row) {
            QCOMPARE(m_rows[row].button->text(), OVLocalized("None"));
            QVERIFY(!m_rows[row].button->isEnabled() && m_rows[row].button->toolTip().isEmpty());
            QCOMPARE(imageOf(row), QStringLiteral("none"));
        }
        writeFile(path(OVFixedPaths::DailyLastBackup), "12/31/05\n");
        writeFile(path(OVFixedPaths::WeeklyLastBackup), "07/04/06");
        writeFile(path(OVFixedPaths::WeeklyErrors), "rsync: failed\n");
        writeFile(path(OVFixedPaths::MonthlyLastBackup), "not a date");
        m_monitor->updateLogButtons();
        const QString shown = QLocale::system().toString(QDate(2005, 12, 31), QLocale::ShortFormat);
        QCOMPARE(m_rows[0].button->text(), shown);
        QVERIFY(m_rows[0].button->isEnabled());
        QCOMPARE(m_rows[0].button->toolTip(), OVLocalized("ViewLog"));
        QCOMPARE(imageOf(0), QStringLiteral("complete"));
        QCOMPARE(imageOf(1), QStringLiteral("caution"));
        // Not a date: "None", but the result and the button still show.
        QCOMPARE(m_rows[2].button->text(), OVLocalized("None"));
        QVERIFY(m_rows[2].button->isEnabled());
        QCOMPARE(imageOf(2), QStringLiteral("complete"));
        // A manual run refreshed the daily marker: the daily row shows the last scheduled run recorded beside it, or none.
        writeFile(path(OVFixedPaths::DailyLastBackup), "01/05/07\n");
        writeFile(path(OVFixedPaths::DailyLastRun), "manual 01/05/07 complete\n");
        m_monitor->updateLogButtons();
        QCOMPARE(m_rows[0].button->text(), OVLocalized("None"));
        QCOMPARE(imageOf(0), QStringLiteral("none"));
        writeFile(path(OVFixedPaths::DailyLastRun), "scheduled 12/31/05 caution\nmanual 01/05/07 complete\n");
        m_monitor->updateLogButtons();
        QCOMPARE(m_rows[0].button->text(), shown);
        QCOMPARE(imageOf(0), QStringLiteral("caution"));
        // A flag is stale unless its PID is a live backup script: ignored and removed, also where it can't be (mounted over).
        const QString weekly = path(OVFixedPaths::WeeklyRunFlag);
        const QDateTime old = QDateTime::currentDateTime().addSecs(-60);
        writeFile(weekly, "999999\n", old);
        m_monitor->updateLogButtons();
        QVERIFY(!QFile::exists(weekly) && !m_monitor->isRunning(OVFrequency::Weekly));
        QCOMPARE(m_rows[1].button->text(), QLocale::system().toString(QDate(2006, 7, 4), QLocale::ShortFormat));
        writeFile(weekly, "", old);
        writeFile(QStringLiteral("/tmp/dead-flag"), "999999\n", old);
        QCOMPARE(QProcess::execute(QStringLiteral("mount"), {QStringLiteral("--bind"), QStringLiteral("/tmp/dead-flag"), weekly}), 0);
        QVERIFY(!m_monitor->isBackupRunning() && QFile::exists(weekly));
        QCOMPARE(QProcess::execute(QStringLiteral("umount"), {weekly}), 0);
        // A scheduled script run by its path, as cron runs it: working while it lives. Another ruby program is no backup.
        const QString script = QStringLiteral("/tmp/ov-scheduled/orvane_daily.rb");
        writeFile(script, "#!/usr/bin/ruby --disable-gems\nsleep 60\n");
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_ruby.start(script, QStringList());
        QVERIFY(m_ruby.waitForStarted());
        QProcess other;
        other.start(QStringLiteral("ruby"), {QStringLiteral("-e"), QStringLiteral("sleep 60")});
        QVERIFY(other.waitForStarted());
        writeFile(path(OVFixedPaths::DailyRunFlag), QByteArray::number(m_ruby.processId()) + '\n');
        writeFile(path(OVFixedPaths::MonthlyRunFlag), QByteArray::number(other.processId()) + '\n', old);
        QTest::qWait(300); // the interpreter has read its command line
        m_monitor->updateLogButtons();
        QVERIFY(m_monitor->isRunning(OVFrequency::Daily) && !m_monitor->isRunning(OVFrequency::Monthly));
        QCOMPARE(m_rows[0].button->text(), OVLocalized("Working"));
        QVERIFY(!m_rows[0].button->isEnabled() && m_rows[0].button->toolTip().isEmpty());
        QCOMPARE(m_rows[1].button->text(), QLocale::system().toString(QDate(2006, 7, 4), QLocale::ShortFormat));
        for (QProcess *process : {&other, &m_ruby}) {
            process->kill();
            process->waitForFinished();
        }
        m_monitor->updateLogButtons();
        QVERIFY(!m_monitor->isRunning(OVFrequency::Daily));
    }

    // The pane's poll stops under the options (its rows as the user sees them: test_leave_module); the log sheet's file.
    void panePollAndLogSheet()
    {
        OVSettingsDomain::remove();
        OVOrvanePref pane(nullptr, {});
        QVERIFY(pane.statusMonitor()->isTimerActive());
        pane.showOptions(nullptr);
        QVERIFY(!pane.statusMonitor()->isTimerActive());
        pane.hideOptions(nullptr);
        QVERIFY(pane.statusMonitor()->isTimerActive());
        pane.show();
        OVLogSheet *sheet = pane.logSheet();
        Ui::OVLogSheet *ui = sheet->ui();
        auto *weekly = pane.findChild<QPushButton *>(QStringLiteral("lastWeeklyBackup"));
        // No date, no log.
        QCOMPARE(weekly->text(), OVLocalized("None"));
        pane.viewLog(weekly);
        QVERIFY(!sheet->isVisible());
        writeFile(path(OVFixedPaths::WeeklyLog), "Backing up Fotos…\nDone.\n");
        writeFile(path(OVFixedPaths::DailyLog), "the daily log\n");
        weekly->setText(QStringLiteral("11/20/26"));
        sheet->setShowOnlyErrors(false);
        pane.viewLog(weekly);
        QVERIFY(sheet->isVisible());
        QCOMPARE(ui->showOnlyErrorsCheck->property("tag").toInt(), 1);
        QCOMPARE(ui->logTextView->toPlainText(), QStringLiteral("Backing up Fotos…\nDone.\n"));
        // Opened at its newest line.
        QCOMPARE(ui->logTextView->textCursor().position(), ui->logTextView->document()->characterCount() - 1);
        // Errors only, and no error file: the last run had no errors.
        ui->showOnlyErrorsCheck->click();
        QCOMPARE(ui->logTextView->toPlainText(), QString());
        writeFile(path(OVFixedPaths::WeeklyErrors), "rsync error: some files vanished\n");
        sheet->loadLog();
        QCOMPARE(ui->logTextView->toPlainText(), QStringLiteral("rsync error: some files vanished\n"));
        // A full log that cannot be read leaves the view as it was.
        QFile::remove(path(OVFixedPaths::WeeklyLog));
        ui->showOnlyErrorsCheck->click();
        QCOMPARE(ui->logTextView->toPlainText(), QStringLiteral("rsync error: some files vanished\n"));
        // ...but opening the sheet starts from an empty view.
        pane.viewLog(weekly);
        QCOMPARE(ui->logTextView->toPlainText(), QString());
        // Bytes that are not UTF-8 show nothing.
        writeFile(path(OVFixedPaths::WeeklyLog), QByteArray("caf\xe9\n"));
        sheet->loadLog();
        QCOMPARE(ui->logTextView->toPlainText(), QString());
        ui->showOnlyErrorsCheck->setChecked(true);
        ui->closeButton->click();
        QVERIFY(!sheet->isVisible());
        QVERIFY(OVSettingsDomain::read()->value(QStringLiteral("ShowOnlyErrors")).toBool());
        QVERIFY(OVOrvanePref(nullptr, {}).logSheet()->showOnlyErrors());
    }
};

QTEST_MAIN(TestStatus)
#include "test_status.moc"
