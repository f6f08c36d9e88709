#include "OVOrvanePref.h"

#include "OVBackupItemModel.h"
#include "OVBundle.h"
#include "OVFolderLabel.h"
#include "OVItemDelegate.h"
#include "OVItemArchive.h"
#include "OVLocalizedStrings.h"
#include "OVLock.h"
#include "OVLogSheet.h"
#include "OVOptionsSheet.h"
#include "OVRestoreWindow.h"
#include "OVSafetyNet.h"
#include "OVScheduleTables.h"
#include "OVScriptBuilder.h"
#include "OVSettingsDomain.h"
#include "OVSoundMenu.h"
#include "OVStartupFiles.h"
#include "OVStatusMonitor.h"
#include "OVToast.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"
#include "ui_optionssheet.h"
#include "OVTemporaryFile.h"
#include "ui_orvanepref.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QMessageBox>
#include <QTimer>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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
    m_statusMonitor = new OVStatusMonitor({{{m_ui->lastDailyBackup, m_ui->dailyStatusImage},
                                            {m_ui->lastWeeklyBackup, m_ui->weeklyStatusImage},
                                            {m_ui->lastMonthlyBackup, m_ui->monthlyStatusImage}}},
                                          [this] {
                                              return m_isAuthorized;
                                          },
                                          this);
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
    action(m_ui->backupButton, &OVOrvanePref::performBackup);
    action(m_ui->restoreButton, &OVOrvanePref::showRestore);
    action(m_ui->lastDailyBackup, &OVOrvanePref::viewLog);
    action(m_ui->lastWeeklyBackup, &OVOrvanePref::viewLog);
    action(m_ui->lastMonthlyBackup, &OVOrvanePref::viewLog);
    action(m_optionsSheet->ui()->chooseArchiveFolderButton, &OVOrvanePref::chooseSafetyNetFolder);
    action(m_optionsSheet->ui()->openArchiveFolderButton, &OVOrvanePref::openSafetyNetFolder);
    connect(m_ui->masterPopUp, qOverload<int>(&QComboBox::activated), this, [this] {
        masterToggle(m_ui->masterPopUp);
    });
    connect(m_optionsSheet, &OVOptionsSheet::closeRequested, this, &OVOrvanePref::hideOptions);
    connect(m_logSheet, &OVLogSheet::closeRequested, this, [this] {
        hideLogSheet(m_logSheet);
    });
    connect(m_lock, &OVLock::authorizationFinished, this, &OVOrvanePref::authorizationFinished);
    connect(m_statusMonitor, &OVStatusMonitor::updated, this, &OVOrvanePref::updateUI);
}

OVOrvanePref::~OVOrvanePref()
{
    // The window's code lives in this module: it goes with the module (a
    // running restore stops between two whole files).
    delete m_restoreWindow.data();
}

void OVOrvanePref::mainViewDidLoad()
{
    m_savedSettings = OVSettingsDomain::read();
    const QString home = QDir::homePath();

    OVStartupFiles::installAlertSound(home);
    OVSoundMenu::fill(m_optionsSheet->soundPopUp(),
                      OVSoundMenu::soundFolders(home),
                      QIcon(QPixmap(OVBundle::pathForResource(QStringLiteral("sound"), QStringLiteral("tiff")))));
    prepareTable();

    OVStartupFiles::createSupportFolders();
    loadBackupItems();
    setToastInstalled();
    restoreSavedOptions();
    createSafetyNetFolder(this);

    const int master = m_savedSettings ? m_savedSettings->value(QStringLiteral("Master")).toInt() : 0;
    m_ui->masterPopUp->setCurrentIndex(master >= 0 && master < m_ui->masterPopUp->count() ? master : 0);

    // An administrator who left the pane open finds it open, without a
    // password; everyone else starts locked.
    const bool unlocked = isAdminUser() && m_savedSettings && !m_savedSettings->value(QStringLiteral("Locked")).toBool();
    showLockLook(unlocked);
    authorizationChanged(unlocked);
    m_ui->masterPopUp->setEnabled(m_isAuthorized);
    initPrivilege();
    masterToggle(this);

    QTimer::singleShot(1000, this, &OVOrvanePref::verifyToolPermissions);
    m_statusMonitor->startTimer(true);
    OVStartupFiles::removeLeftoverScripts();
}

