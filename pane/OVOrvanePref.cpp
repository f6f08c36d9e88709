// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVOrvanePref.h"

#include "OVAlert.h"
#include "OVAutoConnect.h"
#include "OVBackupItemModel.h"
#include "OVBundle.h"
#include "OVHelpSheet.h"
#include "OVItemArchive.h"
#include "OVItemsTable.h"
#include "OVLocalizedStrings.h"
#include "OVLock.h"
#include "OVLockView.h"
#include "OVLogSheet.h"
#include "OVOptionsSheet.h"
#include "OVRemoteServer.h"
#include "OVRestoreWindow.h"
#include "OVSafetyNet.h"
#include "OVSaveOnClose.h"
#include "OVScheduleTables.h"
#include "OVScriptBuilder.h"
#include "OVStartupFiles.h"
#include "OVStatusMonitor.h"
#include "OVToolLauncher.h"
#include "OVToolReport.h"
#include "OVUpdateNotice.h"
#include "ovfixedpaths.h"
#include "ovpane_debug.h"
#include "ui_orvanepref.h"

#include <KMessageWidget>

#include <QAction>
#include <QDir>
#include <QLocale>
#include <QTimer>

namespace
{
// The items as the user made them: whether a tick box can be used follows
// the lock and the folders, not an edit.
QVector<OVBackupItem> asEdited(QVector<OVBackupItem> items)
{
    for (OVBackupItem &item : items) {
        item.setCheckEnabled(false);
    }
    return items;
}
}

OVOrvanePref::OVOrvanePref(QWidget *parent, const QVariantList &args)
    : KCModule(parent, args)
    , m_ui(std::make_unique<Ui::OVOrvanePrefView>())
    , m_safetyNet(new OVSafetyNet(&m_settings, this))
    , m_optionsSheet(new OVOptionsSheet(&m_settings, m_safetyNet, this))
    , m_logSheet(new OVLogSheet(this))
    , m_backupItems(new OVBackupItemModel(this))
    , m_lock(new OVLock(this))
{
    // Changes are saved by the pane itself (the options' OK, the lock,
    // leaving), never by the host's buttons.
    setButtons(NoAdditionalButton);
    m_ui->setupUi(this);
    m_controls = {m_ui->masterPopUp,
                  {m_ui->lastDailyBackup, m_ui->lastWeeklyBackup, m_ui->lastMonthlyBackup},
                  m_ui->addFolderButton,
                  m_ui->deleteFolderButton,
                  m_ui->optionsButton,
                  m_ui->backupButton};
    const auto authorized = [this] {
        return m_isAuthorized;
    };
    m_statusMonitor = new OVStatusMonitor({{{m_ui->lastDailyBackup, m_ui->dailyStatusImage},
                                            {m_ui->lastWeeklyBackup, m_ui->weeklyStatusImage},
                                            {m_ui->lastMonthlyBackup, m_ui->monthlyStatusImage}}},
                                          authorized,
                                          this);
    m_itemsTable = new OVItemsTable(m_ui->tableView, m_ui->frequencyMenu, m_backupItems, this);
    m_updateNotice = new OVUpdateNotice(this);
    m_helpSheet = new OVHelpSheet(OVBundle::pathForResource(QStringLiteral("help"), QStringLiteral("html")), this);
    m_toolReport = new OVToolReport(m_ui->toolMessage, this);
    m_autoConnect = new OVAutoConnect(this);
    m_lockView = new OVLockView(m_lock, m_ui->lockLabel, m_ui->lockButton, this);
    // Closing the host's window applies what waits, as leaving does.
    new OVSaveOnClose(this, [this] {
        if (m_isAuthorized && hasUnappliedChanges()) {
            save();
        }
    });
    connectControls();
    mainViewDidLoad();
}

OVOrvanePref::~OVOrvanePref()
{
    // Nothing is saved here: System Settings has asked already (the module
    // reports what it has not applied), and a save under way goes on
    // without the module. Edits the user neither applied nor discarded
    // (a host that does not ask) wait for the next opening.
    if (hasUnappliedChanges() && !OVSaveJob::unapplied()) {
        OVSaveJob::keepUnapplied(OVItemArchive::archive(m_backupItems->items()));
    }
    // The window's code lives in this module: it goes with the module (a
    // running restore stops between two whole files).
    delete m_restoreWindow.data();
}

