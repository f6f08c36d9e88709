// The lock against a real polkitd, and the enabled state of every control
// the lock and the master switch govern. Run by lock/run_lock_test.sh as an
// administrator who is not root.
#include "OVBackupItemModel.h"
#include "OVLock.h"
#include "OVOrvanePref.h"
#include "OVSettingsDomain.h"
#include "ovfixedpaths.h"
#include "ui_orvanepref.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include <unistd.h>

class TestLock : public QObject
{
    Q_OBJECT

    template<typename T>
    static T *control(OVOrvanePref &pane, const char *name)
    {
        return pane.findChild<T *>(QString::fromLatin1(name));
    }

    static void touch(const QString &path, const QByteArray &contents = QByteArray("x"))
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }

    // Each control named by the master switch's rules, enabled or not.
    static QMap<QString, bool> enabledStates(OVOrvanePref &pane)
    {
        QMap<QString, bool> states;
        for (const char *name : {"masterPopUp", "addFolderButton", "deleteFolderButton", "optionsButton", "backupButton", "lastDailyBackup",
                                 "lastWeeklyBackup", "lastMonthlyBackup"}) {
            states.insert(QString::fromLatin1(name), pane.findChild<QWidget *>(QString::fromLatin1(name))->isEnabled());
        }
        states.insert(QStringLiteral("table"), pane.backupItems()->isEditable());
        return states;
    }

    static QMap<QString, bool> expect(bool master, bool add, bool del, bool options, bool status, bool table)
    {
        return {{QStringLiteral("masterPopUp"), master},
                {QStringLiteral("addFolderButton"), add},
                {QStringLiteral("deleteFolderButton"), del},
                {QStringLiteral("optionsButton"), options},
                {QStringLiteral("backupButton"), false},
                {QStringLiteral("lastDailyBackup"), status},
                {QStringLiteral("lastWeeklyBackup"), status},
                {QStringLiteral("lastMonthlyBackup"), status},
                {QStringLiteral("table"), table}};
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        QVERIFY2(getuid() != 0, "polkitd allows root anything: run as an administrator who is not root");
        OVSettingsDomain::remove();
        QDir(QString::fromUtf8(OVFixedPaths::SupportFolder)).removeRecursively();
        QFile::remove(QString::fromUtf8(OVFixedPaths::TmpItemsArchive));
    }

    void adminGroups()
    {
        QVERIFY(OVLock::isAdminGroupList(QStringLiteral("ann lpadmin\n")));
        QVERIFY(OVLock::isAdminGroupList(QStringLiteral("ann admin")));
        QVERIFY(OVLock::isAdminGroupList(QStringLiteral("ann cdrom sudo\n")));
        QVERIFY(OVLock::isAdminGroupList(QStringLiteral("wheel")));
        QVERIFY(!OVLock::isAdminGroupList(QStringLiteral("ann sudoers wheelchair\n")));
        QVERIFY(!OVLock::isAdminGroupList(QString()));
        // This test runs as a member of sudo.
        QVERIFY(OVLock::isAdminUser());
    }

    void grantedUnlockThenLock()
    {
        OVOrvanePref pane(nullptr, {});
        auto *lock = control<QToolButton>(pane, "lockButton");
        auto *label = control<QLabel>(pane, "lockLabel");
        QVERIFY(!pane.isAuthorized());
        QVERIFY(lock->isChecked());
        QCOMPARE(label->text(), QStringLiteral("Click the lock to make changes."));

        lock->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
        QVERIFY(!lock->isChecked());
        QCOMPARE(label->text(), QStringLiteral("Click the lock to prevent further changes."));
        QVERIFY(control<QComboBox>(pane, "masterPopUp")->isEnabled());
        QVERIFY(control<QPushButton>(pane, "optionsButton")->isEnabled());

        // Closing the lock saves first, changed or not.
        lock->click();
        QVERIFY(!pane.isAuthorized());
        QVERIFY(lock->isChecked());
        QCOMPARE(label->text(), QStringLiteral("Click the lock to make changes."));
        QVERIFY(OVSettingsDomain::read());
        QVERIFY(OVSettingsDomain::read()->value(QStringLiteral("Locked")).toBool());
        QVERIFY(QFile::exists(QString::fromUtf8(OVFixedPaths::TmpItemsArchive)));
        QVERIFY(!control<QPushButton>(pane, "optionsButton")->isEnabled());

        // A second unlock goes to polkit again.
        lock->click();
        QVERIFY(pane.lock()->isRequestPending());
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
    }

    void deniedUnlockStaysLocked()
    {
        OVOrvanePref pane(nullptr, {});
        auto *lock = control<QToolButton>(pane, "lockButton");
        lock->click();
        QVERIFY(pane.lock()->isRequestPending());
        QTRY_VERIFY_WITH_TIMEOUT(!pane.lock()->isRequestPending(), 10000);
        QVERIFY(!pane.isAuthorized());
        QVERIFY(lock->isChecked());
        QCOMPARE(control<QLabel>(pane, "lockLabel")->text(), QStringLiteral("Click the lock to make changes."));
        QVERIFY(!control<QComboBox>(pane, "masterPopUp")->isEnabled());
    }

    void startsUnlockedOnlyForAdminWhoLeftItOpen()
    {
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(!pane.isAuthorized());
        }
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), true}}));
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(!pane.isAuthorized());
        }
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}}));
        OVOrvanePref pane(nullptr, {});
        QVERIFY(pane.isAuthorized());
        QVERIFY(!pane.lock()->isRequestPending());
        QVERIFY(!control<QToolButton>(pane, "lockButton")->isChecked());
        QCOMPARE(control<QLabel>(pane, "lockLabel")->text(), QStringLiteral("Click the lock to prevent further changes."));
    }

    void enablingFollowsLockAndMaster()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}, {QStringLiteral("Master"), 0}}));
        OVOrvanePref pane(nullptr, {});
        // Every frequency has finished a backup, so its button may be used.
        for (const char *folder : {OVFixedPaths::DailyFolder, OVFixedPaths::WeeklyFolder, OVFixedPaths::MonthlyFolder}) {
            touch(QString::fromUtf8(folder) + QStringLiteral("/.lastbackup"), "12/31/05\n");
        }
        pane.masterToggle(&pane);

        // One item: it cannot be deleted.
        QCOMPARE(enabledStates(pane), expect(true, true, false, true, true, true));
        pane.addBackupItem(&pane);
        QCOMPARE(enabledStates(pane), expect(true, true, true, true, true, true));

        auto *master = control<QComboBox>(pane, "masterPopUp");
        master->setCurrentIndex(1);
        pane.masterToggle(master);
        QCOMPARE(enabledStates(pane), expect(true, false, false, true, true, false));
        QVERIFY(!(pane.backupItems()->flags(pane.backupItems()->index(0, 0)) & Qt::ItemIsSelectable));

        master->setCurrentIndex(0);
        pane.masterToggle(master);
        pane.removePrivilege();
        QCOMPARE(enabledStates(pane), expect(false, false, false, false, false, false));
        QVERIFY(control<QPushButton>(pane, "lastDailyBackup")->toolTip().isEmpty());
    }

    void masterOffRemovesScripts()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}}));
        OVOrvanePref pane(nullptr, {});
        const QStringList installed{QString::fromUtf8(OVFixedPaths::DailyScript), QString::fromUtf8(OVFixedPaths::WeeklyScript),
                                    QString::fromUtf8(OVFixedPaths::MonthlyScript)};
        for (const QString &script : installed) {
            touch(script, "#!/usr/bin/ruby\n");
        }
        auto *master = control<QComboBox>(pane, "masterPopUp");
        master->setCurrentIndex(1);
        pane.masterToggle(master);
        for (const QString &script : installed) {
            QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(script), 5000);
        }
        // Repeatable: switching off again runs the removal again.
        touch(installed.first(), "#!/usr/bin/ruby\n");
        pane.masterToggle(master);
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(installed.first()), 5000);

        // Locked, the switch changes nothing on disk.
        pane.removePrivilege();
        touch(installed.first(), "#!/usr/bin/ruby\n");
        pane.masterToggle(master);
        QTest::qWait(500);
        QVERIFY(QFile::exists(installed.first()));
    }
};

QTEST_MAIN(TestLock)
#include "test_lock.moc"
