#include "OVOrvanePref.h"

#include "OVBackupItemModel.h"
#include "OVBundle.h"
#include "OVItemArchive.h"
#include "OVLocalizedStrings.h"
#include "OVOptionsSheet.h"
#include "OVSafetyNet.h"
#include "OVSettingsDomain.h"
#include "OVSoundMenu.h"
#include "OVStartupFiles.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"
#include "ui_optionssheet.h"
#include "ui_orvanepref.h"

#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QMessageBox>
#include <QTimer>

#include <sys/stat.h>

OVOrvanePref::OVOrvanePref(QWidget *parent, const QVariantList &args)
    : KCModule(parent, args)
    , m_ui(std::make_unique<Ui::OVOrvanePrefView>())
    , m_safetyNet(new OVSafetyNet(this))
    , m_optionsSheet(new OVOptionsSheet(m_safetyNet, this))
    , m_backupItems(new OVBackupItemModel(this))
{
    // Changes are saved by the pane itself, never by the host's buttons.
    setButtons(NoAdditionalButton);
    m_ui->setupUi(this);

    connect(m_ui->optionsButton, &QPushButton::clicked, this, [this] {
        showOptions(m_ui->optionsButton);
    });
    connect(m_optionsSheet, &OVOptionsSheet::closeRequested, this, &OVOrvanePref::hideOptions);
    connect(m_optionsSheet->ui()->chooseArchiveFolderButton, &QPushButton::clicked, this, [this] {
        chooseSafetyNetFolder(m_optionsSheet->ui()->chooseArchiveFolderButton);
    });
    connect(m_optionsSheet->ui()->openArchiveFolderButton, &QPushButton::clicked, this, [this] {
        openSafetyNetFolder(m_optionsSheet->ui()->openArchiveFolderButton);
    });

    mainViewDidLoad();
}

OVOrvanePref::~OVOrvanePref() = default;

void OVOrvanePref::mainViewDidLoad()
{
    m_savedSettings = OVSettingsDomain::read();
    const QString home = QDir::homePath();

    OVStartupFiles::installAlertSound(home);
    OVSoundMenu::fill(m_optionsSheet->soundPopUp(),
                      OVSoundMenu::soundFolders(home),
                      QIcon(OVBundle::pathForResource(QStringLiteral("sound"), QStringLiteral("tiff"))));
    prepareTable();

    OVStartupFiles::createSupportFolders();
    loadBackupItems();
    restoreSavedOptions();
    createSafetyNetFolder(this);

    const int master = m_savedSettings ? m_savedSettings->value(QStringLiteral("Master")).toInt() : 0;
    m_ui->masterPopUp->setCurrentIndex(master >= 0 && master < m_ui->masterPopUp->count() ? master : 0);

    // Every start is locked until the lock is opened.
    m_ui->lockButton->setIcon(QIcon(OVBundle::pathForResource(QStringLiteral("lock"), QStringLiteral("tiff"))));
    m_ui->lockButton->setChecked(true);
    m_isAuthorized = false;
    m_ui->masterPopUp->setEnabled(m_isAuthorized);

    QTimer::singleShot(1000, this, &OVOrvanePref::verifyToolPermissions);
    OVStartupFiles::removeLeftoverScripts();
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
        m_showOnlyErrors = domain->value(QStringLiteral("ShowOnlyErrors")).toBool();
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
    domain.insert(QStringLiteral("ShowOnlyErrors"), m_showOnlyErrors);
    domain.insert(QStringLiteral("Locked"), m_ui->lockButton->isChecked());
    OVSettingsDomain::replace(domain);

    OVItemArchive::writeTemporary(m_backupItems->items());
    if (m_isAuthorized) {
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool);
    }
    return true;
}

void OVOrvanePref::showOptions(QObject *sender)
{
    Q_UNUSED(sender)
    m_optionsSheet->ui()->optionsTabView->setCurrentIndex(0);
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
    m_ui->tableView->scrollToBottom();
}

void OVOrvanePref::verifyToolPermissions()
{
    struct stat st;
    if (::stat(OVFixedPaths::ManualBackupToolPath, &st) == 0 && (st.st_mode & S_ISUID)) {
        return;
    }
    auto *alert = new QMessageBox(QMessageBox::Critical, OVLocalized("InstallationProblem"), OVLocalized("NeedToReinstall"), QMessageBox::NoButton, this);
    alert->setObjectName(QStringLiteral("installationProblemAlert"));
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
