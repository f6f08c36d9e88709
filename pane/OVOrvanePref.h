// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "OVBackupItemModel.h"
#include "OVItemsTable.h"
#include "OVLock.h"
#include "OVLogSheet.h"
#include "OVOptionsSheet.h"
#include "OVPaneControls.h"
#include "OVRestoreWindow.h"
#include "OVSafetyNet.h"
#include "OVScheduleTables.h"
#include "OVStatusMonitor.h"
#include "OVToast.h"

#include <KCModule>

#include <QPointer>
#include <QPushButton>
#include <QVariantMap>
#include <array>
#include <memory>
#include <optional>

class OVAutoConnect;
class OVCredits;
class OVHelpSheet;
class OVLockView;
class OVSaveOnClose;
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

    OVBackupItemModel *backupItems() const
    {
        return m_backupItems;
    }
    bool hasBackupType(const QString &type) const
    {
        return m_backupItems->hasBackupType(type);
    }
    bool validateBackupItems() const
    {
        return m_backupItems->validateBackupItems(m_toast.installed);
    }
    void createNewBackupItem()
    {
        m_backupItems->createNewBackupItem();
    }
    bool isAuthorized() const
    {
        return m_isAuthorized;
    }
    bool isToastInstalled() const
    {
        return m_toast.installed;
    }
    QString fullPathToToast() const
    {
        return m_toast.fullPath;
    }
    QString toastApplicationName() const
    {
        return m_toast.applicationName;
    }
    // Finds Toast among the applications (at start-up).
    void setToastInstalled()
    {
        m_toast = OVToast::detect(OVToast::applicationFolders());
        m_backupItems->setToast(m_toast.installed, m_toast.fullPath);
    }
    bool useAnacron() const
    {
        return m_useAnacron;
    }
    OVOptionsSheet *optionsSheet() const
    {
        return m_optionsSheet;
    }
    OVSafetyNet *safetyNet() const
    {
        return m_safetyNet;
    }
    OVStatusMonitor *statusMonitor() const
    {
        return m_statusMonitor;
    }
    OVLogSheet *logSheet() const
    {
        return m_logSheet;
    }
    OVLock *lock() const
    {
        return m_lock;
    }
    OVHelpSheet *helpSheet() const
    {
        return m_helpSheet;
    }
    OVCredits *credits() const
    {
        return m_optionsSheet->credits();
    }

    // Puts the stored settings into the controls.
    void restoreSavedOptions();

    // The lock.
    bool isAdminUser() const
    {
        return OVLock::isAdminUser();
    }
    void initPrivilege()
    {
        m_lock->initPrivilege();
    }
    void removePrivilege();
    void authorizationChanged(bool authorized)
    {
        m_isAuthorized = authorized;
    }
    // Lets the table's rows be selected and edited, or not.
    void setTableEnabled(bool enabled);

    // Refreshes the enabled states after the items or their validity change.
    void updateUI();
    bool isBackupRunning()
    {
        return m_statusMonitor->isBackupRunning();
    }
    void updateLogButtons()
    {
        m_statusMonitor->updateLogButtons();
    }

    // The schedule: the pane's lines in the crontab or the anacron table.
    void buildCrontab()
    {
        OVScheduleTables::buildCrontab(m_optionsSheet->scheduleTimes(), m_backupItems->scheduledTypes());
    }
    void restoreCrontab()
    {
        OVScheduleTables::restoreCrontab();
    }
    bool buildAnacrontab()
    {
        // Anacron is gone: cron takes the schedule back.
        const bool built = OVScheduleTables::buildAnacrontab(m_backupItems->scheduledTypes());
        m_useAnacron = m_useAnacron && built;
        return built;
    }
    bool restoreAnacrontab()
    {
        return OVScheduleTables::restoreAnacrontab();
    }
    void installCrontab()
    {
        OVScheduleTables::installCrontab();
    }

    // The backup scripts: the three scheduled ones into /tmp for
    // install_scripts, and the manual one for manual_backup.
    void buildScheduledScripts()
    {
        m_scheduledScripts = m_optionsSheet->scheduledScripts(m_backupItems->items(), m_toast.applicationName);
    }
    void buildManualScript()
    {
        m_manualScript = m_optionsSheet->manualScript(m_backupItems->items(), m_toast.applicationName);
    }

