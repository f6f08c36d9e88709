// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVOrvanePref.h"

#include "OVAlert.h"
#include "OVAutoConnect.h"
#include "OVBundle.h"
#include "OVHelpSheet.h"
#include "OVItemArchive.h"
#include "OVLockView.h"
#include "OVSaveOnClose.h"
#include "OVSettingsDomain.h"
#include "OVSettingsTable.h"
#include "OVStartupFiles.h"
#include "OVToolLauncher.h"
#include "OVToolReport.h"
#include "OVUpdateNotice.h"
#include "ovfixedpaths.h"
#include "ui_orvanepref.h"

#include <QDir>
#include <QTimer>

OVOrvanePref::OVOrvanePref(QWidget *parent, const QVariantList &args)
    : KCModule(parent, args)
    , m_ui(std::make_unique<Ui::OVOrvanePrefView>())
    , m_safetyNet(new OVSafetyNet(this))
    , m_optionsSheet(new OVOptionsSheet(m_safetyNet, this))
    , m_logSheet(new OVLogSheet(this))
    , m_backupItems(new OVBackupItemModel(this))
    , m_lock(new OVLock(this))
{
    // Changes are saved by the pane itself, never by the host's buttons.
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
    m_saveOnClose = new OVSaveOnClose(this, m_toolReport, [this](QEvent *event) {
        saveChanges(event, nullptr);
    });
    connectControls();
    mainViewDidLoad();
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
    });
    connect(m_statusMonitor, &OVStatusMonitor::updated, this, &OVOrvanePref::updateUI);
}

OVOrvanePref::~OVOrvanePref()
{
    m_saveOnClose->saveOnLeaving();
    // The window's code lives in this module: it goes with the module (a
    // running restore stops between two whole files).
    delete m_restoreWindow.data();
}

void OVOrvanePref::mainViewDidLoad()
{
    const std::optional<QVariantMap> saved = OVSettingsDomain::read();
    const QString home = QDir::homePath();

    OVStartupFiles::installAlertSound(home);
    m_optionsSheet->fillSoundPopUp(home);

    OVStartupFiles::createSupportFolders();
    loadBackupItems();
    setToastInstalled();
    m_helpSheet->loadHelpPage();
    restoreSavedOptions();
    createSafetyNetFolder(this);

    const int master = OVSettingsTable::value(saved.value_or(QVariantMap()), "Master").toInt();
    m_ui->masterPopUp->setCurrentIndex(master >= 0 && master < m_ui->masterPopUp->count() ? master : 0);

    // An administrator who left the pane open finds it open, without a
    // password; everyone else starts locked.
    const bool unlocked = isAdminUser() && saved && !OVSettingsTable::value(*saved, "Locked").toBool();
    m_lockView->showLook(unlocked);
    authorizationChanged(unlocked);
    m_ui->masterPopUp->setEnabled(m_isAuthorized);
    initPrivilege();
    masterToggle(this);

    QTimer::singleShot(1000, this, &OVOrvanePref::verifyToolPermissions);
    m_statusMonitor->startTimer(true);
    // Late enough that the pane is on screen before an update sheet may appear.
    if (saved && OVSettingsTable::value(*saved, "CheckForUpdates").toBool()) {
        QTimer::singleShot(1250, m_updateNotice, &OVUpdateNotice::checkForNewerVersion);
    }
    OVStartupFiles::removeLeftoverScripts();
}

void OVOrvanePref::authenticate(QObject *)
{
    if (m_isAuthorized) {
        saveChanges(nullptr, nullptr);
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
    initPrivilege();
}

bool OVOrvanePref::backupsOn() const
{
    return m_ui->masterPopUp->currentIndex() == 0;
}

void OVOrvanePref::masterToggle(QObject *)
{
    if (m_isAuthorized && m_ui->masterPopUp->currentIndex() == 1) {
        OVToolLauncher::launch(OVFixedPaths::RemoveScriptsTool);
        OVScheduleTables::removeSchedule(m_useAnacron);
    }
    setTableEnabled(backupsOn() && m_isAuthorized);
    m_controls.applySwitch(m_isAuthorized, backupsOn(), m_backupItems->rowCount());
    updateLogButtons();
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
        return validateBackupItems() && !isBackupRunning();
    });
}

void OVOrvanePref::performBackup(QObject *)
{
    if (!backupsOn()) {
        return;
    }
    buildManualScript();
    OVToolLauncher::launch(OVFixedPaths::ManualBackupTool, m_manualScript);
    OVAlert::show(this, QMessageBox::Information, "ManualBackup", "ManualBackupExplanation", QStringLiteral("manualBackupSheet"));
}

void OVOrvanePref::restoreSavedOptions()
{
    const auto domain = OVSettingsDomain::read();
    m_optionsSheet->restoreSaved(domain);
    if (domain) {
        m_logSheet->setShowOnlyErrors(OVSettingsTable::value(*domain, "ShowOnlyErrors").toBool());
    }
    m_useAnacron = m_optionsSheet->useAnacron();
    const OVOptionsSheet::RemoteFields remote = m_optionsSheet->remoteFields();
    m_optionsSheet->setRemotePassword(OVRemoteServer::autoConnectPassword({remote.address, remote.account, remote.volume}));
    m_optionsSheet->updatePrefsUI();
}

bool OVOrvanePref::saveChanges(QEvent *, QObject *sender)
{
    m_useAnacron = m_optionsSheet->useAnacron();
    QVariantMap domain = m_optionsSheet->values();
    domain.insert(QStringLiteral("Master"), m_ui->masterPopUp->currentIndex());
    domain.insert(QStringLiteral("UseAnacron"), m_useAnacron);
    domain.insert(QStringLiteral("SafetyNetFolder"), m_safetyNet->safetyNetFolder());
    domain.insert(QStringLiteral("ShowOnlyErrors"), m_logSheet->showOnlyErrors());
    domain.insert(QStringLiteral("Locked"), m_ui->lockButton->isChecked());
    OVSettingsDomain::replace(domain);

    if (m_isAuthorized && backupsOn()) {
        OVScheduleTables::applySchedule(m_useAnacron, m_optionsSheet->scheduleTimes(), m_backupItems->scheduledTypes());
        m_optionsSheet->keepAnacronChoice(m_useAnacron, domain);
    }

    // Only the options' OK touches the keychain.
    bool result = true;
    const OVOptionsSheet::RemoteFields remote = m_optionsSheet->remoteFields();
    if (sender == this && remote.autoConnect && remote.isComplete()) {
        result = addAutoConnectPassword();
    }

    if (m_isAuthorized) {
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool, OVItemArchive::archive(m_backupItems->items()));
        if (backupsOn()) {
            buildScheduledScripts();
            OVToolLauncher::launch(OVFixedPaths::InstallScriptsTool, OVToolLauncher::parts(m_scheduledScripts));
        }
    }
    return result;
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
        if (!saveChanges(nullptr, this)) {
            return;
        }
    } else {
        restoreSavedOptions();
    }
    m_optionsSheet->done(QDialog::Accepted);
    m_statusMonitor->startTimer(false);
}

void OVOrvanePref::addBackupItem(QObject *)
{
    createNewBackupItem();
    updateUI();
    m_ui->tableView->scrollToBottom();
}

void OVOrvanePref::verifyToolPermissions()
{
    if (!OVStartupFiles::manualBackupIsSetUserId()) {
        OVAlert::show(this, QMessageBox::Critical, "InstallationProblem", "NeedToReinstall", QStringLiteral("installationProblemAlert"));
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
