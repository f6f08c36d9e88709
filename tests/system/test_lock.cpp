// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The lock against a real polkitd and the controls it governs, as an administrator who is not root (lock/run_lock_test.sh).
#include "OVBackupItemModel.h"
#include "OVItemArchive.h"
#include "OVLocalizedStrings.h"
#include "OVLock.h"
#include "OVOrvanePref.h"
#include "OVSaveJob.h"
#include "OVSettingsDomain.h"
#include "ovtestfiles.h"
#include <KMessageWidget>
#include <PolkitQt1/Authority>
#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>

class TestLock : public QObject
{
    Q_OBJECT
    // One letter per control the lock and the master switch govern, "-" where disabled; "t" for the table.
    static QString enabledStates(OVOrvanePref &pane)
    {
        QString states;
        for (const char *name : {"masterPopUp",
                                 "addFolderButton",
                                 "deleteFolderButton",
                                 "optionsButton",
                                 "backupButton",
                                 "lastDailyBackup",
                                 "lastWeeklyBackup",
                                 "lastMonthlyBackup"}) {
            states += pane.findChild<QWidget *>(QLatin1String(name))->isEnabled() ? QLatin1Char(name[0]) : QLatin1Char('-');
        }
        return states + (pane.backupItems()->isEditable() ? QLatin1Char('t') : QLatin1Char('-'));
    }

    static bool locked(OVOrvanePref &pane)
    {
        return !pane.isAuthorized() && pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->isChecked();
    }