bool OVOrvanePref::isAdminUser() const
{
    return OVLock::isAdminUser();
}

void OVOrvanePref::initPrivilege()
{
    m_lock->initPrivilege();
}

void OVOrvanePref::authorizationChanged(bool authorized)
{
    m_isAuthorized = authorized;
}

void OVOrvanePref::showLockLook(bool unlocked)
{
    m_ui->lockLabel->setText(OVLocalized(unlocked ? "PreventChanges" : "MakeChanges"));
    m_ui->lockButton->setIcon(QIcon(QPixmap(OVBundle::pathForResource(QLatin1String(unlocked ? "unlock" : "lock"), QStringLiteral("tiff")))));
    m_ui->lockButton->setChecked(!unlocked);
}

void OVOrvanePref::authenticate(QObject *sender)
{
    Q_UNUSED(sender)
    if (m_isAuthorized) {
        saveChanges(nullptr, nullptr);
        removePrivilege();
        return;
    }
    // The click toggled the button; it shows the closed lock until polkit says yes.
    m_ui->lockButton->setChecked(true);
    m_lock->requestAuthorization();
}

void OVOrvanePref::authorizationFinished(bool granted)
{
    if (!granted) {
        m_ui->lockButton->setChecked(true);
        return;
    }
    showLockLook(true);
    authorizationChanged(true);
    masterToggle(this);
}

void OVOrvanePref::removePrivilege()
{
    m_lock->removePrivilege();
    authorizationChanged(false);
    showLockLook(false);
    masterToggle(this);
    initPrivilege();
}

void OVOrvanePref::masterToggle(QObject *sender)
{
    Q_UNUSED(sender)
    const bool on = m_ui->masterPopUp->currentIndex() == 0;
    if (m_isAuthorized && m_ui->masterPopUp->currentIndex() == 1) {
        OVToolLauncher::launch(OVFixedPaths::RemoveScriptsTool);
        if (m_useAnacron) {
            restoreAnacrontab();
        } else {
            restoreCrontab();
        }
        installCrontab();
    }
    m_ui->masterPopUp->setEnabled(m_isAuthorized);
    setTableEnabled(on && m_isAuthorized);
    for (QWidget *status : {m_ui->lastDailyBackup, m_ui->lastWeeklyBackup, m_ui->lastMonthlyBackup}) {
        status->setEnabled(m_isAuthorized);
    }
    m_ui->addFolderButton->setEnabled(on && m_isAuthorized);
    m_ui->deleteFolderButton->setEnabled(on && m_isAuthorized && m_backupItems->rowCount() > 1);
    m_ui->optionsButton->setEnabled(m_isAuthorized);
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
    const bool on = m_ui->masterPopUp->currentIndex() == 0;
    m_ui->deleteFolderButton->setEnabled(on && m_isAuthorized && m_backupItems->rowCount() > 1);
    // In this order: the items are checked whenever backups are on.
    m_ui->backupButton->setEnabled(on && validateBackupItems() && m_isAuthorized && !isBackupRunning());
}

bool OVOrvanePref::isBackupRunning()
{
    return m_statusMonitor->isBackupRunning();
}

void OVOrvanePref::updateLogButtons()
{
    m_statusMonitor->updateLogButtons();
}

std::array<bool, 3> OVOrvanePref::scheduledTypes() const
{
    return {hasBackupType(QStringLiteral("daily")), hasBackupType(QStringLiteral("weekly")), hasBackupType(QStringLiteral("monthly"))};
}

void OVOrvanePref::buildCrontab()
{
    OVScheduleTables::buildCrontab(m_optionsSheet->scheduleTimes(), scheduledTypes());
}

void OVOrvanePref::restoreCrontab()
{
    OVScheduleTables::restoreCrontab();
}

bool OVOrvanePref::buildAnacrontab()
{
    if (!OVScheduleTables::buildAnacrontab(scheduledTypes())) {
        // Anacron is gone: cron takes the schedule back.
        m_useAnacron = false;
        return false;
    }
    return true;
}

bool OVOrvanePref::restoreAnacrontab()
{
    return OVScheduleTables::restoreAnacrontab();
}

void OVOrvanePref::installCrontab()
{
    OVScheduleTables::installCrontab();
}

