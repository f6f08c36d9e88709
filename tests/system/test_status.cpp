// The status rows and the log sheet, in real windows under Xvfb inside the
// sandbox; screenshots of the rows go to the folder in OV_SCREENSHOTS.
#include "OVLocalizedStrings.h"
#include "OVLogSheet.h"
#include "OVOrvanePref.h"
#include "OVSettingsDomain.h"
#include "OVStatusMonitor.h"
#include "ovfixedpaths.h"
#include "ui_logsheet.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QVBoxLayout>

class TestStatus : public QObject
{
    Q_OBJECT

    QWidget *m_window = nullptr;
    std::array<OVStatusMonitor::Row, 3> m_rows{};
    bool m_authorized = false;
    OVStatusMonitor *m_monitor = nullptr;
    QProcess m_ruby;

    static QString path(const char *fixed)
    {
        return QString::fromUtf8(fixed);
    }

    static void write(const QString &file, const QByteArray &contents)
    {
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile out(file);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(contents);
    }

    static QString marker(const char *folder)
    {
        return path(folder) + QStringLiteral("/.lastbackup");
    }

    void screenshot(QWidget *widget, const QString &name)
    {
        const QString folder = qEnvironmentVariable("OV_SCREENSHOTS");
        if (folder.isEmpty()) {
            return;
        }
        QDir().mkpath(folder);
        QTest::qWait(200);
        QVERIFY(widget->screen()->grabWindow(widget->winId()).save(folder + QLatin1Char('/') + name));
    }

    static void removeStatusFiles()
    {
        for (const char *file : {OVFixedPaths::DailyRunFlag, OVFixedPaths::WeeklyRunFlag, OVFixedPaths::MonthlyRunFlag, OVFixedPaths::DailyErrors,
                                 OVFixedPaths::WeeklyErrors, OVFixedPaths::MonthlyErrors, OVFixedPaths::DailyLog, OVFixedPaths::WeeklyLog,
                                 OVFixedPaths::MonthlyLog}) {
            QFile::remove(path(file));
        }
        for (const char *folder : {OVFixedPaths::DailyFolder, OVFixedPaths::WeeklyFolder, OVFixedPaths::MonthlyFolder}) {
            QFile::remove(marker(folder));
        }
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
        m_monitor = new OVStatusMonitor(m_rows, [this] { return m_authorized; }, m_window);
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
        removeStatusFiles();
        QDir().mkpath(path(OVFixedPaths::DailyFolder));
        QDir().mkpath(path(OVFixedPaths::WeeklyFolder));
        QDir().mkpath(path(OVFixedPaths::MonthlyFolder));
        m_authorized = false;
    }

    void markerDates()
    {
        QCOMPARE(OVStatusMonitor::parseMarker("07/04/06"), QDate(2006, 7, 4));
        QCOMPARE(OVStatusMonitor::parseMarker("  12/31/05\n\n"), QDate(2005, 12, 31));
        QCOMPARE(OVStatusMonitor::parseMarker("1/2/99"), QDate(1999, 1, 2));
        QCOMPARE(OVStatusMonitor::parseMarker("01/02/68"), QDate(2068, 1, 2));
        for (const char *bad : {"", "yesterday", "13/01/05", "02/30/05", "12/31/2005", "12-31-05", "12/31/05/1", "1a/01/05", "+1/01/05"}) {
            QVERIFY2(!OVStatusMonitor::parseMarker(bad), bad);
        }
        QCOMPARE(OVStatusMonitor::displayDate("12/31/05"), QLocale::system().toString(QDate(2005, 12, 31), QLocale::ShortFormat));
    }