    // Nobody can ask for the password (run_lock_unavailable.sh): the click says why, and the lock stays shut.
    static void clickLockExpecting(const char *explanationKey)
    {
        OVOrvanePref pane(nullptr, {});
        QVERIFY(!pane.isAuthorized());
        pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.findChild<QMessageBox *>(QStringLiteral("lockUnavailableAlert")), 30000);
        auto *alert = pane.findChild<QMessageBox *>(QStringLiteral("lockUnavailableAlert"));
        QCOMPARE(alert->text(), OVLocalized(explanationKey));
        QCOMPARE(alert->windowTitle(), OVLocalized("LockUnavailable"));
        QVERIFY(!alert->text().isEmpty());
        QVERIFY(locked(pane));
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        QVERIFY2(getuid() != 0, "polkitd allows root anything: run as an administrator who is not root");
        OVSettingsDomain::remove();
    }

    void grantedUnlockThenLock()
    {
        OVOrvanePref pane(nullptr, {});
        auto *lock = pane.findChild<QToolButton *>(QStringLiteral("lockButton"));
        auto *label = pane.findChild<QLabel *>(QStringLiteral("lockLabel"));
        const QString shut = QStringLiteral("Click the lock to make changes.");
        QVERIFY(locked(pane));
        QCOMPARE(label->text(), shut);
        lock->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
        QVERIFY(!lock->isChecked());
        QCOMPARE(label->text(), QStringLiteral("Click the lock to prevent further changes."));
        QVERIFY(pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"))->isEnabled()
                && pane.findChild<QPushButton *>(QStringLiteral("optionsButton"))->isEnabled());
        // Closing the lock saves first, changed or not; the items go into place through archive_table, as root's.
        lock->click();
        QVERIFY(locked(pane));
        QCOMPARE(label->text(), shut);
        QVERIFY(OVSettingsDomain::read().value_or(QVariantMap()).value(QStringLiteral("Locked")).toBool());
        QTRY_COMPARE_WITH_TIMEOUT(ownerAndMode(OVFixedPaths::ItemsArchive), QStringLiteral("0:0 644"), 10000);
        QVERIFY(OVItemArchive::load(path(OVFixedPaths::ItemsArchive)));
        QVERIFY(!pane.findChild<QPushButton *>(QStringLiteral("optionsButton"))->isEnabled());
        // Opening and closing the lock is no edit: nothing waits to be applied.
        QVERIFY(OVSaveJob::finishAll(10000));
        QVERIFY(!pane.hasUnappliedChanges() && !OVSaveJob::unapplied());
        // A second unlock goes to polkit again.
        lock->click();
        QVERIFY(pane.lock()->isRequestPending());
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
    }

    void deniedUnlockStaysLocked()
    {
        OVOrvanePref pane(nullptr, {});
        pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->click();
        QVERIFY(pane.lock()->isRequestPending());
        QTRY_VERIFY_WITH_TIMEOUT(!pane.lock()->isRequestPending(), 10000);
        QVERIFY(locked(pane) && !pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"))->isEnabled());
    }

    // No settings (test_startup) or locked when it was left: the pane starts locked.
    void startsUnlockedOnlyForAdminWhoLeftItOpen()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), true}}));
        QVERIFY(!OVOrvanePref(nullptr, {}).isAuthorized());
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}}));
        OVOrvanePref pane(nullptr, {});
        QVERIFY(pane.isAuthorized() && !pane.hasUnappliedChanges() && !pane.lock()->isRequestPending());
        QVERIFY(!pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->isChecked());
    }

    void enablingFollowsLockAndMaster()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}, {QStringLiteral("Master"), 0}}));
        // run_lock_test.sh wrote every frequency's marker as root, so its button may be used.
        OVOrvanePref pane(nullptr, {});
        // One item: it cannot be deleted. Nothing is complete to back up now.
        QCOMPARE(enabledStates(pane), QStringLiteral("ma-o-lllt"));
        pane.addBackupItem(&pane);
        QCOMPARE(enabledStates(pane), QStringLiteral("mado-lllt"));
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        master->setCurrentIndex(1);
        pane.masterToggle(master);
        QCOMPARE(enabledStates(pane), QStringLiteral("m--o-lll-"));
        QVERIFY(!(pane.backupItems()->flags(pane.backupItems()->index(0, 0)) & Qt::ItemIsSelectable));
        master->setCurrentIndex(0);
        pane.masterToggle(master);
        pane.removePrivilege();
        QCOMPARE(enabledStates(pane), QStringLiteral("---------"));
        QVERIFY(pane.findChild<QPushButton *>(QStringLiteral("lastDailyBackup"))->toolTip().isEmpty());
    }

    // Through an administrator's start-up and save what root runs or reads stays root's alone.
    void foldersStayRootsAlone()
    {
        auto check = [] {
            QCOMPARE(ownerAndMode(OVFixedPaths::ApplicationSupportFolder), QStringLiteral("0:0 755"));
            for (const char *folder : {OVFixedPaths::SupportFolder, OVFixedPaths::DailyFolder, OVFixedPaths::WeeklyFolder, OVFixedPaths::MonthlyFolder}) {
                QCOMPARE(ownerAndMode(folder), QStringLiteral("0:0 775"));
                QVERIFY2(::access(folder, W_OK) != 0, folder);
            }
        };
        check();
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}}));
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(pane.isAuthorized());
            pane.saveChanges(nullptr, nullptr);
            QVERIFY(OVSaveJob::finishAll(10000));
        }
        check();
        for (const char *script : {OVFixedPaths::DailyScript, OVFixedPaths::WeeklyScript, OVFixedPaths::MonthlyScript}) {
            QVERIFY2(!QFile::exists(path(script)) || ownerAndMode(script) == QStringLiteral("0:0 700"), script);
        }
    }

    // polkit refuses the save: nothing reaches root, the lock shows shut, the edit is offered again until applied or discarded.
    void refusedSaveKeepsTheEdit()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Locked"), false}}));
        OVSaveJob::forgetUnapplied();
        const QByteArray installed = readFile(OVFixedPaths::ItemsArchive);
        int rows = 0;
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(pane.isAuthorized());
            pane.addBackupItem(&pane);
            rows = pane.backupItems()->rowCount();
            QVERIFY(pane.hasUnappliedChanges());
            pane.save();
            QVERIFY(OVSaveJob::finishAll(10000));
            QVERIFY(locked(pane) && pane.hasUnappliedChanges());
            auto *message = pane.findChild<KMessageWidget *>(QStringLiteral("unappliedMessage"));
            QVERIFY(message->isVisibleTo(&pane));
            QVERIFY2(message->text().contains(OVLocalized("PasswordNotGiven")), qPrintable(message->text()));
            QCOMPARE(readFile(OVFixedPaths::ItemsArchive), installed);
        }
        OVOrvanePref pane(nullptr, {});
        QCOMPARE(pane.backupItems()->rowCount(), rows);
        auto *message = pane.findChild<KMessageWidget *>(QStringLiteral("unappliedMessage"));
        QVERIFY(message->isVisibleTo(&pane));
        message->findChild<QAction *>(QStringLiteral("discardUnappliedAction"))->trigger();
        QVERIFY(!OVSaveJob::unapplied() && !message->isVisibleTo(&pane));
        QCOMPARE(pane.backupItems()->rowCount(), rows - 1);
    }

    void answersThatAreNoRefusal()
    {
        using PolkitQt1::Authority;
        QCOMPARE(OVLock::failureFor(Authority::Yes, false), OVLock::Failure::None);
        QCOMPARE(OVLock::failureFor(Authority::No, false), OVLock::Failure::None);
        QCOMPARE(OVLock::failureFor(Authority::Challenge, false), OVLock::Failure::NoAgent);
        QCOMPARE(OVLock::failureFor(Authority::Unknown, false), OVLock::Failure::NoAuthority);
        QCOMPARE(OVLock::failureFor(Authority::No, true), OVLock::Failure::NoAuthority);
    }

    void noAuthority()
    {
        clickLockExpecting("NoPolkitExplanation");
    }

    void noAgent()
    {
        clickLockExpecting("NoPolkitAgentExplanation");
    }
};

QTEST_MAIN(TestLock)
#include "test_lock.moc"
