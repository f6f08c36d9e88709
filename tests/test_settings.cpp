// The settings domain, the options dialog and the Safety Net folder, run in
// the sandbox with the installed bundle.
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSafetyNet.h"
#include "OVSettingsDomain.h"
#include "OVSettingsKeys.h"
#include "ovconfig.h"
#include "ui_optionssheet.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QTest>

class TestSettings : public QObject
{
    Q_OBJECT

    QList<QUrl> m_opened;

    static QByteArray readDomainFile()
    {
        QFile file(OVSettingsDomain::path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static QList<QComboBox *> popUps(Ui::OVOptionsSheet *ui)
    {
        return ui->optionsTabView->findChildren<QComboBox *>();
    }

public Q_SLOTS:
    void openUrl(const QUrl &url)
    {
        m_opened.append(url);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "openUrl");
        QDir().mkpath(QDir::homePath() + QStringLiteral("/Library/Sounds"));
    }

    void init()
    {
        OVSettingsDomain::remove();
        QDir(QDir::homePath() + QStringLiteral("/Documents")).removeRecursively();
        QDir().mkpath(QDir::homePath() + QStringLiteral("/Documents"));
    }

    void everySettingSurvivesSaveAndRestart()
    {
        QVariantMap expected;
        {
            OVOrvanePref pane(nullptr, {});
            Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
            pane.showOptions(nullptr);
            // Turn every box over and move every pop-up off its design.
            for (QCheckBox *check : ui->optionsTabView->findChildren<QCheckBox *>()) {
                check->setChecked(!check->isChecked());
            }
            for (QComboBox *popUp : popUps(ui)) {
                popUp->setCurrentIndex(popUp->count() - 1);
            }
            ui->maxArchivesStepper->setValue(7);
            ui->timeValueField->setValue(45);
            ui->serverAddressField->setText(QStringLiteral("smb://nas.local"));
            ui->userNameField->setText(QStringLiteral("ann \"quoted\""));
            ui->volumeField->setText(QStringLiteral("Backups ✓"));
            expected = pane.optionsSheet()->values();
            QCOMPARE(expected.value(QStringLiteral("MaxArchives")).toInt(), 7);
            pane.hideOptions(ui->okButton);
            QVERIFY(!pane.optionsSheet()->isVisible());
        }

        const auto stored = OVSettingsDomain::read();
        QVERIFY(stored);
        QStringList keys;
        for (const char *name : OVSettingsKeys::All) {
            keys.append(QString::fromLatin1(name));
        }
        keys.sort();
        QCOMPARE(stored->keys(), keys);
        QCOMPARE(stored->value(QStringLiteral("SafetyNetFolder")).toString(), OVSafetyNet::defaultFolder());
        QCOMPARE(stored->value(QStringLiteral("Locked")).userType(), int(QMetaType::Bool));
        QCOMPARE(stored->value(QStringLiteral("MaxArchives")).userType(), int(QMetaType::LongLong));

        OVOrvanePref restarted(nullptr, {});
        const QVariantMap restored = restarted.optionsSheet()->values();
        for (auto it = expected.constBegin(); it != expected.constEnd(); ++it) {
            QVERIFY2(restored.value(it.key()) == it.value(), qPrintable(it.key()));
        }
        QCOMPARE(restarted.optionsSheet()->ui()->maxArchivesStepper->value(), 7);
    }

    void absentKeysAndNoDomain()
    {
        QString designedHour;
        {
            OVOrvanePref pane(nullptr, {});
            Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
            designedHour = ui->dailyHourPopUp->currentText();
            QCOMPARE(ui->soundPopUp->currentText(), QStringLiteral("Magic Bell"));
            QVERIFY(ui->useSafetyNetCheck->isChecked() && ui->displayAlertCheck->isChecked() && ui->playSoundCheck->isChecked());
        }
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("WaitUntilAway"), true}}));
        OVOrvanePref pane(nullptr, {});
        Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
        QVERIFY(ui->waitUntilAwayCheck->isChecked());
        QVERIFY(ui->useSafetyNetCheck->isChecked() && ui->displayAlertCheck->isChecked() && ui->playSoundCheck->isChecked());
        QVERIFY(!ui->autoConnectCheck->isChecked() && !ui->dailyMirrorFoldersCheck->isChecked());
        QCOMPARE(ui->maxArchivesField->value(), 3);
        QCOMPARE(ui->maxArchivesStepper->value(), 3);
        QCOMPARE(ui->timeValueField->value(), 2);
        QCOMPARE(ui->timeUnitPopUp->currentIndex(), 1);
        QCOMPARE(ui->weeklyDayPopUp->currentIndex(), 0);
        QCOMPARE(ui->dailyHourPopUp->currentText(), designedHour);
        QCOMPARE(ui->soundPopUp->currentText(), QStringLiteral("Magic Bell"));
        QCOMPARE(pane.safetyNet()->safetyNetFolder(), OVSafetyNet::defaultFolder());
        QVERIFY(ui->versionField->text().endsWith(QStringLiteral(OV_VERSION)));
    }

    void storedValuesOfWrongTypeOrRange()
    {
        QVERIFY(OVSettingsDomain::replace({
            {QStringLiteral("DailyHour"), 12},
            {QStringLiteral("WeeklyHour"), 11},
            {QStringLiteral("MonthlyHour"), -3},
            {QStringLiteral("DailyMinute"), QStringLiteral("not a number")},
            {QStringLiteral("ArchiveItems"), 99},
            {QStringLiteral("TimeUnit"), 2.7},
            {QStringLiteral("MaxArchives"), 100000},
            {QStringLiteral("TimeValue"), -5},
            {QStringLiteral("SafetyNet"), QStringLiteral("false")},
            {QStringLiteral("DisplayAlert"), 0},
            {QStringLiteral("Sound"), QStringLiteral("No Such Sound")},
            {QStringLiteral("SafetyNetFolder"), 42},
            {QStringLiteral("RemoteUserName"), true},
            {QStringLiteral("Master"), QStringLiteral("x")},
        }));
        OVOrvanePref pane(nullptr, {});
        Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
        QCOMPARE(ui->weeklyHourPopUp->currentIndex(), 11);
        QVERIFY(ui->dailyHourPopUp->currentIndex() >= 0 && ui->monthlyHourPopUp->currentIndex() >= 0);
        QVERIFY(ui->dailyMinutePopUp->currentIndex() >= 0 && ui->archivePopUp->currentIndex() >= 0);
        QCOMPARE(ui->maxArchivesField->value(), ui->maxArchivesField->maximum());
        QCOMPARE(ui->timeValueField->value(), ui->timeValueField->minimum());
        QVERIFY(!ui->useSafetyNetCheck->isChecked());
        QVERIFY(!ui->displayAlertCheck->isChecked());
        QCOMPARE(ui->soundPopUp->currentText(), QStringLiteral("Magic Bell"));
        QCOMPARE(pane.safetyNet()->safetyNetFolder(), QStringLiteral("42"));
        QVERIFY(pane.saveChanges(nullptr, nullptr));
        QVERIFY(OVSettingsDomain::read());
    }

    void cancelThrowsEditsAway()
    {
        OVOrvanePref pane(nullptr, {});
        Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
        pane.showOptions(nullptr);
        ui->maxArchivesField->setValue(9);
        pane.hideOptions(ui->okButton);
        const QByteArray stored = readDomainFile();
        QVERIFY(!stored.isEmpty());

        pane.showOptions(nullptr);
        ui->maxArchivesField->setValue(20);
        ui->waitUntilAwayCheck->setChecked(true);
        ui->serverAddressField->setText(QStringLiteral("afp://elsewhere"));
        pane.hideOptions(ui->cancelButton);
        QCOMPARE(readDomainFile(), stored);
        QCOMPARE(ui->maxArchivesField->value(), 9);
        QVERIFY(!ui->waitUntilAwayCheck->isChecked());
        QVERIFY(ui->serverAddressField->text().isEmpty());

        // Escape counts as Cancel.
        pane.showOptions(nullptr);
        ui->maxArchivesField->setValue(30);
        QTest::keyClick(pane.optionsSheet(), Qt::Key_Escape);
        QVERIFY(!pane.optionsSheet()->isVisible());
        QCOMPARE(ui->maxArchivesField->value(), 9);
    }

    void enableRules()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *sheet = pane.optionsSheet();
        Ui::OVOptionsSheet *ui = sheet->ui();

        ui->displayAlertCheck->setChecked(true);
        ui->autoDismissCheck->setChecked(true);
        sheet->updatePrefsUI();
        QVERIFY(ui->autoDismissCheck->isEnabled() && ui->timeValueField->isEnabled() && ui->timeValueStepper->isEnabled() && ui->timeUnitPopUp->isEnabled());
        // A click on a governing box applies the rules by itself.
        ui->displayAlertCheck->click();
        QVERIFY(!ui->autoDismissCheck->isEnabled());
        QVERIFY(!ui->timeValueField->isEnabled() && !ui->timeValueStepper->isEnabled() && !ui->timeUnitPopUp->isEnabled());
        ui->displayAlertCheck->click();
        ui->autoDismissCheck->click();
        QVERIFY(ui->autoDismissCheck->isEnabled() && !ui->timeUnitPopUp->isEnabled());

        ui->playSoundCheck->setChecked(true);
        ui->playSoundCheck->click();
        QVERIFY(!ui->soundPopUp->isEnabled());

        ui->autoConnectCheck->setChecked(false);
        ui->autoConnectCheck->click();
        QVERIFY(ui->serverAddressField->isEnabled() && ui->userNameField->isEnabled() && ui->volumeField->isEnabled());
        ui->autoConnectCheck->click();
        QVERIFY(!ui->serverAddressField->isEnabled() && !ui->volumeField->isEnabled());

        // The open button wants the folder on disk as well as the Safety Net on.
        ui->useSafetyNetCheck->setChecked(true);
        sheet->updatePrefsUI();
        QVERIFY(QFileInfo(OVSafetyNet::defaultFolder()).isDir());
        QVERIFY(ui->openArchiveFolderButton->isEnabled() && ui->archivePopUp->isEnabled() && ui->maxArchivesStepper->isEnabled());
        QVERIFY(QDir(OVSafetyNet::defaultFolder()).removeRecursively());
        sheet->updatePrefsUI();
        QVERIFY(!ui->openArchiveFolderButton->isEnabled() && ui->chooseArchiveFolderButton->isEnabled());
        pane.createSafetyNetFolder(nullptr);
        ui->useSafetyNetCheck->click();
        QVERIFY(!ui->openArchiveFolderButton->isEnabled() && !ui->chooseArchiveFolderButton->isEnabled() && !ui->archivePopUp->isEnabled());
        QVERIFY(!ui->maxArchivesField->isEnabled());
    }

    void sheetHeightFollowsTheTab()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *sheet = pane.optionsSheet();
        Ui::OVOptionsSheet *ui = sheet->ui();
        for (QWidget *box : {ui->generalContentBox, ui->safetyNetContentBox, ui->autoConnectContentBox, ui->schedulesContentBox, ui->notificationContentBox, ui->aboutContentBox}) {
            box->setFixedHeight(200);
        }
        pane.showOptions(nullptr);
        sheet->move(100, 150);
        QCOMPARE(sheet->height(), 270);
        const int top = sheet->geometry().top();
        const int heights[] = {270, 341, 341, 360, 508, 340, 270};
        const int order[] = {0, 1, 2, 3, 4, 5, 0};
        for (int i = 0; i < 7; ++i) {
            ui->optionsTabView->setCurrentIndex(order[i]);
            QCOMPARE(sheet->height(), heights[i]);
            QCOMPARE(sheet->geometry().top(), top);
            QVERIFY(ui->generalContentBox->isVisibleTo(ui->generalTab));
        }
        QCOMPARE(sheet->currentIdentifier(), QStringLiteral("1"));
        pane.hideOptions(ui->cancelButton);
    }

    void schedulePopUpsCarryCronNumbers()
    {
        OVOrvanePref pane(nullptr, {});
        Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
        QCOMPARE(ui->dailyHourPopUp->count(), 12);
        for (int i = 0; i < 12; ++i) {
            QCOMPARE(ui->dailyHourPopUp->itemData(i).toInt(), i);
        }
        QCOMPARE(ui->dailyHourPopUp->itemText(0), QStringLiteral("12"));
        for (QComboBox *minutes : {ui->dailyMinutePopUp, ui->weeklyMinutePopUp, ui->monthlyMinutePopUp}) {
            for (int i = 0; i < minutes->count(); ++i) {
                const QString last = minutes->itemText(i).split(QLatin1Char(' ')).last();
                QVERIFY(last == QLatin1String("AM") || last == QLatin1String("PM"));
                QCOMPARE(minutes->itemData(i).toInt(), (i % 12) * 5);
            }
        }
        QCOMPARE(ui->weeklyDayPopUp->itemData(0).toInt(), 0);
        QCOMPARE(ui->weeklyDayPopUp->itemText(0), QStringLiteral("Sunday"));
        QCOMPARE(ui->dayOfMonthPopUp->count(), 31);
        QCOMPARE(ui->dayOfMonthPopUp->itemData(30).toInt(), 31);
    }

    void anacronTakesTheTimes()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}}));
        QFile::remove(QStringLiteral("/etc/anacrontab"));
        OVOrvanePref pane(nullptr, {});
        Ui::OVOptionsSheet *ui = pane.optionsSheet()->ui();
        pane.showOptions(nullptr);
        QVERIFY(ui->dailyHourPopUp->isEnabled() && ui->dayOfMonthPopUp->isEnabled());
        QVERIFY(ui->anacronTextField->text().isEmpty());
        pane.hideOptions(ui->cancelButton);

        QFile table(QStringLiteral("/etc/anacrontab"));
        QVERIFY(table.open(QIODevice::WriteOnly));
        table.close();
        pane.showOptions(nullptr);
        for (QComboBox *popUp : {ui->dailyHourPopUp, ui->weeklyHourPopUp, ui->monthlyHourPopUp, ui->dailyMinutePopUp,
                                 ui->weeklyMinutePopUp, ui->monthlyMinutePopUp, ui->weeklyDayPopUp, ui->dayOfMonthPopUp}) {
            QVERIFY(!popUp->isEnabled());
        }
        QVERIFY(ui->archivePopUp->isEnabled());
        QVERIFY(!ui->anacronTextField->text().isEmpty());
        pane.hideOptions(ui->okButton);
        QVERIFY(OVSettingsDomain::read()->value(QStringLiteral("UseAnacron")).toBool());
        QFile::remove(QStringLiteral("/etc/anacrontab"));
    }

    void safetyNetFolder()
    {
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/Volumes/Backup")), QStringLiteral("/Volumes/Backup/Safety Net Archives"));
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/Volumes/Backup/Safety Net Archives")), QStringLiteral("/Volumes/Backup/Safety Net Archives"));
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/media/safety net archives")), QStringLiteral("/media/safety net archives/Safety Net Archives"));
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/")), QStringLiteral("/Safety Net Archives"));

        // Made at start-up where its parent exists, never with its parent.
        const QString fallback = OVSafetyNet::defaultFolder();
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(QFileInfo(fallback).isDir());
        }
        QVERIFY(QDir(fallback).removeRecursively());
        const QString elsewhere = QDir::homePath() + QStringLiteral("/Missing/Safety Net Archives");
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("SafetyNetFolder"), elsewhere}}));
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(!QFileInfo::exists(elsewhere));
            QVERIFY(!QFileInfo::exists(fallback));
            QVERIFY(!pane.optionsSheet()->ui()->openArchiveFolderButton->isEnabled());
        }

        // Opening makes the folder first, then hands it to the file manager.
        QDir().mkpath(QFileInfo(elsewhere).absolutePath());
        OVOrvanePref pane(nullptr, {});
        QVERIFY(QFileInfo(elsewhere).isDir());
        QDir(elsewhere).removeRecursively();
        m_opened.clear();
        pane.openSafetyNetFolder(nullptr);
        QVERIFY(QFileInfo(elsewhere).isDir());
        QCOMPARE(m_opened, QList<QUrl>{QUrl::fromLocalFile(elsewhere)});
    }
};

QTEST_MAIN(TestSettings)
#include "test_settings.moc"