void OVOrvanePref::connectControls()
{
    // Actions take their sender, as the controls' actions do.
    auto action = [this](QAbstractButton *button, void (OVOrvanePref::*slot)(QObject *)) {
        connect(button, &QAbstractButton::clicked, this, [this, button, slot] {
            (this->*slot)(button);
        });
    };
    action(m_ui->lockButton, &OVOrvanePref::authenticate);
    action(m_ui->addFolderButton, &OVOrvanePref::addBackupItem);
    action(m_ui->deleteFolderButton, &OVOrvanePref::deleteBackupItem);
    action(m_ui->optionsButton, &OVOrvanePref::showOptions);
    connect(m_ui->helpButton, &QAbstractButton::clicked, m_helpSheet, [this] {
        m_helpSheet->viewHelp(m_ui->helpButton);
    });
    action(m_ui->backupButton, &OVOrvanePref::performBackup);
    action(m_ui->restoreButton, &OVOrvanePref::showRestore);
    for (QAbstractButton *status : {m_ui->lastDailyBackup, m_ui->lastWeeklyBackup, m_ui->lastMonthlyBackup}) {
        action(status, &OVOrvanePref::viewLog);
    }
    connect(m_optionsSheet, &OVOptionsSheet::chooseSafetyNetFolderRequested, this, &OVOrvanePref::chooseSafetyNetFolder);
    connect(m_optionsSheet, &OVOptionsSheet::openSafetyNetFolderRequested, this, &OVOrvanePref::openSafetyNetFolder);
    connect(m_itemsTable, &OVItemsTable::changed, this, &OVOrvanePref::updateUI);
    connect(m_itemsTable, &OVItemsTable::restoreRequested, this, [this](const QString &source) {
        m_restoreWindow = OVRestoreWindow::showAt(m_restoreWindow, source);
    });
    connect(m_optionsSheet, &OVOptionsSheet::connectRequested, this, [this] {
        connectToServer(m_optionsSheet);
    });
    connect(m_ui->masterPopUp, qOverload<int>(&QComboBox::activated), this, [this] {
        masterToggle(m_ui->masterPopUp);
    });
    connect(m_optionsSheet, &OVOptionsSheet::closeRequested, this, &OVOrvanePref::hideOptions);
    connect(m_logSheet, &OVLogSheet::closeRequested, this, [this] {
        hideLogSheet(m_logSheet);
    });
    connect(m_lockView, &OVLockView::opened, this, [this] {
        authorizationChanged(true);
        masterToggle(this);
        if (std::exchange(m_applyWhenOpened, false)) {
            save();
        }
    });
    connect(m_statusMonitor, &OVStatusMonitor::updated, this, &OVOrvanePref::updateUI);

    auto *apply = new QAction(OVLocalized("ApplyChanges"), m_ui->unappliedMessage);
    apply->setObjectName(QStringLiteral("applyUnappliedAction"));
    connect(apply, &QAction::triggered, this, &OVOrvanePref::applyUnapplied);
    m_ui->unappliedMessage->addAction(apply);
    auto *discard = new QAction(OVLocalized("DiscardChanges"), m_ui->unappliedMessage);
    discard->setObjectName(QStringLiteral("discardUnappliedAction"));
    connect(discard, &QAction::triggered, this, &OVOrvanePref::discardUnapplied);
    m_ui->unappliedMessage->addAction(discard);
}

void OVOrvanePref::mainViewDidLoad()
{
    const QString home = QDir::homePath();
    OVStartupFiles::installAlertSound(home);
    m_optionsSheet->fillSoundPopUp(home);

    OVStartupFiles::createSupportFolders();
    m_toast = OVToast::detect(OVToast::applicationFolders());
    m_backupItems->setToast(m_toast.installed, m_toast.fullPath);
    m_helpSheet->loadHelpPage();

    const bool stored = m_settings.load();
    if (const auto kept = OVSaveJob::unapplied()) {
        // A save that was not applied: its items, and the offer to apply them.
        const auto items = OVItemArchive::unarchive(kept->items);
        m_backupItems->setItems(items.value_or(QVector<OVBackupItem>()));
        m_saveOwed = true;
        m_unappliedReason = OVLocalized("UnappliedSince").arg(QLocale::system().toString(kept->made, QLocale::ShortFormat));
        if (!m_backupItems->rowCount()) {
            addBackupItem(this);
        }
    } else if (!m_backupItems->loadArchive()) {
        // An archive that cannot be decoded counts as absent.
        addBackupItem(this);
    }
    m_appliedItems = asEdited(m_backupItems->items());
    restoreSavedOptions();
    createSafetyNetFolder(this);

    const int master = m_settings.master();
    m_ui->masterPopUp->setCurrentIndex(master < m_ui->masterPopUp->count() ? master : 0);

    // An administrator who left the pane open finds it open, without a
    // password; everyone else starts locked.
    const bool unlocked = OVLock::isAdminUser() && stored && !m_settings.locked();
    m_lockView->showLook(unlocked);
    authorizationChanged(unlocked);
    m_ui->masterPopUp->setEnabled(m_isAuthorized);
    m_lock->initPrivilege();
    masterToggle(this);

    QTimer::singleShot(1000, this, &OVOrvanePref::verifyToolPermissions);
    m_statusMonitor->startTimer(true);
    // Late enough that the pane is on screen before an update sheet may appear.
    if (stored && m_settings.checkForUpdates()) {
        QTimer::singleShot(1250, m_updateNotice, &OVUpdateNotice::checkForNewerVersion);
    }
    OVStartupFiles::removeLeftoverScripts();
    // The host hears what waits once it watches the module.
    QTimer::singleShot(0, this, &OVOrvanePref::updateUnapplied);
}