    void rowsShowNoneCompleteCautionAndWorking()
    {
        m_authorized = true;
        m_monitor->updateLogButtons();
        for (const auto &row : m_rows) {
            QCOMPARE(row.button->text(), OVLocalized("None"));
            QVERIFY(!row.button->isEnabled());
            QVERIFY(row.button->toolTip().isEmpty());
            QVERIFY(row.image->pixmap(Qt::ReturnByValue).isNull());
        }

        write(marker(OVFixedPaths::DailyFolder), "12/31/05\n");
        write(marker(OVFixedPaths::WeeklyFolder), "07/04/06");
        write(path(OVFixedPaths::WeeklyErrors), "rsync: failed\n");
        write(marker(OVFixedPaths::MonthlyFolder), "not a date");
        m_monitor->updateLogButtons();
        const QString shown = QLocale::system().toString(QDate(2005, 12, 31), QLocale::ShortFormat);
        QCOMPARE(m_rows[0].button->text(), shown);
        QVERIFY(m_rows[0].button->isEnabled());
        QCOMPARE(m_rows[0].button->toolTip(), OVLocalized("ViewLog"));
        const QImage complete(QStringLiteral("/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/complete.tiff"));
        const QImage caution(QStringLiteral("/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/caution.tiff"));
        QCOMPARE(m_rows[0].image->pixmap(Qt::ReturnByValue).toImage().convertToFormat(complete.format()), complete);
        QCOMPARE(m_rows[1].image->pixmap(Qt::ReturnByValue).toImage().convertToFormat(caution.format()), caution);
        // Not a date: "None", but the result and the button still show.
        QCOMPARE(m_rows[2].button->text(), OVLocalized("None"));
        QVERIFY(m_rows[2].button->isEnabled());
        QCOMPARE(m_rows[2].image->pixmap(Qt::ReturnByValue).toImage().convertToFormat(complete.format()), complete);
        screenshot(m_window, QStringLiteral("status-complete-caution.png"));

        // A flag with no root ruby process is stale: removed, the last result shows.
        write(path(OVFixedPaths::WeeklyRunFlag), "");
        m_monitor->updateLogButtons();
        QVERIFY(!QFile::exists(path(OVFixedPaths::WeeklyRunFlag)));
        QVERIFY(!m_monitor->isRunning(OVFrequency::Weekly));

        // While a root process runs ruby, the flags are trusted.
        m_ruby.start(QStringLiteral("ruby"), {QStringLiteral("-e"), QStringLiteral("sleep 60")});
        QVERIFY(m_ruby.waitForStarted());
        write(path(OVFixedPaths::DailyRunFlag), "");
        m_monitor->updateLogButtons();
        QVERIFY(m_monitor->isRunning(OVFrequency::Daily));
        QCOMPARE(m_rows[0].button->text(), OVLocalized("Working"));
        QVERIFY(!m_rows[0].button->isEnabled());
        QVERIFY(m_rows[0].button->toolTip().isEmpty());
        QCOMPARE(m_rows[1].button->text(), QLocale::system().toString(QDate(2006, 7, 4), QLocale::ShortFormat));
        screenshot(m_window, QStringLiteral("status-working.png"));
        m_ruby.kill();
        m_ruby.waitForFinished();

        // Locked: no status button can be used, none has a tool tip.
        m_authorized = false;
        m_monitor->updateLogButtons();
        for (const auto &row : m_rows) {
            QVERIFY(!row.button->isEnabled());
            QVERIFY(row.button->toolTip().isEmpty());
        }
    }

    void paneShowsItsStatusRows()
    {
        write(marker(OVFixedPaths::DailyFolder), "12/31/05\n");
        write(marker(OVFixedPaths::MonthlyFolder), "11/20/26\n");
        write(path(OVFixedPaths::MonthlyErrors), "disk full\n");
        OVOrvanePref pane(nullptr, {});
        pane.resize(640, 480);
        pane.show();
        QVERIFY(QTest::qWaitForWindowExposed(&pane));
        QCOMPARE(pane.findChild<QPushButton *>(QStringLiteral("lastDailyBackup"))->text(),
                 QLocale::system().toString(QDate(2005, 12, 31), QLocale::ShortFormat));
        QCOMPARE(pane.findChild<QPushButton *>(QStringLiteral("lastWeeklyBackup"))->text(), OVLocalized("None"));
        screenshot(&pane, QStringLiteral("pane-status.png"));
        // The poll goes on every five seconds and stops while the options are open.
        QVERIFY(pane.statusMonitor()->isTimerActive());
        pane.showOptions(nullptr);
        QVERIFY(!pane.statusMonitor()->isTimerActive());
        pane.hideOptions(nullptr);
        QVERIFY(pane.statusMonitor()->isTimerActive());
    }

    void logSheetChoosesItsFile()
    {
        OVSettingsDomain::remove();
        OVOrvanePref pane(nullptr, {});
        pane.show();
        OVLogSheet *sheet = pane.logSheet();
        Ui::OVLogSheet *ui = sheet->ui();
        auto *weekly = pane.findChild<QPushButton *>(QStringLiteral("lastWeeklyBackup"));

        // No date, no log.
        QCOMPARE(weekly->text(), OVLocalized("None"));
        pane.viewLog(weekly);
        QVERIFY(!sheet->isVisible());

        write(path(OVFixedPaths::WeeklyLog), "Backing up Fotos…\nDone.\n");
        write(path(OVFixedPaths::DailyLog), "the daily log\n");
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
        write(path(OVFixedPaths::WeeklyErrors), "rsync error: some files vanished\n");
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
        write(path(OVFixedPaths::WeeklyLog), QByteArray("caf\xe9\n"));
        sheet->loadLog();
        QCOMPARE(ui->logTextView->toPlainText(), QString());

        // Closing stores the filter with the other settings.
        ui->showOnlyErrorsCheck->setChecked(true);
        ui->closeButton->click();
        QVERIFY(!sheet->isVisible());
        QVERIFY(OVSettingsDomain::read()->value(QStringLiteral("ShowOnlyErrors")).toBool());
        OVOrvanePref again(nullptr, {});
        QVERIFY(again.logSheet()->showOnlyErrors());
    }
};

QTEST_MAIN(TestStatus)
#include "test_status.moc"
