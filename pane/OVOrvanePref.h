// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "OVBackupItem.h"
#include "OVPaneControls.h"
#include "OVSaveJob.h"
#include "OVSettings.h"
#include "OVToast.h"

#include <KCModule>

#include <QPointer>
#include <memory>

class OVAutoConnect;
class OVBackupItemModel;
class OVHelpSheet;
class OVItemsTable;
class OVLock;
class OVLockView;
class OVLogSheet;
class OVOptionsSheet;
class OVRestoreWindow;
class OVSafetyNet;
class OVStatusMonitor;
class OVToolReport;
class OVUpdateNotice;

namespace Ui
{
class OVOrvanePrefView;
}

// The Orvane module of System Settings. It only orders the subsystems' work
// (start-up, load, save, lock, master switch): the items and their table,
// the settings and their dialog, the lock, the scripts, the schedule and the
// status monitor each live in their own folder.
//
// A save stores the settings at once and hands the rest to root through an
// OVSaveJob, which asks polkit without making the host wait. Until a save's
// items are in place the module reports unsaved changes, so System Settings
// asks before the user leaves it; an edit that could not be applied is said
// so and offered again, here or at the next opening.
class OVOrvanePref : public KCModule
{
    Q_OBJECT
public:
    OVOrvanePref(QWidget *parent, const QVariantList &args);
    ~OVOrvanePref() override;

    // The stored settings and items into the module: the items waiting from
    // a save that was not applied, else the installed list.
    void load() override;
    // Stores the settings; while unlocked with backups on, puts the items,
    // the scripts and then the schedule in place (unlocked with backups off,
    // the items only).
    void save() override;
    // The options back to their defaults (stored by the next save).
    void defaults() override;

    // One-time preparation once the main view exists.
    void mainViewDidLoad();

    // A save; only the options' OK (sender: the pane itself) stores the
    // server's password, and false means that store failed.
    bool saveChanges(QEvent *notification, QObject *sender);

    const OVSettings &settings() const
    {
        return m_settings;
    }
    OVBackupItemModel *backupItems() const
    {
        return m_backupItems;
    }
    bool isAuthorized() const
    {
        return m_isAuthorized;
    }
    bool useAnacron() const
    {
        return m_settings.useAnacron();
    }
    // Items or a save that the helpers have not put in place yet.
    bool hasUnappliedChanges() const;
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

    // The stored settings into the options' controls.
    void restoreSavedOptions();

    void removePrivilege();
    void authorizationChanged(bool authorized);
    // Lets the table's rows be selected and edited, or not.
    void setTableEnabled(bool enabled);
    // Refreshes the enabled states after the items or their validity change.
    void updateUI();

public Q_SLOTS:
    // The lock button: opens the lock with an administrator's password, or
    // saves everything and closes it.
    void authenticate(QObject *sender);
    // The master switch; also re-applies every enabled state.
    void masterToggle(QObject *sender);
    void addBackupItem(QObject *sender);
    void deleteBackupItem(QObject *sender);
    // The folder dialog for the selected row: tag 1 source, 2 destination.
    void chooseFolder(int tag);
    // The dialog ended: OK (1) takes the folder for the selected row.
    void openPanelDidEnd(int returnCode, const QString &path);
    // Backs up the manual items now.
    void performBackup(QObject *sender);
    void viewLog(QObject *sender);
    void hideLogSheet(QObject *sender);
    void verifyToolPermissions();
    void showOptions(QObject *sender);
    // OK (tag 0) stores and applies the settings; anything else throws the
    // edits away.
    void hideOptions(QObject *sender);
    void createSafetyNetFolder(QObject *sender);
    void openSafetyNetFolder(QObject *sender);
    void chooseSafetyNetFolder(QObject *sender);
    // Connect: stores the server's password and mounts its volume now.
    void connectToServer(QObject *sender);
    // The "Restore…" window, at the selected item's source folder.
    // Restoring reads as the user and changes no setting: no unlock needed.
    void showRestore(QObject *sender);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void connectControls();
    bool backupsOn() const;
    // The settings domain, whole; the lock's and the log's state with it.
    void storeSettings();
    // What root puts in place for a save, in order: data first, the
    // schedule last.
    QVector<OVSaveJob::Step> saveSteps();
    void startJob(const QVector<OVSaveJob::Step> &steps, bool withItems);
    void jobFinished(OVSaveJob::Outcome outcome, const QString &reason);
    // Tells the host whether anything waits to be applied, and offers it.
    void updateUnapplied();
    // The unapplied changes' message: Apply (unlocking first) or Discard.
    void applyUnapplied();
    void discardUnapplied();
    bool addAutoConnectPassword();

    std::unique_ptr<Ui::OVOrvanePrefView> m_ui;
    OVSettings m_settings;
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
    bool m_isAuthorized = false;
    OVToast::Detection m_toast;
    // The items as root holds them (or as loaded); settings the next save
    // applies (backups switched on, the defaults); and a save that is owed:
    // one that failed, or came from an earlier session.
    QVector<OVBackupItem> m_appliedItems;
    bool m_settingsEdited = false;
    bool m_saveOwed = false;
    QString m_unappliedReason;
    // The unapplied changes' Apply waits for the lock to open.
    bool m_applyWhenOpened = false;
};
