// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The pane's start-up, Cancel, anacron's hold on the times, the Safety Net folder. (Every setting's control: test_optionssheet.)
#include "OVBackupItemModel.h"
#include "OVItemArchive.h"
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSafetyNet.h"
#include "OVSettingsDomain.h"
#include "ovsheetchild.h"
#include "ovtestfiles.h"
#include <QComboBox>
#include <QDesktopServices>
#include <QMessageBox>
#include <QToolButton>

class TestStartup : public QObject
{
    Q_OBJECT
    QList<QUrl> m_opened;

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
    }

    void init()
    {
        for (const QString &folder : QStringList{path(OVFixedPaths::SupportFolder),
                                                 QStringLiteral("/System"),
                                                 path(OVFixedPaths::LibrarySounds),
                                                 QDir::homePath() + QStringLiteral("/Library"),
                                                 QDir::homePath() + QStringLiteral("/Documents")}) {
            QDir(folder).removeRecursively();
        }
        QDir().mkpath(QDir::homePath() + QStringLiteral("/Documents"));
        OVSettingsDomain::remove();
    }

    void firstStartPreparesFoldersAndOneItem()
    {
        for (const char *left : {OVFixedPaths::TmpDailyScript, OVFixedPaths::TmpWeeklyScript, OVFixedPaths::TmpMonthlyScript, OVFixedPaths::TmpManualScript}) {
            writeFile(path(left), "#!/usr/bin/ruby\n");
        }
        OVOrvanePref pane(nullptr, {});
        // Made again by root's start-up, root's alone as the install makes them; the install's folder keeps its rights.
        for (const char *folder : {OVFixedPaths::SupportFolder, OVFixedPaths::DailyFolder, OVFixedPaths::WeeklyFolder, OVFixedPaths::MonthlyFolder}) {
            QCOMPARE(ownerAndMode(folder), QStringLiteral("0:0 775"));
        }
        QCOMPARE(ownerAndMode(OVFixedPaths::ApplicationSupportFolder), QStringLiteral("0:0 755"));
        QCOMPARE(pane.backupItems()->rowCount(), 1);
        QCOMPARE(pane.backupItems()->item(0).frequencyColumn(), int(OVFrequency::Manual));
        QVERIFY(pane.backupItems()->item(0).checkColumn());
        // No settings yet: backups on, locked, and the switch can't be used. (What a locked pane allows: test_lock.)
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        QCOMPARE(master->currentIndex(), 0);
        QVERIFY(!master->isEnabled());
        QVERIFY(pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->isChecked() && !pane.isAuthorized());
        QVERIFY(!QFile::exists(path(OVFixedPaths::TmpDailyScript)));
        QVERIFY(QFile::exists(path(OVFixedPaths::TmpManualScript)));
    }

    void loadsTheArchiveAndTheMasterSetting()
    {
        OVBackupItem daily;
        daily.setSourcePath(QStringLiteral("/home/ann"));
        daily.setBackupSource(QStringLiteral("ann"));
        writeFile(path(OVFixedPaths::ItemsArchive), OVItemArchive::archive({daily, daily}));
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Master"), 1}}));
        {
            OVOrvanePref pane(nullptr, {});
            QCOMPARE(pane.backupItems()->rowCount(), 2);
            QCOMPARE(pane.backupItems()->item(1).sourcePath(), QStringLiteral("/home/ann"));
            QCOMPARE(pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"))->currentIndex(), 1);
        }
        // What the pane cannot read counts as no archive.
        writeFile(path(OVFixedPaths::ItemsArchive), "bplist00 but nothing after");
        QCOMPARE(OVOrvanePref(nullptr, {}).backupItems()->rowCount(), 1);
    }

    void alertSoundAndSoundMenu()
    {
        // No sound folder of the user's: none is made, and the bell not copied.
        const QString userSounds = QDir::homePath() + QStringLiteral("/Library/Sounds");
        OVOrvanePref(nullptr, {});
        QVERIFY(!QFileInfo::exists(userSounds));
        writeFile(QStringLiteral("/System/Library/Sounds/Basso.aiff"), "a");
        writeFile(QStringLiteral("/System/Library/Sounds/Chime.AIFF"), "a");
        writeFile(QStringLiteral("/System/Library/Sounds/Glass.aif"), "a");
        // Holds no sound, yet gets its separator.
        writeFile(QStringLiteral("/Library/Sounds/readme.txt"), "a");
        writeFile(userSounds + QStringLiteral("/Extra/Chime.aiff"), "a");
        writeFile(userSounds + QStringLiteral("/Basso.aiff"), "a");
        // With the folder there, the bell is copied in; the user's own stays.
        const QString bell = userSounds + QStringLiteral("/Magic Bell.aiff");
        OVOrvanePref(nullptr, {});
        QVERIFY(QFile::exists(bell));
        writeFile(bell, "the user's own bell");
        OVOrvanePref pane(nullptr, {});
        QCOMPARE(readFile(bell), QByteArray("the user's own bell"));
        auto *sounds = pane.findChild<QComboBox *>(QStringLiteral("kcfg_Sound"));
        QStringList titles;
        for (int i = 0; i < sounds->count(); ++i) {
            titles.append(sounds->itemText(i));
        }
        // The user's Basso replaced the system's; the user's folder order is the file system's.
        QCOMPARE(titles.size(), 5);
        QCOMPARE(titles.count(QStringLiteral("Basso")), 1);
        QVERIFY(titles.contains(QStringLiteral("Extra/Chime")) && titles.contains(QStringLiteral("Magic Bell")));
        QVERIFY(!titles.contains(QStringLiteral("Chime")) && !titles.contains(QStringLiteral("Glass")));
    }

    void toolCheckAlertsOnlyWithoutSetUserId()
    {
        const char *tool = OVFixedPaths::ManualBackupToolPath;
        struct stat st;
        QVERIFY(::stat(tool, &st) == 0 && (st.st_mode & S_ISUID));
        const mode_t installed = st.st_mode & 07777;
        {
            OVOrvanePref pane(nullptr, {});
            QTest::qWait(1300);
            QVERIFY(!pane.findChild<QMessageBox *>(QStringLiteral("installationProblemAlert")));
        }
        QCOMPARE(::chmod(tool, installed & ~S_ISUID), 0);
        OVOrvanePref pane(nullptr, {});
        QVERIFY(!pane.findChild<QMessageBox *>(QStringLiteral("installationProblemAlert")));
        QTRY_VERIFY_WITH_TIMEOUT(pane.findChild<QMessageBox *>(QStringLiteral("installationProblemAlert")), 3000);
        QCOMPARE(pane.findChild<QMessageBox *>(QStringLiteral("installationProblemAlert"))->windowTitle(), QStringLiteral("Orvane is not installed correctly"));
        QCOMPARE(::chmod(tool, installed), 0);
    }

    void cancelThrowsEditsAway()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(9);
        pane.hideOptions(UI(ui, okButton));
        const QByteArray stored = readFile(OVSettingsDomain::path());
        QVERIFY(!stored.isEmpty());
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(20);
        UI(ui, kcfg_WaitUntilAway)->setChecked(true);
        UI(ui, kcfg_RemoteServerAddress)->setText(QStringLiteral("afp://elsewhere"));
        pane.hideOptions(UI(ui, cancelButton));
        QCOMPARE(readFile(OVSettingsDomain::path()), stored);
        QCOMPARE(UI(ui, kcfg_MaxArchives)->value(), 9);
        QVERIFY(!UI(ui, kcfg_WaitUntilAway)->isChecked() && UI(ui, kcfg_RemoteServerAddress)->text().isEmpty());
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(30);
        QTest::keyClick(pane.optionsSheet(), Qt::Key_Escape);
        QVERIFY(!pane.optionsSheet()->isVisible());
        QCOMPARE(UI(ui, kcfg_MaxArchives)->value(), 9);
    }

    void anacronTakesTheTimes()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}}));
        QFile::remove(QStringLiteral("/etc/anacrontab"));
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        QVERIFY(UI(ui, kcfg_DailyHour)->isEnabled() && UI(ui, kcfg_DayOfMonth)->isEnabled() && UI(ui, anacronTextField)->text().isEmpty());
        pane.hideOptions(UI(ui, cancelButton));
        writeFile(QStringLiteral("/etc/anacrontab"), QByteArray());
        pane.showOptions(nullptr);
        QVERIFY(!UI(ui, kcfg_WeeklyMinute)->isEnabled() && !UI(ui, kcfg_DayOfMonth)->isEnabled());
        QVERIFY(UI(ui, kcfg_ArchiveItems)->isEnabled() && !UI(ui, anacronTextField)->text().isEmpty());
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
        OVOrvanePref(nullptr, {});
        QVERIFY(QFileInfo(fallback).isDir());
        QVERIFY(QDir(fallback).removeRecursively());
        const QString elsewhere = QDir::homePath() + QStringLiteral("/Missing/Safety Net Archives");
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("SafetyNetFolder"), elsewhere}}));
        QVERIFY(!UI(OVOrvanePref(nullptr, {}).optionsSheet(), openArchiveFolderButton)->isEnabled());
        QVERIFY(!QFileInfo::exists(elsewhere) && !QFileInfo::exists(fallback));
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

QTEST_MAIN(TestStartup)
#include "test_startup.moc"