public Q_SLOTS:
    // The lock button: opens the lock with an administrator's password, or
    // saves everything and closes it.
    void authenticate(QObject *sender);
    // The master switch; also re-applies every enabled state.
    void masterToggle(QObject *sender);
    void addBackupItem(QObject *sender);
    void deleteBackupItem(QObject *)
    {
        m_itemsTable->deleteSelected();
    }
    // The folder dialog for the selected row: tag 1 source, 2 destination.
    void chooseFolder(int tag)
    {
        m_itemsTable->chooseFolder(tag);
    }
    // The dialog ended: OK (1) takes the folder for the selected row.
    void openPanelDidEnd(int returnCode, const QString &path)
    {
        m_itemsTable->openPanelDidEnd(returnCode, path);
    }
    // Tag 6 (the Toast entry) sets the selected row's Toast flag; any other clears it.
    void setToastFlag(int tag)
    {
        m_itemsTable->setToastFlag(tag);
    }
    // Backs up the manual items now.
    void performBackup(QObject *sender);
    void viewLog(QObject *sender)
    {
        if (auto *button = qobject_cast<QPushButton *>(sender)) {
            m_logSheet->viewLog(button);
        }
    }
    void hideLogSheet(QObject *)
    {
        saveChanges(nullptr, nullptr);
        m_logSheet->done(QDialog::Accepted);
    }
    void verifyToolPermissions();
    void showOptions(QObject *sender);
    // OK (tag 0) stores and applies the settings; anything else throws the
    // edits away.
    void hideOptions(QObject *sender);
    void createSafetyNetFolder(QObject *)
    {
        m_safetyNet->createSafetyNetFolder();
    }
    void openSafetyNetFolder(QObject *)
    {
        m_safetyNet->openSafetyNetFolder();
    }
    void chooseSafetyNetFolder(QObject *)
    {
        if (m_safetyNet->chooseSafetyNetFolder(m_optionsSheet)) {
            m_optionsSheet->updatePrefsUI();
        }
    }
    // Connect: stores the server's password and mounts its volume now.
    void connectToServer(QObject *sender);
    // The "Restore…" window, at the selected item's source folder.
    // Restoring reads as the user and changes no setting: no unlock needed.
    void showRestore(QObject *)
    {
        m_restoreWindow = OVRestoreWindow::showAt(m_restoreWindow, m_itemsTable->restoreFolder());
    }

private:
    // An archive that cannot be decoded counts as absent.
    void loadBackupItems()
    {
        if (!m_backupItems->loadArchive()) {
            addBackupItem(this);
        }
    }
    void connectControls();
    bool backupsOn() const;

    std::unique_ptr<Ui::OVOrvanePrefView> m_ui;
    OVPaneControls m_controls;
    QPointer<OVRestoreWindow> m_restoreWindow;
    OVSafetyNet *m_safetyNet;
    OVOptionsSheet *m_optionsSheet;
    OVLogSheet *m_logSheet;
    OVBackupItemModel *m_backupItems;
    OVLock *m_lock;
    OVLockView *m_lockView;
    OVStatusMonitor *m_statusMonitor;
    OVItemsTable *m_itemsTable;
    OVUpdateNotice *m_updateNotice;
    OVHelpSheet *m_helpSheet;
    OVToolReport *m_toolReport;
    OVAutoConnect *m_autoConnect;
    OVSaveOnClose *m_saveOnClose;
    bool m_isAuthorized = false;
    OVToast::Detection m_toast;
    bool m_useAnacron = false;
    // What the last build made, handed to the helpers on their standard input.
    QList<QPair<QByteArray, QByteArray>> m_scheduledScripts;
    QByteArray m_manualScript;
    // Stores the auto-connect password from the options' fields; false (with
    // an alert) when the address is invalid or the store refused it.
    bool addAutoConnectPassword();
};