void OVOrvanePref::showEvent(QShowEvent *event)
{
    // Not KCModule's first-show load: the module loaded when it was made
    // (start-up needs the items and settings), and loading again would
    // throw away what happened since.
    QWidget::showEvent(event);
}

void OVOrvanePref::load()
{
    // The host's Reset, or Discard as the user leaves: what was not applied
    // is thrown away.
    OVSaveJob::forgetUnapplied();
    m_saveOwed = false;
    m_settingsEdited = false;
    m_unappliedReason.clear();
    if (!m_backupItems->loadArchive()) {
        addBackupItem(this);
    }
    m_appliedItems = asEdited(m_backupItems->items());
    restoreSavedOptions();
    m_ui->masterPopUp->setCurrentIndex(m_settings.master() < m_ui->masterPopUp->count() ? m_settings.master() : 0);
    masterToggle(this);
    updateUnapplied();
}

void OVOrvanePref::save()
{
    storeSettings();
    if (!m_isAuthorized) {
        return;
    }
    startJob(saveSteps(), true);
}

void OVOrvanePref::defaults()
{
    m_settings.setDefaults();
    storeSettings();
    m_optionsSheet->load();
    m_settingsEdited = true;
    updateUnapplied();
}

bool OVOrvanePref::saveChanges(QEvent *, QObject *sender)
{
    storeSettings();
    // Only the options' OK touches the keychain.
    bool result = true;
    const OVOptionsSheet::RemoteFields remote = m_optionsSheet->remoteFields();
    if (sender == this && remote.autoConnect && remote.isComplete()) {
        result = addAutoConnectPassword();
    }
    if (m_isAuthorized) {
        startJob(saveSteps(), true);
    }
    return result;
}

void OVOrvanePref::storeSettings()
{
    // The pane's own keys, from its controls.
    m_settings.setMaster(m_ui->masterPopUp->currentIndex());
    m_settings.setLocked(m_ui->lockButton->isChecked());
    m_settings.setShowOnlyErrors(m_logSheet->showOnlyErrors());
    m_settings.save();
}

QVector<OVSaveJob::Step> OVOrvanePref::saveSteps()
{
    const QVector<OVBackupItem> &items = m_backupItems->items();
    QVector<OVSaveJob::Step> steps{{OVFixedPaths::ArchiveTableTool, OVItemArchive::archive(items)}};
    if (backupsOn()) {
        bool useAnacron = m_settings.useAnacron();
        const auto tables = OVScheduleTables::tables(useAnacron, OVScheduleTables::times(m_settings), m_backupItems->scheduledTypes());
        if (useAnacron != m_settings.useAnacron()) {
            // Anacron is gone: the box and the stored settings say so too.
            m_settings.setUseAnacron(useAnacron);
            m_settings.save();
            m_optionsSheet->load();
        }
        const auto scripts = OVScriptBuilder::buildScheduledScripts(items, m_settings, m_toast.applicationName);
        steps.append({OVFixedPaths::InstallScriptsTool, OVToolLauncher::parts(scripts)});
        steps.append({OVFixedPaths::InstallCrontabTool, OVToolLauncher::parts(tables)});
    }
    return steps;
}

