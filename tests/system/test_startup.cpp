// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The pane's start-up, run against the installed bundle inside the test
// sandbox (/tmp, /Library and the home are fresh). (Its save when the host
// closes: test_panerules, and test_leave_module in System Settings.)
#include "OVBackupItemModel.h"
#include "OVItemArchive.h"
#include "OVOrvanePref.h"
#include "OVSettingsDomain.h"
#include "ovfixedpaths.h"
#include "ovtestfiles.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QTest>
#include <QToolButton>

#include <sys/stat.h>

class TestStartup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        for (const QString &folder : QStringList{path(OVFixedPaths::SupportFolder),
                                                 QStringLiteral("/System"),
                                                 path(OVFixedPaths::LibrarySounds),
                                                 QDir::homePath() + QStringLiteral("/Library")}) {
            QDir(folder).removeRecursively();
        }
        OVSettingsDomain::remove();
    }

    void firstStartPreparesFoldersAndOneItem()
    {
        for (const char *left : {OVFixedPaths::TmpDailyScript, OVFixedPaths::TmpWeeklyScript, OVFixedPaths::TmpMonthlyScript, OVFixedPaths::TmpManualScript}) {
            writeFile(path(left), "#!/usr/bin/ruby\n");
        }
        OVOrvanePref pane(nullptr, {});

        // Made again by root's start-up: root's alone, as the install makes them.
        for (const char *folder : {OVFixedPaths::SupportFolder, OVFixedPaths::DailyFolder, OVFixedPaths::WeeklyFolder, OVFixedPaths::MonthlyFolder}) {
            QCOMPARE(ownerAndMode(folder), QStringLiteral("0:0 775"));
        }
        // The install's folder keeps its own rights.
        QCOMPARE(ownerAndMode(OVFixedPaths::ApplicationSupportFolder), QStringLiteral("0:0 755"));

        QCOMPARE(pane.backupItems()->rowCount(), 1);
        QCOMPARE(pane.backupItems()->item(0).frequencyColumn(), int(OVFrequency::Manual));
        QVERIFY(pane.backupItems()->item(0).checkColumn());

        // No settings yet: backups on, locked, and the switch can't be used.
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        QCOMPARE(master->currentIndex(), 0);
        QVERIFY(!master->isEnabled());
        QVERIFY(pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->isChecked());
        QVERIFY(!pane.isAuthorized());
        // (What a locked pane lets the user do: test_lock.)

        QVERIFY(!QFile::exists(path(OVFixedPaths::TmpDailyScript)));
        QVERIFY(QFile::exists(path(OVFixedPaths::TmpManualScript)));
    }

    void loadsTheArchiveAndTheMasterSetting()
    {
        OVBackupItem daily;
        daily.setSourcePath(QStringLiteral("/home/ann"));
        daily.setBackupSource(QStringLiteral("ann"));
        QDir().mkpath(path(OVFixedPaths::SupportFolder));
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
        OVOrvanePref pane(nullptr, {});
        QCOMPARE(pane.backupItems()->rowCount(), 1);
    }

    void alertSoundAndSoundMenu()
    {
        // No sound folder of the user's: none is made, and the bell not copied.
        const QString userSounds = QDir::homePath() + QStringLiteral("/Library/Sounds");
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(!QFileInfo::exists(userSounds));
        }
        writeFile(QStringLiteral("/System/Library/Sounds/Basso.aiff"), "a");
        writeFile(QStringLiteral("/System/Library/Sounds/Chime.AIFF"), "a");
        writeFile(QStringLiteral("/System/Library/Sounds/Glass.aif"), "a");
        // Holds no sound, yet gets its separator.
        writeFile(QStringLiteral("/Library/Sounds/readme.txt"), "a");
        writeFile(userSounds + QStringLiteral("/Extra/Chime.aiff"), "a");
        writeFile(userSounds + QStringLiteral("/Basso.aiff"), "a");

        // With the folder there, the bell is copied in; the user's own stays.
        const QString bell = userSounds + QStringLiteral("/Magic Bell.aiff");
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(QFile::exists(bell));
        }
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
        QVERIFY(titles.contains(QStringLiteral("Extra/Chime")));
        QVERIFY(titles.contains(QStringLiteral("Magic Bell")));
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
        auto *alert = pane.findChild<QMessageBox *>(QStringLiteral("installationProblemAlert"));
        QCOMPARE(alert->windowTitle(), QStringLiteral("Orvane is not installed correctly"));
        QCOMPARE(::chmod(tool, installed), 0);
    }
};

QTEST_MAIN(TestStartup)
#include "test_startup.moc"
