// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "OVBackupItemModel.h"
#include "OVItemsTable.h"
#include "OVLock.h"
#include "OVLogSheet.h"
#include "OVSafetyNet.h"
#include "OVScheduleTables.h"
#include "OVStatusMonitor.h"
#include "OVToast.h"

#include <KCModule>

#include <QPointer>
#include <QVariantMap>
#include <array>
#include <memory>
#include <optional>

class OVAutoConnect;
class OVCredits;
class OVHelpSheet;
class QMessageBox;
class OVOptionsSheet;
class OVRestoreWindow;
class OVToolReport;
class OVUpdateNotice;

namespace Ui
{
class OVOrvanePrefView;
}

// The Orvane module of System Settings. It only orders the subsystems' work
// (start-up, save, lock, master switch): the items and their table, the
// options, the lock, the scripts, the schedule and the status monitor each
// live in their own folder.
class OVOrvanePref : public KCModule
{
    Q_OBJECT
public:
    OVOrvanePref(QWidget *parent, const QVariantList &args);
    ~OVOrvanePref() override;

    // One-time preparation once the main view exists.
    void mainViewDidLoad();

    // Stores the items (and, when unlocked, puts them in place). The first
    // argument is the event that caused the save, if any; only a save whose
    // sender is the pane itself may touch the keychain.
    bool saveChanges(QEvent *notification, QObject *sender);

    OVBackupItemModel *backupItems() const { return m_backupItems; }
    bool hasBackupType(const QString &type) const { return m_backupItems->hasBackupType(type); }
    bool validateBackupItems() const { return m_backupItems->validateBackupItems(m_toast.installed); }
    void createNewBackupItem() { m_backupItems->createNewBackupItem(); }
    bool isAuthorized() const { return m_isAuthorized; }
    bool isToastInstalled() const { return m_toast.installed; }
    QString fullPathToToast() const { return m_toast.fullPath; }
    QString toastApplicationName() const { return m_toast.applicationName; }
    // Finds Toast among the applications (at start-up).
    void setToastInstalled();
    bool useAnacron() const { return m_useAnacron; }
    OVOptionsSheet *optionsSheet() const { return m_optionsSheet; }
    OVSafetyNet *safetyNet() const { return m_safetyNet; }
    OVStatusMonitor *statusMonitor() const { return m_statusMonitor; }
    OVLogSheet *logSheet() const { return m_logSheet; }
    OVLock *lock() const { return m_lock; }
    OVHelpSheet *helpSheet() const { return m_helpSheet; }
    OVCredits *credits() const { return m_credits; }

    // Puts the stored settings into the controls.
    void restoreSavedOptions();

    // The lock.
    bool isAdminUser() const { return OVLock::isAdminUser(); }
    void initPrivilege() { m_lock->initPrivilege(); }
    void removePrivilege();
    void authorizationChanged(bool authorized) { m_isAuthorized = authorized; }
    // Lets the table's rows be selected and edited, or not.
    void setTableEnabled(bool enabled);

    // Refreshes the enabled states after the items or their validity change.
    void updateUI();
    bool isBackupRunning() { return m_statusMonitor->isBackupRunning(); }
    void updateLogButtons() { m_statusMonitor->updateLogButtons(); }

    // The schedule: the pane's lines in the crontab or the anacron table.
    void buildCrontab();
    void restoreCrontab() { OVScheduleTables::restoreCrontab(); }
    bool buildAnacrontab();
    bool restoreAnacrontab() { return OVScheduleTables::restoreAnacrontab(); }
    void installCrontab() { OVScheduleTables::installCrontab(); }

    // The backup scripts: the three scheduled ones into /tmp for
    // install_scripts, and the manual one for manual_backup.
    void buildScheduledScripts();
    void buildManualScript();

public Q_SLOTS:
    // The lock button: opens the lock with an administrator's password, or
    // saves everything and closes it.
    void authenticate(QObject *sender);
    // The master switch; also re-applies every enabled state.
    void masterToggle(QObject *sender);
    void addBackupItem(QObject *sender);
    void deleteBackupItem(QObject *) { m_itemsTable->deleteSelected(); }
    // The folder dialog for the selected row: tag 1 source, 2 destination.
    void chooseFolder(int tag) { m_itemsTable->chooseFolder(tag); }
    // The dialog ended: OK (1) takes the folder for the selected row.
    void openPanelDidEnd(int returnCode, const QString &path) { m_itemsTable->openPanelDidEnd(returnCode, path); }
    // Tag 6 (the Toast entry) sets the selected row's Toast flag; any other clears it.
    void setToastFlag(int tag) { m_itemsTable->setToastFlag(tag); }
    // Backs up the manual items now.
    void performBackup(QObject *sender);
    void viewLog(QObject *sender);
    void hideLogSheet(QObject *sender);
    void verifyToolPermissions();
    void showOptions(QObject *sender);
    // OK (tag 0) stores and applies the settings; anything else throws the
    // edits away.
    void hideOptions(QObject *sender);
    void createSafetyNetFolder(QObject *) { m_safetyNet->createSafetyNetFolder(); }
    void openSafetyNetFolder(QObject *) { m_safetyNet->openSafetyNetFolder(); }
    void chooseSafetyNetFolder(QObject *sender);
    // Connect: stores the server's password and mounts its volume now.
    void connectToServer(QObject *sender);
    // The "Restore…" window, at the selected item's source folder.
    void showRestore(QObject *sender);

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void loadBackupItems();
    void connectControls();
    bool backupsOn() const;
    void showLockLook(bool unlocked);
    void authorizationFinished(bool granted);
    // The lock cannot open because nobody can ask for the password.
    void showLockUnavailable(OVLock::Failure failure, const QString &details);

    std::unique_ptr<Ui::OVOrvanePrefView> m_ui;
    QPointer<OVRestoreWindow> m_restoreWindow;
    OVSafetyNet *m_safetyNet;
    OVOptionsSheet *m_optionsSheet;
    OVLogSheet *m_logSheet;
    OVBackupItemModel *m_backupItems;
    OVLock *m_lock;
    OVStatusMonitor *m_statusMonitor;
    OVItemsTable *m_itemsTable;
    OVUpdateNotice *m_updateNotice;
    OVHelpSheet *m_helpSheet;
    OVCredits *m_credits;
    OVToolReport *m_toolReport;
    OVAutoConnect *m_autoConnect;
    std::optional<QVariantMap> m_savedSettings;
    bool m_isAuthorized = false;
    OVToast::Detection m_toast;
    bool m_useAnacron = false;
    // What the last build made, handed to the helpers on their standard input.
    QList<QPair<QByteArray, QByteArray>> m_scheduledScripts;
    QByteArray m_manualScript;
    // The host's window, watched so that closing it saves (the host
    // destroys the module before the application quits).
    QPointer<QWidget> m_hostWindow;
    bool m_savedForClose = false;
    // Stores the auto-connect password from the options' fields; false (with
    // an alert) when the address is invalid or the store refused it.
    bool addAutoConnectPassword();
    // Leaving the module saves as closing its window does.
    void saveOnLeaving();
    // Stores the anacron choice again when the save's schedule had to drop it.
    void keepAnacronChoice(QVariantMap &domain);
};