namespace
{
struct ScriptFiles {
    const char *frequency;
    const char *prefix;
    const char *temporary;
    const char *logfile;
    const char *folder;
};
const ScriptFiles Scheduled[] = {
    {"Daily", "daily", OVFixedPaths::TmpDailyScript, OVFixedPaths::DailyLog, OVFixedPaths::DailyFolder},
    {"Weekly", "weekly", OVFixedPaths::TmpWeeklyScript, OVFixedPaths::WeeklyLog, OVFixedPaths::WeeklyFolder},
    {"Monthly", "monthly", OVFixedPaths::TmpMonthlyScript, OVFixedPaths::MonthlyLog, OVFixedPaths::MonthlyFolder},
};

QString currentUserName()
{
    const passwd *pw = getpwuid(getuid());
    return pw ? QString::fromLocal8Bit(pw->pw_name) : QString();
}
}

OVScriptBuilder::FrequencyOptions OVOrvanePref::frequencyOptions(const char *prefix) const
{
    auto checked = [this, prefix](const char *option) {
        const auto *check = m_optionsSheet->findChild<QCheckBox *>(QString::fromLatin1(prefix) + QString::fromLatin1(option));
        return check && check->isChecked();
    };
    OVScriptBuilder::FrequencyOptions options;
    options.mirror = checked("MirrorFoldersCheck");
    options.remote = checked("RemoteBackupCheck");
    options.showProgress = checked("ShowProgressCheck");
    options.repairPermissions = checked("RepairPermissionsCheck");
    return options;
}

OVScriptBuilder::SharedOptions OVOrvanePref::sharedScriptOptions(bool scheduled) const
{
    const Ui::OVOptionsSheet *ui = m_optionsSheet->ui();
    OVScriptBuilder::SharedOptions shared;
    shared.scheduled = scheduled;
    shared.promptBeforeBackup = ui->promptBeforeBackupCheck->isChecked();
    shared.waitUntilAway = ui->waitUntilAwayCheck->isChecked();
    shared.autoConnect = ui->autoConnectCheck->isChecked();
    shared.server = ui->serverAddressField->text();
    shared.account = ui->userNameField->text();
    shared.volume = ui->volumeField->text();
    shared.safetyNet = ui->useSafetyNetCheck->isChecked();
    shared.maxArchives = ui->maxArchivesField->text();
    shared.archiveIndex = ui->archivePopUp->currentIndex();
    shared.safetyNetFolder = m_safetyNet->safetyNetFolder();
    shared.toastApplication = m_toastName;
    shared.username = currentUserName();
    return shared;
}

void OVOrvanePref::gatherItems(int frequency, QList<QByteArray> &sources, QList<QByteArray> &destinations) const
{
    for (const OVBackupItem &item : m_backupItems->items()) {
        if (item.frequencyColumn() != frequency || !item.checkColumn() || !item.isComplete()) {
            continue;
        }
        sources.append(QFile::encodeName(item.sourcePath()));
        destinations.append(item.toast() ? QByteArray("Toast") : QFile::encodeName(item.destPath()));
    }
}

void OVOrvanePref::buildScheduledScripts()
{
    const QByteArray templateText = OVScriptBuilder::readTemplate();
    const OVScriptBuilder::SharedOptions shared = sharedScriptOptions(true);
    for (int frequency = 0; frequency < 3; ++frequency) {
        const ScriptFiles &files = Scheduled[frequency];
        OVTemporaryFile::remove(QString::fromUtf8(files.temporary));
        OVScriptBuilder::Script script;
        gatherItems(frequency, script.sources, script.destinations);
        if (script.sources.isEmpty() || templateText.isEmpty()) {
            continue;
        }
        script.frequency = files.frequency;
        script.logfile = files.logfile;
        script.lastBackup = QByteArray(files.folder) + "/.lastbackup";
        script.options = frequencyOptions(files.prefix);
        OVTemporaryFile::write(QString::fromUtf8(files.temporary), OVScriptBuilder::fill(templateText, script, shared));
    }
}