void OVOrvanePref::startJob(const QVector<OVSaveJob::Step> &steps, bool withItems)
{
    const QByteArray items = OVItemArchive::archive(m_backupItems->items());
    OVSaveJob *job = OVSaveJob::start(steps, this, window() != this ? window() : nullptr, withItems ? std::optional<QByteArray>(items) : std::nullopt);
    connect(job, &OVSaveJob::finished, this, &OVOrvanePref::jobFinished);
    if (withItems) {
        // The job has them now: the host need not ask again unless it fails.
        m_appliedItems = asEdited(m_backupItems->items());
        m_settingsEdited = false;
        m_saveOwed = false;
        m_unappliedReason.clear();
        updateUnapplied();
    }
}

void OVOrvanePref::jobFinished(OVSaveJob::Outcome outcome, const QString &reason)
{
    if (outcome == OVSaveJob::Outcome::Done) {
        return;
    }
    m_saveOwed = true;
    m_unappliedReason = outcome == OVSaveJob::Outcome::NotAuthorized ? reason : QString();
    if (outcome == OVSaveJob::Outcome::NotAuthorized && m_isAuthorized) {
        // polkit says no: the pane does not look unlocked either.
        m_lockView->showLook(false);
        authorizationChanged(false);
        masterToggle(this);
    }
    updateUnapplied();
}

bool OVOrvanePref::hasUnappliedChanges() const
{
    return m_saveOwed || m_settingsEdited || asEdited(m_backupItems->items()) != m_appliedItems;
}

void OVOrvanePref::updateUnapplied()
{
    const bool unapplied = hasUnappliedChanges();
    // Only an unlocked pane can apply: then the host asks before leaving.
    unmanagedWidgetChangeState(unapplied && m_isAuthorized);
    const bool offer = m_saveOwed;
    if (offer) {
        QString text = OVLocalized("ChangesNotApplied");
        if (!m_unappliedReason.isEmpty()) {
            text += QLatin1Char('\n') + m_unappliedReason;
        }
        m_ui->unappliedMessage->setText(text);
    }
    if (offer == m_ui->unappliedMessage->isHidden()) {
        m_ui->unappliedMessage->setVisible(offer);
    }
}

void OVOrvanePref::applyUnapplied()
{
    if (m_isAuthorized) {
        save();
        return;
    }
    m_applyWhenOpened = true;
    m_lockView->requestOpen();
}

void OVOrvanePref::discardUnapplied()
{
    load();
}

void OVOrvanePref::authenticate(QObject *)
{
    if (m_isAuthorized) {
        save();
        removePrivilege();
        return;
    }
    m_lockView->requestOpen();
}

void OVOrvanePref::removePrivilege()
{
    m_lockView->close();
    authorizationChanged(false);
    masterToggle(this);
    m_lock->initPrivilege();
}

void OVOrvanePref::authorizationChanged(bool authorized)
{
    m_isAuthorized = authorized;
    updateUnapplied();
}

bool OVOrvanePref::backupsOn() const
{
    return m_ui->masterPopUp->currentIndex() == 0;
}

void OVOrvanePref::masterToggle(QObject *sender)
{
    if (m_isAuthorized && !backupsOn()) {
        // The schedule goes before the scripts it runs.
        auto *job = OVSaveJob::start({{OVFixedPaths::InstallCrontabTool, OVToolLauncher::parts(OVScheduleTables::tablesWithout(m_settings.useAnacron()))},
                                      {OVFixedPaths::RemoveScriptsTool, QByteArray()}},
                                     this,
                                     window() != this ? window() : nullptr);
        connect(job, &OVSaveJob::finished, this, [this](OVSaveJob::Outcome outcome, const QString &reason) {
            if (outcome == OVSaveJob::Outcome::Done) {
                return;
            }
            // Backups stay on: the switch says so, and why.
            m_ui->masterPopUp->setCurrentIndex(0);
            if (outcome == OVSaveJob::Outcome::NotAuthorized) {
                m_lockView->showLook(false);
                authorizationChanged(false);
            }
            masterToggle(this);
            QMessageBox *alert = OVAlert::show(this,
                                               QMessageBox::Warning,
                                               "BackupsNotSwitchedOff",
                                               "BackupsNotSwitchedOffExplanation",
                                               QStringLiteral("backupsNotSwitchedOffAlert"));
            alert->setInformativeText(reason);
        });
    } else if (sender == m_ui->masterPopUp && backupsOn()) {
        // Switched on: the scripts and the schedule come with the next save.
        m_settingsEdited = true;
        updateUnapplied();
    }
    setTableEnabled(backupsOn() && m_isAuthorized);
    m_controls.applySwitch(m_isAuthorized, backupsOn(), m_backupItems->rowCount());
    m_statusMonitor->updateLogButtons();
    m_ui->tableView->viewport()->update();
}

