// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The settings domain, the options dialog and the Safety Net folder, run in
// the sandbox with the installed bundle.
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSafetyNet.h"
#include "OVSettings.h"
#include "OVSettingsDomain.h"
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
        OVSettings expected;
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
            UI(ui, kcfg_TimeValue)->setValue(45);
            UI(ui, kcfg_RemoteServerAddress)->setText(QStringLiteral("smb://nas.local"));
            UI(ui, kcfg_RemoteUserName)->setText(QStringLiteral("ann \"quoted\""));
            UI(ui, kcfg_RemoteVolumeName)->setText(QStringLiteral("Backups ✓"));
            pane.hideOptions(UI(ui, okButton));
            QVERIFY(!pane.optionsSheet()->isVisible());
            expected = pane.settings();
            QCOMPARE(expected.maxArchives(), 7);
            QVERIFY(expected.hour(OVFrequency::Daily) != OVSettings().hour(OVFrequency::Daily));
        }

        // Exactly the table's keys, typed as the domain always held them.
        const auto stored = OVSettingsDomain::read();
        QVERIFY(stored);
        QCOMPARE(stored->keys(), OVSettings().domain().keys());
        QCOMPARE(stored->value(QStringLiteral("SafetyNetFolder")).toString(), OVSafetyNet::defaultFolder());
        QCOMPARE(stored->value(QStringLiteral("Locked")).userType(), int(QMetaType::Bool));
        QCOMPARE(stored->value(QStringLiteral("MaxArchives")).userType(), int(QMetaType::LongLong));

        OVOrvanePref restarted(nullptr, {});
        for (const OVSettings::Item &item : OVSettings::items()) {
            QVERIFY2(restarted.settings().value(item.key) == expected.value(item.key), qPrintable(item.key));
        }
        QCOMPARE(UI(restarted.optionsSheet(), kcfg_RemoteUserName)->text(), QStringLiteral("ann \"quoted\""));
        QCOMPARE(UI(restarted.optionsSheet(), maxArchivesStepper)->value(), 7);
    }

    void cancelThrowsEditsAway()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(9);
        pane.hideOptions(UI(ui, okButton));
        const QByteArray stored = readDomainFile();
        QVERIFY(!stored.isEmpty());

        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(20);
        UI(ui, kcfg_WaitUntilAway)->setChecked(true);
        UI(ui, kcfg_RemoteServerAddress)->setText(QStringLiteral("afp://elsewhere"));
        pane.hideOptions(UI(ui, cancelButton));
        QCOMPARE(readDomainFile(), stored);
        QCOMPARE(UI(ui, kcfg_MaxArchives)->value(), 9);
        QVERIFY(!UI(ui, kcfg_WaitUntilAway)->isChecked());
        QVERIFY(UI(ui, kcfg_RemoteServerAddress)->text().isEmpty());

        // Escape counts as Cancel.
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(30);
        QTest::keyClick(pane.optionsSheet(), Qt::Key_Escape);
        QVERIFY(!pane.optionsSheet()->isVisible());
        QCOMPARE(UI(ui, kcfg_MaxArchives)->value(), 9);
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
        QVERIFY(UI(ui, versionField)->text().endsWith(QStringLiteral(OV_VERSION)));
        pane.hideOptions(UI(ui, cancelButton));
    }

    void anacronTakesTheTimes()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}}));
        QFile::remove(QStringLiteral("/etc/anacrontab"));
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        QVERIFY(UI(ui, kcfg_DailyHour)->isEnabled() && UI(ui, kcfg_DayOfMonth)->isEnabled());
        QVERIFY(UI(ui, anacronTextField)->text().isEmpty());
        pane.hideOptions(UI(ui, cancelButton));

        QFile table(QStringLiteral("/etc/anacrontab"));
        QVERIFY(table.open(QIODevice::WriteOnly));
        table.close();
        pane.showOptions(nullptr);
        for (QComboBox *popUp : {UI(ui, kcfg_DailyHour),
                                 UI(ui, kcfg_WeeklyHour),
                                 UI(ui, kcfg_MonthlyHour),
                                 UI(ui, kcfg_DailyMinute),
                                 UI(ui, kcfg_WeeklyMinute),
                                 UI(ui, kcfg_MonthlyMinute),
                                 UI(ui, kcfg_WeeklyDay),
                                 UI(ui, kcfg_DayOfMonth)}) {
            QVERIFY(!popUp->isEnabled());
        }
        QVERIFY(UI(ui, kcfg_ArchiveItems)->isEnabled());
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