void OVOrvanePref::buildManualScript()
{
    OVScriptBuilder::Script script;
    gatherItems(OVBackupItem::Manual, script.sources, script.destinations);
    const QByteArray templateText = OVScriptBuilder::readTemplate();
    if (script.sources.isEmpty() || templateText.isEmpty()) {
        return;
    }
    // A manual run logs and marks as a daily one.
    script.frequency = "Daily";
    script.logfile = OVFixedPaths::DailyLog;
    script.lastBackup = QByteArray(OVFixedPaths::DailyFolder) + "/.lastbackup";
    script.options = frequencyOptions("manually");
    OVTemporaryFile::write(QString::fromUtf8(OVFixedPaths::TmpManualScript), OVScriptBuilder::fill(templateText, script, sharedScriptOptions(false)));
}

void OVOrvanePref::performBackup(QObject *sender)
{
    Q_UNUSED(sender)
    if (m_ui->masterPopUp->currentIndex() != 0) {
        return;
    }
    buildManualScript();
    OVToolLauncher::launch(OVFixedPaths::ManualBackupTool);
    showAlertSheet(QMessageBox::Information, "ManualBackup", "ManualBackupExplanation", QStringLiteral("manualBackupSheet"));
}

void OVOrvanePref::viewLog(QObject *sender)
{
    if (auto *button = qobject_cast<QPushButton *>(sender)) {
        m_logSheet->viewLog(button);
    }
}

void OVOrvanePref::hideLogSheet(QObject *sender)
{
    Q_UNUSED(sender)
    saveChanges(nullptr, nullptr);
    m_logSheet->done(QDialog::Accepted);
}