void OVOrvanePref::setTableEnabled(bool enabled)
{
    m_backupItems->setEditable(enabled);
    m_ui->tableView->clearSelection();
    updateUI();
}

void OVOrvanePref::updateUI()
{
    m_ui->tableView->viewport()->update();
    m_controls.applyItems(m_isAuthorized, backupsOn(), m_backupItems->rowCount(), [this] {
        return m_backupItems->validateBackupItems(m_toast.installed) && !m_statusMonitor->isBackupRunning();
    });
    updateUnapplied();
}

void OVOrvanePref::addBackupItem(QObject *)
{
    m_backupItems->createNewBackupItem();
    updateUI();
    m_ui->tableView->scrollToBottom();
}

void OVOrvanePref::deleteBackupItem(QObject *)
{
    m_itemsTable->deleteSelected();
}

void OVOrvanePref::chooseFolder(int tag)
{
    m_itemsTable->chooseFolder(tag);
}

void OVOrvanePref::openPanelDidEnd(int returnCode, const QString &path)
{
    m_itemsTable->openPanelDidEnd(returnCode, path);
}

void OVOrvanePref::performBackup(QObject *)
{
    if (!backupsOn()) {
        return;
    }
    const QByteArray script = OVScriptBuilder::buildManualScript(m_backupItems->items(), m_settings, m_toast.applicationName);
    OVToolLauncher::launch(OVFixedPaths::ManualBackupTool, script);
    OVAlert::show(this, QMessageBox::Information, "ManualBackup", "ManualBackupExplanation", QStringLiteral("manualBackupSheet"));
}

void OVOrvanePref::viewLog(QObject *sender)
{
    if (auto *button = qobject_cast<QPushButton *>(sender)) {
        m_logSheet->viewLog(button);
    }
}

void OVOrvanePref::hideLogSheet(QObject *)
{
    saveChanges(nullptr, nullptr);
    m_logSheet->done(QDialog::Accepted);
}

void OVOrvanePref::restoreSavedOptions()
{
    m_settings.load();
    m_optionsSheet->load();
    m_logSheet->setShowOnlyErrors(m_settings.showOnlyErrors());
    m_optionsSheet->setRemotePassword(
        OVRemoteServer::autoConnectPassword({m_settings.remoteServerAddress(), m_settings.remoteUserName(), m_settings.remoteVolumeName()}));
    m_optionsSheet->updatePrefsUI();
}

void OVOrvanePref::showOptions(QObject *)
{
    // The status is not refreshed while the dialog is open.
    m_statusMonitor->stopTimer();
    restoreSavedOptions();
    m_optionsSheet->openOnFirstTab();
}

void OVOrvanePref::hideOptions(QObject *sender)
{
    if (sender && sender->property("tag").toInt() == 0) {
        m_optionsSheet->apply();
        if (!saveChanges(nullptr, this)) {
            return;
        }
    } else {
        restoreSavedOptions();
    }
    m_optionsSheet->done(QDialog::Accepted);
    m_statusMonitor->startTimer(false);
}

void OVOrvanePref::verifyToolPermissions()
{
    if (!OVStartupFiles::manualBackupIsSetUserId()) {
        OVAlert::show(this, QMessageBox::Critical, "InstallationProblem", "NeedToReinstall", QStringLiteral("installationProblemAlert"));
    }
}

void OVOrvanePref::createSafetyNetFolder(QObject *)
{
    m_safetyNet->createSafetyNetFolder();
}

void OVOrvanePref::openSafetyNetFolder(QObject *)
{
    m_safetyNet->openSafetyNetFolder();
}

void OVOrvanePref::chooseSafetyNetFolder(QObject *)
{
    if (m_safetyNet->chooseSafetyNetFolder(m_optionsSheet)) {
        m_optionsSheet->updatePrefsUI();
    }
}

bool OVOrvanePref::addAutoConnectPassword()
{
    const OVOptionsSheet::RemoteFields remote = m_optionsSheet->remoteFields();
    return m_autoConnect->storePassword({remote.address, remote.account, remote.volume}, remote.password);
}

void OVOrvanePref::connectToServer(QObject *)
{
    const OVOptionsSheet::RemoteFields remote = m_optionsSheet->remoteFields();
    if (remote.isComplete()) {
        m_autoConnect->connectToServer({remote.address, remote.account, remote.volume}, remote.password);
    }
}

void OVOrvanePref::showRestore(QObject *)
{
    m_restoreWindow = OVRestoreWindow::showAt(m_restoreWindow, m_itemsTable->restoreFolder());
}
