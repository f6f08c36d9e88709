// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The settings domain, the options dialog and the Safety Net folder, run in
// the sandbox with the installed bundle.
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSafetyNet.h"
#include "OVSettingsDomain.h"
#include "OVSettingsTable.h"
#include "ovconfig.h"
#include "ovsheetchild.h"

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

    static QList<QComboBox *> popUps(OVOptionsSheet *ui)
    {
        return UI(ui, optionsTabView)->findChildren<QComboBox *>();
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
            OVOptionsSheet *ui = pane.optionsSheet();
            pane.showOptions(nullptr);
            // Turn every box over and move every pop-up off its design.
            for (QCheckBox *check : UI(ui, optionsTabView)->findChildren<QCheckBox *>()) {
                check->setChecked(!check->isChecked());
            }
            for (QComboBox *popUp : popUps(ui)) {
                popUp->setCurrentIndex(popUp->count() - 1);
            }
            UI(ui, maxArchivesStepper)->setValue(7);
            UI(ui, timeValueField)->setValue(45);
            UI(ui, serverAddressField)->setText(QStringLiteral("smb://nas.local"));
            UI(ui, userNameField)->setText(QStringLiteral("ann \"quoted\""));
            UI(ui, volumeField)->setText(QStringLiteral("Backups ✓"));
            expected = pane.optionsSheet()->values();
            QCOMPARE(expected.value(QStringLiteral("MaxArchives")).toInt(), 7);
            pane.hideOptions(UI(ui, okButton));
            QVERIFY(!pane.optionsSheet()->isVisible());
        }

        const auto stored = OVSettingsDomain::read();
        QVERIFY(stored);
        QStringList keys;
        for (const OVSettingsTable::Setting &setting : OVSettingsTableRange()) {
            keys.append(QString::fromLatin1(setting.key));
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
        QCOMPARE(UI(restarted.optionsSheet(), maxArchivesStepper)->value(), 7);
    }

    void absentKeysAndNoDomain()
    {
        QString designedHour;
        {
            OVOrvanePref pane(nullptr, {});
            OVOptionsSheet *ui = pane.optionsSheet();
            designedHour = UI(ui, dailyHourPopUp)->currentText();
            QCOMPARE(UI(ui, soundPopUp)->currentText(), QStringLiteral("Magic Bell"));
            QVERIFY(UI(ui, useSafetyNetCheck)->isChecked() && UI(ui, displayAlertCheck)->isChecked() && UI(ui, playSoundCheck)->isChecked());
        }
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("WaitUntilAway"), true}}));
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        QVERIFY(UI(ui, waitUntilAwayCheck)->isChecked());
        QVERIFY(UI(ui, useSafetyNetCheck)->isChecked() && UI(ui, displayAlertCheck)->isChecked() && UI(ui, playSoundCheck)->isChecked());
        QVERIFY(!UI(ui, autoConnectCheck)->isChecked() && !UI(ui, dailyMirrorFoldersCheck)->isChecked());
        QCOMPARE(UI(ui, maxArchivesField)->value(), 3);
        QCOMPARE(UI(ui, maxArchivesStepper)->value(), 3);
        QCOMPARE(UI(ui, timeValueField)->value(), 2);
        QCOMPARE(UI(ui, timeUnitPopUp)->currentIndex(), 1);
        QCOMPARE(UI(ui, weeklyDayPopUp)->currentIndex(), 0);
        QCOMPARE(UI(ui, dailyHourPopUp)->currentText(), designedHour);
        QCOMPARE(UI(ui, soundPopUp)->currentText(), QStringLiteral("Magic Bell"));
        QCOMPARE(pane.safetyNet()->safetyNetFolder(), OVSafetyNet::defaultFolder());
        QVERIFY(UI(ui, versionField)->text().endsWith(QStringLiteral(OV_VERSION)));
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
        OVOptionsSheet *ui = pane.optionsSheet();
        QCOMPARE(UI(ui, weeklyHourPopUp)->currentIndex(), 11);
        QVERIFY(UI(ui, dailyHourPopUp)->currentIndex() >= 0 && UI(ui, monthlyHourPopUp)->currentIndex() >= 0);
        QVERIFY(UI(ui, dailyMinutePopUp)->currentIndex() >= 0 && UI(ui, archivePopUp)->currentIndex() >= 0);
        QCOMPARE(UI(ui, maxArchivesField)->value(), UI(ui, maxArchivesField)->maximum());
        QCOMPARE(UI(ui, timeValueField)->value(), UI(ui, timeValueField)->minimum());
        QVERIFY(!UI(ui, useSafetyNetCheck)->isChecked());
        QVERIFY(!UI(ui, displayAlertCheck)->isChecked());
        QCOMPARE(UI(ui, soundPopUp)->currentText(), QStringLiteral("Magic Bell"));
        QCOMPARE(pane.safetyNet()->safetyNetFolder(), QStringLiteral("42"));
        QVERIFY(pane.saveChanges(nullptr, nullptr));
        QVERIFY(OVSettingsDomain::read());
    }

    void cancelThrowsEditsAway()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        UI(ui, maxArchivesField)->setValue(9);
        pane.hideOptions(UI(ui, okButton));
        const QByteArray stored = readDomainFile();
        QVERIFY(!stored.isEmpty());

        pane.showOptions(nullptr);
        UI(ui, maxArchivesField)->setValue(20);
        UI(ui, waitUntilAwayCheck)->setChecked(true);
        UI(ui, serverAddressField)->setText(QStringLiteral("afp://elsewhere"));
        pane.hideOptions(UI(ui, cancelButton));
        QCOMPARE(readDomainFile(), stored);
        QCOMPARE(UI(ui, maxArchivesField)->value(), 9);
        QVERIFY(!UI(ui, waitUntilAwayCheck)->isChecked());
        QVERIFY(UI(ui, serverAddressField)->text().isEmpty());

        // Escape counts as Cancel.
        pane.showOptions(nullptr);
        UI(ui, maxArchivesField)->setValue(30);
        QTest::keyClick(pane.optionsSheet(), Qt::Key_Escape);
        QVERIFY(!pane.optionsSheet()->isVisible());
        QCOMPARE(UI(ui, maxArchivesField)->value(), 9);
    }

    void enableRules()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *sheet = pane.optionsSheet();
        OVOptionsSheet *ui = sheet;

        UI(ui, displayAlertCheck)->setChecked(true);
        UI(ui, autoDismissCheck)->setChecked(true);
        sheet->updatePrefsUI();
        QVERIFY(UI(ui, autoDismissCheck)->isEnabled() && UI(ui, timeValueField)->isEnabled() && UI(ui, timeValueStepper)->isEnabled()
                && UI(ui, timeUnitPopUp)->isEnabled());
        // A click on a governing box applies the rules by itself.
        UI(ui, displayAlertCheck)->click();
        QVERIFY(!UI(ui, autoDismissCheck)->isEnabled());
        QVERIFY(!UI(ui, timeValueField)->isEnabled() && !UI(ui, timeValueStepper)->isEnabled() && !UI(ui, timeUnitPopUp)->isEnabled());
        UI(ui, displayAlertCheck)->click();
        UI(ui, autoDismissCheck)->click();
        QVERIFY(UI(ui, autoDismissCheck)->isEnabled() && !UI(ui, timeUnitPopUp)->isEnabled());

        UI(ui, playSoundCheck)->setChecked(true);
        UI(ui, playSoundCheck)->click();
        QVERIFY(!UI(ui, soundPopUp)->isEnabled());

        UI(ui, autoConnectCheck)->setChecked(false);
        UI(ui, autoConnectCheck)->click();
        QVERIFY(UI(ui, serverAddressField)->isEnabled() && UI(ui, userNameField)->isEnabled() && UI(ui, volumeField)->isEnabled());
        UI(ui, autoConnectCheck)->click();
        QVERIFY(!UI(ui, serverAddressField)->isEnabled() && !UI(ui, volumeField)->isEnabled());

        // The open button wants the folder on disk as well as the Safety Net on.
        UI(ui, useSafetyNetCheck)->setChecked(true);
        sheet->updatePrefsUI();
        QVERIFY(QFileInfo(OVSafetyNet::defaultFolder()).isDir());
        QVERIFY(UI(ui, openArchiveFolderButton)->isEnabled() && UI(ui, archivePopUp)->isEnabled() && UI(ui, maxArchivesStepper)->isEnabled());
        QVERIFY(QDir(OVSafetyNet::defaultFolder()).removeRecursively());
        sheet->updatePrefsUI();
        QVERIFY(!UI(ui, openArchiveFolderButton)->isEnabled() && UI(ui, chooseArchiveFolderButton)->isEnabled());
        pane.createSafetyNetFolder(nullptr);
        UI(ui, useSafetyNetCheck)->click();
        QVERIFY(!UI(ui, openArchiveFolderButton)->isEnabled() && !UI(ui, chooseArchiveFolderButton)->isEnabled() && !UI(ui, archivePopUp)->isEnabled());
        QVERIFY(!UI(ui, maxArchivesField)->isEnabled());
    }

    void sheetHeightFollowsTheTab()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *sheet = pane.optionsSheet();
        OVOptionsSheet *ui = sheet;
        for (QWidget *box : {UI(ui, generalContentBox),
                             UI(ui, safetyNetContentBox),
                             UI(ui, autoConnectContentBox),
                             UI(ui, schedulesContentBox),
                             UI(ui, notificationContentBox),
                             UI(ui, aboutContentBox)}) {
            box->setFixedHeight(200);
        }
        pane.showOptions(nullptr);
        sheet->move(100, 150);
        QCOMPARE(sheet->height(), 270);
        const int top = sheet->geometry().top();
        const int heights[] = {270, 341, 341, 360, 508, 340, 270};
        const int order[] = {0, 1, 2, 3, 4, 5, 0};
        for (int i = 0; i < 7; ++i) {
            UI(ui, optionsTabView)->setCurrentIndex(order[i]);
            QCOMPARE(sheet->height(), heights[i]);
            QCOMPARE(sheet->geometry().top(), top);
            QVERIFY(UI(ui, generalContentBox)->isVisibleTo(UI(ui, generalTab)));
        }
        QCOMPARE(sheet->currentIdentifier(), QStringLiteral("1"));
        pane.hideOptions(UI(ui, cancelButton));
    }

    void schedulePopUpsCarryCronNumbers()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        QCOMPARE(UI(ui, dailyHourPopUp)->count(), 12);
        for (int i = 0; i < 12; ++i) {
            QCOMPARE(UI(ui, dailyHourPopUp)->itemData(i).toInt(), i);
        }
        QCOMPARE(UI(ui, dailyHourPopUp)->itemText(0), QStringLiteral("12"));
        for (QComboBox *minutes : {UI(ui, dailyMinutePopUp), UI(ui, weeklyMinutePopUp), UI(ui, monthlyMinutePopUp)}) {
            for (int i = 0; i < minutes->count(); ++i) {
                const QString last = minutes->itemText(i).split(QLatin1Char(' ')).last();
                QVERIFY(last == QLatin1String("AM") || last == QLatin1String("PM"));
                QCOMPARE(minutes->itemData(i).toInt(), (i % 12) * 5);
            }
        }
        QCOMPARE(UI(ui, weeklyDayPopUp)->itemData(0).toInt(), 0);
        QCOMPARE(UI(ui, weeklyDayPopUp)->itemText(0), QStringLiteral("Sunday"));
        QCOMPARE(UI(ui, dayOfMonthPopUp)->count(), 31);
        QCOMPARE(UI(ui, dayOfMonthPopUp)->itemData(30).toInt(), 31);
    }

    void anacronTakesTheTimes()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}}));
        QFile::remove(QStringLiteral("/etc/anacrontab"));
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        QVERIFY(UI(ui, dailyHourPopUp)->isEnabled() && UI(ui, dayOfMonthPopUp)->isEnabled());
        QVERIFY(UI(ui, anacronTextField)->text().isEmpty());
        pane.hideOptions(UI(ui, cancelButton));

        QFile table(QStringLiteral("/etc/anacrontab"));
        QVERIFY(table.open(QIODevice::WriteOnly));
        table.close();
        pane.showOptions(nullptr);
        for (QComboBox *popUp : {UI(ui, dailyHourPopUp),
                                 UI(ui, weeklyHourPopUp),
                                 UI(ui, monthlyHourPopUp),
                                 UI(ui, dailyMinutePopUp),
                                 UI(ui, weeklyMinutePopUp),
                                 UI(ui, monthlyMinutePopUp),
                                 UI(ui, weeklyDayPopUp),
                                 UI(ui, dayOfMonthPopUp)}) {
            QVERIFY(!popUp->isEnabled());
        }
        QVERIFY(UI(ui, archivePopUp)->isEnabled());
        QVERIFY(!UI(ui, anacronTextField)->text().isEmpty());
        pane.hideOptions(UI(ui, okButton));
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
            QVERIFY(!UI(pane.optionsSheet(), openArchiveFolderButton)->isEnabled());
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