void OVOrvanePref::prepareTable()
{
    // The frequency menu's fourth entry is no frequency: a separator.
    QComboBox *frequencies = m_ui->frequencyMenu;
    frequencies->removeItem(OVBackupItem::NoSchedule);
    frequencies->insertSeparator(OVBackupItem::NoSchedule);
    QStringList titles;
    for (int i = 0; i < frequencies->count(); ++i) {
        titles.append(frequencies->itemText(i));
    }
    m_backupItems->setFrequencyTitles(titles);

    m_ui->tableView->setModel(m_backupItems);
    auto *delegate = new OVItemDelegate(m_ui->tableView);
    m_ui->tableView->setItemDelegate(delegate);
    connect(delegate, &OVItemDelegate::entryChosen, this, &OVOrvanePref::menuEntryChosen, Qt::QueuedConnection);
    connect(m_backupItems, &OVBackupItemModel::itemEdited, this, &OVOrvanePref::updateUI);
    QHeaderView *header = m_ui->tableView->horizontalHeader();
    header->setSectionResizeMode(OVBackupItemModel::CheckColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(OVBackupItemModel::FrequencyColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(OVBackupItemModel::SourceColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(OVBackupItemModel::DestColumn, QHeaderView::Stretch);
}

void OVOrvanePref::loadBackupItems()
{
    m_backupItems->setItems({});
    // An archive that cannot be decoded counts as absent; archive_table
    // keeps it beside the next one saved, so it is not lost.
    const auto items = OVItemArchive::load(QString::fromUtf8(OVFixedPaths::ItemsArchive));
    if (items) {
        m_backupItems->setItems(*items);
    } else {
        addBackupItem(this);
    }
}

void OVOrvanePref::restoreSavedOptions()
{
    const auto domain = OVSettingsDomain::read();
    if (!OVBundle::infoDictionary().isEmpty()) {
        m_optionsSheet->setVersionText(OVLocalized("Version") + OVBundle::shortVersion());
    }
    m_optionsSheet->selectSoundTitled(QStringLiteral("Magic Bell"));
    if (domain) {
        m_optionsSheet->restore(*domain);
        const QString folder = domain->value(QStringLiteral("SafetyNetFolder")).toString();
        m_safetyNet->setSafetyNetFolder(folder.isEmpty() ? OVSafetyNet::defaultFolder() : folder);
        m_logSheet->setShowOnlyErrors(domain->value(QStringLiteral("ShowOnlyErrors")).toBool());
        m_useAnacron = domain->value(QStringLiteral("UseAnacron")).toBool();
    }
    m_optionsSheet->updatePrefsUI();
}

bool OVOrvanePref::saveChanges(QEvent *notification, QObject *sender)
{
    Q_UNUSED(notification)
    Q_UNUSED(sender)
    QVariantMap domain = m_optionsSheet->values();
    domain.insert(QStringLiteral("Master"), m_ui->masterPopUp->currentIndex());
    domain.insert(QStringLiteral("UseAnacron"), m_useAnacron);
    domain.insert(QStringLiteral("SafetyNetFolder"), m_safetyNet->safetyNetFolder());
    domain.insert(QStringLiteral("ShowOnlyErrors"), m_logSheet->showOnlyErrors());
    domain.insert(QStringLiteral("Locked"), m_ui->lockButton->isChecked());
    OVSettingsDomain::replace(domain);

    const bool on = m_ui->masterPopUp->currentIndex() == 0;
    if (m_isAuthorized && on) {
        if (m_useAnacron && buildAnacrontab()) {
            restoreCrontab();
        } else {
            buildCrontab();
            restoreAnacrontab();
        }
        installCrontab();
    }

    OVItemArchive::writeTemporary(m_backupItems->items());
    if (m_isAuthorized) {
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool);
        if (m_isAuthorized && m_ui->masterPopUp->currentIndex() == 0) {
            buildScheduledScripts();
            OVToolLauncher::launch(OVFixedPaths::InstallScriptsTool);
        }
    }
    return true;
}

void OVOrvanePref::showOptions(QObject *sender)
{
    Q_UNUSED(sender)
    m_optionsSheet->ui()->optionsTabView->setCurrentIndex(0);
    // The status is not refreshed while the dialog is open.
    m_statusMonitor->stopTimer();
    restoreSavedOptions();
    m_optionsSheet->open();
    m_optionsSheet->setAnacronInControl(m_useAnacron && QFileInfo::exists(QString::fromUtf8(OVFixedPaths::Anacrontab)));
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

void OVOrvanePref::createSafetyNetFolder(QObject *sender)
{
    Q_UNUSED(sender)
    m_safetyNet->createSafetyNetFolder();
}

void OVOrvanePref::openSafetyNetFolder(QObject *sender)
{
    Q_UNUSED(sender)
    m_safetyNet->openSafetyNetFolder();
}

void OVOrvanePref::chooseSafetyNetFolder(QObject *sender)
{
    Q_UNUSED(sender)
    if (m_safetyNet->chooseSafetyNetFolder(m_optionsSheet)) {
        m_optionsSheet->updatePrefsUI();
    }
}

bool OVOrvanePref::hasBackupType(const QString &type) const
{
    return m_backupItems->hasBackupType(type);
}

bool OVOrvanePref::validateBackupItems() const
{
    return m_backupItems->validateBackupItems(m_isToastInstalled);
}

void OVOrvanePref::createNewBackupItem()
{
    m_backupItems->createNewBackupItem();
}

void OVOrvanePref::addBackupItem(QObject *sender)
{
    Q_UNUSED(sender)
    createNewBackupItem();
    updateUI();
    m_ui->tableView->scrollToBottom();
}

void OVOrvanePref::setToastInstalled()
{
    const OVToast::Detection toast = OVToast::detect(OVToast::applicationFolders());
    m_isToastInstalled = toast.installed;
    if (toast.installed) {
        m_fullPathToToast = toast.fullPath;
        m_toastApplicationName = toast.applicationNameLine;
        m_toastName = toast.applicationName;
    }
    m_backupItems->setToast(m_isToastInstalled, m_fullPathToToast);
}

void OVOrvanePref::showRestore(QObject *sender)
{
    Q_UNUSED(sender)
    // Restoring reads as the user and changes no setting: no unlock needed.
    QString path;
    const int row = selectedRow();
    if (row >= 0 && row < m_backupItems->items().size()) {
        path = m_backupItems->item(row).sourcePath();
    }
    for (int i = 0; path.isEmpty() && i < m_backupItems->items().size(); ++i) {
        path = m_backupItems->item(i).sourcePath();
    }
    if (path.isEmpty()) {
        path = QDir::homePath();
    }
    if (!m_restoreWindow) {
        m_restoreWindow = new OVRestoreWindow;
        m_restoreWindow->setAttribute(Qt::WA_DeleteOnClose);
    }
    m_restoreWindow->openAt(path);
    m_restoreWindow->show();
    m_restoreWindow->raise();
    m_restoreWindow->activateWindow();
}

int OVOrvanePref::selectedRow() const
{
    const QItemSelectionModel *selection = m_ui->tableView->selectionModel();
    const QModelIndexList rows = selection ? selection->selectedRows() : QModelIndexList();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void OVOrvanePref::menuEntryChosen(int row, int column, int tag)
{
    Q_UNUSED(row)
    if (column == OVBackupItemModel::SourceColumn && tag == OVBackupItemModel::ChooseSourceTag) {
        chooseFolder(tag);
    } else if (column == OVBackupItemModel::DestColumn) {
        if (tag == OVBackupItemModel::ChooseDestinationTag) {
            chooseFolder(tag);
        } else {
            setToastFlag(tag);
        }
    }
}

void OVOrvanePref::chooseFolder(int tag)
{
    const int row = selectedRow();
    if (row < 0) {
        return;
    }
    m_currentCell = tag;
    if (tag == OVBackupItemModel::ChooseDestinationTag) {
        setToastFlag(tag);
    }
    const OVBackupItem &item = m_backupItems->item(row);
    const QString current = tag == OVBackupItemModel::ChooseDestinationTag ? item.destPath() : item.sourcePath();
    auto *panel = new QFileDialog(this);
    panel->setObjectName(QStringLiteral("folderPanel"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::Directory);
    panel->setOption(QFileDialog::ShowDirsOnly);
    panel->setLabelText(QFileDialog::Accept, OVLocalized("Choose"));
    panel->setDirectory(!current.isEmpty() && QFileInfo(current).isDir() ? current : QDir::homePath());
    panel->setWindowModality(Qt::WindowModal);
    connect(panel, &QFileDialog::finished, this, [this, panel](int result) {
        const QStringList chosen = panel->selectedFiles();
        openPanelDidEnd(result == QDialog::Accepted ? 1 : 0, chosen.isEmpty() ? QString() : chosen.constFirst());
    });
    panel->open();
}

void OVOrvanePref::openPanelDidEnd(int returnCode, const QString &path)
{
    const int row = selectedRow();
    if (returnCode == 1 && row >= 0 && !path.isEmpty()) {
        m_backupItems->setFolder(row, m_currentCell, path, OVFolderLabel::labelForPath(path));
    }
    updateUI();
}

void OVOrvanePref::setToastFlag(int tag)
{
    const int row = selectedRow();
    if (row >= 0) {
        m_backupItems->setToastFlag(row, tag == OVBackupItemModel::ToastTag);
    }
}

void OVOrvanePref::deleteBackupItem(QObject *sender)
{
    Q_UNUSED(sender)
    const QModelIndexList selected = m_ui->tableView->selectionModel() ? m_ui->tableView->selectionModel()->selectedRows() : QModelIndexList();
    if (selected.isEmpty()) {
        return;
    }
    m_backupItems->removeItem(selected.first().row());
    updateUI();
}

void OVOrvanePref::verifyToolPermissions()
{
    struct stat st;
    if (::stat(OVFixedPaths::ManualBackupToolPath, &st) == 0 && (st.st_mode & S_ISUID)) {
        return;
    }
    showAlertSheet(QMessageBox::Critical, "InstallationProblem", "NeedToReinstall", QStringLiteral("installationProblemAlert"));
}

void OVOrvanePref::showAlertSheet(int icon, const char *titleKey, const char *messageKey, const QString &name)
{
    auto *alert = new QMessageBox(QMessageBox::Icon(icon), OVLocalized(titleKey), OVLocalized(messageKey), QMessageBox::NoButton, this);
    alert->setObjectName(name);
    alert->addButton(OVLocalized("OK"), QMessageBox::AcceptRole);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
}

void OVOrvanePref::showEvent(QShowEvent *event)
{
    KCModule::showEvent(event);
    if (!m_hostWindow && window() != this) {
        m_hostWindow = window();
        m_hostWindow->installEventFilter(this);
    }
}

bool OVOrvanePref::eventFilter(QObject *watched, QEvent *event)
{
    // Leaving for another module saves nothing; closing the host does.
    // A close is followed by a hide: one save serves both.
    if (watched == m_hostWindow && isVisibleTo(m_hostWindow)) {
        if (event->type() == QEvent::Show) {
            m_savedForClose = false;
        } else if (!m_savedForClose && (event->type() == QEvent::Close || (event->type() == QEvent::Hide && !m_hostWindow->isMinimized()))) {
            m_savedForClose = true;
            saveChanges(event, nullptr);
        }
    }
    return KCModule::eventFilter(watched, event);
}
