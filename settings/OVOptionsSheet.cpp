// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVOptionsSheet.h"

#include "OVBundle.h"
#include "OVCredits.h"
#include "OVLocalizedStrings.h"
#include "OVSafetyNet.h"
#include "OVSettingsDomain.h"
#include "OVSoundMenu.h"
#include "OVTint.h"
#include "ui_optionssheet.h"

#include <QDir>
#include <QFileInfo>
#include <QScrollBar>

namespace
{
QString key(const char *name)
{
    return QString::fromLatin1(name);
}

// The row of a frequency among the four sets of option boxes.
int optionRow(OVFrequency frequency)
{
    return frequency == OVFrequency::Manual ? 3 : static_cast<int>(frequency);
}

// An index read from the store is used only when it names an entry.
void selectIndex(QComboBox *popUp, const QVariant &value)
{
    bool ok = false;
    const int index = value.toInt(&ok);
    if (ok && index >= 0 && index < popUp->count()) {
        popUp->setCurrentIndex(index);
    }
}

// A field and its stepper show the same number.
void pairFieldAndStepper(QSpinBox *field, QScrollBar *stepper)
{
    stepper->setRange(field->minimum(), field->maximum());
    stepper->setValue(field->value());
    QObject::connect(stepper, &QScrollBar::valueChanged, field, &QSpinBox::setValue);
    QObject::connect(field, qOverload<int>(&QSpinBox::valueChanged), stepper, &QScrollBar::setValue);
}
}

OVOptionsSheet::OVOptionsSheet(OVSafetyNet *safetyNet, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::OVOptionsSheet>())
    , m_safetyNet(safetyNet)
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    const QString credits = OVBundle::pathForResource(QStringLiteral("Credits"), QStringLiteral("html"));
    m_credits = new OVCredits(m_ui->creditsTextView, m_ui->optionsTabView, credits, this);

    pairFieldAndStepper(m_ui->maxArchivesField, m_ui->maxArchivesStepper);
    pairFieldAndStepper(m_ui->timeValueField, m_ui->timeValueStepper);

    // Hours carry 0 to 11 (12 o'clock is 0); minutes carry the minute, their
    // titles end in AM or PM; weekdays carry cron's numbers; days their day.
    for (QComboBox *hours : {m_ui->dailyHourPopUp, m_ui->weeklyHourPopUp, m_ui->monthlyHourPopUp}) {
        for (int i = 0; i < hours->count(); ++i) {
            hours->setItemData(i, hours->itemText(i).toInt() % 12);
        }
    }
    for (QComboBox *minutes : {m_ui->dailyMinutePopUp, m_ui->weeklyMinutePopUp, m_ui->monthlyMinutePopUp}) {
        for (int i = 0; i < minutes->count(); ++i) {
            minutes->setItemData(i, minutes->itemText(i).mid(1, 2).toInt());
        }
    }
    for (int i = 0; i < m_ui->weeklyDayPopUp->count(); ++i) {
        m_ui->weeklyDayPopUp->setItemData(i, i);
    }
    for (int i = 0; i < m_ui->dayOfMonthPopUp->count(); ++i) {
        m_ui->dayOfMonthPopUp->setItemData(i, i + 1);
    }

    for (QCheckBox *governing : {m_ui->displayAlertCheck, m_ui->autoDismissCheck, m_ui->playSoundCheck, m_ui->autoConnectCheck, m_ui->useSafetyNetCheck}) {
        connect(governing, &QCheckBox::clicked, this, [this, governing] {
            updatePrefsUI(governing);
        });
    }
    connect(m_ui->soundPopUp, qOverload<int>(&QComboBox::activated), this, [this] {
        selectSound(m_ui->soundPopUp);
    });
    connect(m_ui->optionsTabView, &QTabWidget::currentChanged, this, &OVOptionsSheet::tabChanged);
    connect(m_ui->connectButton, &QPushButton::clicked, this, &OVOptionsSheet::connectRequested);
    connect(m_ui->chooseArchiveFolderButton, &QPushButton::clicked, this, [this] {
        Q_EMIT chooseSafetyNetFolderRequested(m_ui->chooseArchiveFolderButton);
    });
    connect(m_ui->openArchiveFolderButton, &QPushButton::clicked, this, [this] {
        Q_EMIT openSafetyNetFolderRequested(m_ui->openArchiveFolderButton);
    });
    for (QPushButton *button : {m_ui->okButton, m_ui->cancelButton}) {
        connect(button, &QPushButton::clicked, this, [this, button] {
            Q_EMIT closeRequested(button);
        });
    }
    connect(m_ui->useAnacronCheck, &QCheckBox::clicked, this, &OVOptionsSheet::applyAnacronRule);
    m_designed = values();
    // The sound menu is filled later; its absent value names the bell.
    m_designed.remove(QStringLiteral("Sound"));
}

OVOptionsSheet::~OVOptionsSheet() = default;

QComboBox *OVOptionsSheet::soundPopUp() const
{
    return m_ui->soundPopUp;
}

OVOptionsSheet::RemoteFields OVOptionsSheet::remoteFields() const
{
    return {m_ui->autoConnectCheck->isChecked(),
            m_ui->serverAddressField->text(),
            m_ui->userNameField->text(),
            m_ui->volumeField->text(),
            m_ui->passwordField->text()};
}

void OVOptionsSheet::setRemotePassword(const QString &password)
{
    m_ui->passwordField->setText(password);
}

QCheckBox *OVOptionsSheet::optionCheck(OVFrequency frequency, OVSettingsTable::Option option) const
{
    QCheckBox *const checks[4][4] = {
        {m_ui->dailyMirrorFoldersCheck, m_ui->dailyRemoteBackupCheck, m_ui->dailyShowProgressCheck, m_ui->dailyRepairPermissionsCheck},
        {m_ui->weeklyMirrorFoldersCheck, m_ui->weeklyRemoteBackupCheck, m_ui->weeklyShowProgressCheck, m_ui->weeklyRepairPermissionsCheck},
        {m_ui->monthlyMirrorFoldersCheck, m_ui->monthlyRemoteBackupCheck, m_ui->monthlyShowProgressCheck, m_ui->monthlyRepairPermissionsCheck},
        {m_ui->manuallyMirrorFoldersCheck, m_ui->manuallyRemoteBackupCheck, m_ui->manuallyShowProgressCheck, m_ui->manuallyRepairPermissionsCheck},
    };
    return checks[optionRow(frequency)][static_cast<int>(option)];
}

OVOptionsSheet::Bindings OVOptionsSheet::bindings() const
{
    Bindings b;
    b.popUps = {
        {"DailyHour", m_ui->dailyHourPopUp},
        {"DailyMinute", m_ui->dailyMinutePopUp},
        {"WeeklyDay", m_ui->weeklyDayPopUp},
        {"WeeklyHour", m_ui->weeklyHourPopUp},
        {"WeeklyMinute", m_ui->weeklyMinutePopUp},
        {"DayOfMonth", m_ui->dayOfMonthPopUp},
        {"MonthlyHour", m_ui->monthlyHourPopUp},
        {"MonthlyMinute", m_ui->monthlyMinutePopUp},
        {"ArchiveItems", m_ui->archivePopUp},
        {"TimeUnit", m_ui->timeUnitPopUp},
    };
    b.checks = {
        {key("WaitUntilAway"), m_ui->waitUntilAwayCheck},
        {key("UseAnacron"), m_ui->useAnacronCheck},
        {key("AutoConnect"), m_ui->autoConnectCheck},
        {key("SafetyNet"), m_ui->useSafetyNetCheck},
        {key("DisplayAlert"), m_ui->displayAlertCheck},
        {key("AutoDismissAlert"), m_ui->autoDismissCheck},
        {key("PlaySound"), m_ui->playSoundCheck},
        {key("CheckForUpdates"), m_ui->checkForUpdatesCheck},
        {key("PromptBeforeBackup"), m_ui->promptBeforeBackupCheck},
    };
    for (const OVFrequency frequency : OVFixedPaths::AllFrequencies) {
        for (const OVSettingsTable::Option option : OVSettingsTable::AllOptions) {
            b.checks.push_back({OVSettingsTable::optionKey(OVFixedPaths::files(frequency).settingPrefix, option), optionCheck(frequency, option)});
        }
    }
    b.numbers = {
        {"MaxArchives", m_ui->maxArchivesField},
        {"TimeValue", m_ui->timeValueField},
    };
    b.texts = {
        {"RemoteServerAddress", m_ui->serverAddressField},
        {"RemoteUserName", m_ui->userNameField},
        {"RemoteVolumeName", m_ui->volumeField},
    };
    return b;
}

void OVOptionsSheet::restore(const QVariantMap &domain)
{
    const Bindings b = bindings();
    for (const auto &[name, check] : b.checks) {
        check->setChecked(OVSettingsTable::value(domain, name.toLatin1().constData()).toBool());
    }
    for (const auto &[name, popUp] : b.popUps) {
        // Times the store lacks keep the dialog's own.
        const QVariant value = OVSettingsTable::value(domain, name);
        if (value.isValid()) {
            selectIndex(popUp, value);
        }
    }
    for (const auto &[name, field] : b.numbers) {
        field->setValue(OVSettingsTable::value(domain, name).toInt());
    }
    for (const auto &[name, field] : b.texts) {
        field->setText(OVSettingsTable::value(domain, name).toString());
    }
    selectSoundTitled(OVSettingsTable::value(domain, "Sound").toString());
}

QVariantMap OVOptionsSheet::values() const
{
    const Bindings b = bindings();
    QVariantMap values;
    for (const auto &[name, check] : b.checks) {
        values.insert(name, check->isChecked());
    }
    for (const auto &[name, popUp] : b.popUps) {
        values.insert(key(name), popUp->currentIndex());
    }
    for (const auto &[name, field] : b.numbers) {
        values.insert(key(name), field->value());
    }
    for (const auto &[name, field] : b.texts) {
        values.insert(key(name), field->text());
    }
    values.insert(QStringLiteral("Sound"), m_ui->soundPopUp->currentText());
    return values;
}

OVScriptBuilder::FrequencyOptions OVOptionsSheet::frequencyOptions(OVFrequency frequency) const
{
    OVScriptBuilder::FrequencyOptions options;
    options.mirror = optionCheck(frequency, OVSettingsTable::Option::MirrorFolders)->isChecked();
    options.remote = optionCheck(frequency, OVSettingsTable::Option::RemoteBackup)->isChecked();
    options.showProgress = optionCheck(frequency, OVSettingsTable::Option::ShowProgress)->isChecked();
    options.repairPermissions = optionCheck(frequency, OVSettingsTable::Option::RepairPermissions)->isChecked();
    return options;
}

OVScriptBuilder::SharedOptions OVOptionsSheet::sharedOptions() const
{
    OVScriptBuilder::SharedOptions shared;
    shared.promptBeforeBackup = m_ui->promptBeforeBackupCheck->isChecked();
    shared.waitUntilAway = m_ui->waitUntilAwayCheck->isChecked();
    shared.autoConnect = m_ui->autoConnectCheck->isChecked();
    shared.server = m_ui->serverAddressField->text();
    shared.account = m_ui->userNameField->text();
    shared.volume = m_ui->volumeField->text();
    shared.safetyNet = m_ui->useSafetyNetCheck->isChecked();
    shared.maxArchives = m_ui->maxArchivesField->text();
    shared.archiveIndex = m_ui->archivePopUp->currentIndex();
    shared.safetyNetFolder = m_safetyNet->safetyNetFolder();
    return shared;
}

void OVOptionsSheet::openOnFirstTab()
{
    m_credits->loadCredits();
    m_ui->optionsTabView->setCurrentIndex(0);
    open();
    setAnacronInControl(useAnacron() && QFileInfo::exists(QString::fromUtf8(OVFixedPaths::Anacrontab)));
}

OVScheduleTables::Times OVOptionsSheet::scheduleTimes() const
{
    auto tag = [](const QComboBox *popUp) {
        return popUp->currentData().toInt();
    };
    auto hour = [&tag](const QComboBox *hours, const QComboBox *minutes) {
        const bool afternoon = minutes->currentText().split(QLatin1Char(' ')).constLast() == QLatin1String("PM");
        return tag(hours) + (afternoon ? 12 : 0);
    };
    OVScheduleTables::Times times;
    times.dailyMinute = tag(m_ui->dailyMinutePopUp);
    times.dailyHour = hour(m_ui->dailyHourPopUp, m_ui->dailyMinutePopUp);
    times.weeklyMinute = tag(m_ui->weeklyMinutePopUp);
    times.weeklyHour = hour(m_ui->weeklyHourPopUp, m_ui->weeklyMinutePopUp);
    times.weeklyDay = tag(m_ui->weeklyDayPopUp);
    times.monthlyMinute = tag(m_ui->monthlyMinutePopUp);
    times.monthlyHour = hour(m_ui->monthlyHourPopUp, m_ui->monthlyMinutePopUp);
    times.dayOfMonth = tag(m_ui->dayOfMonthPopUp);
    return times;
}

void OVOptionsSheet::setVersionText(const QString &text)
{
    m_ui->versionField->setText(text);
}

void OVOptionsSheet::selectSoundTitled(const QString &title)
{
    const int index = m_ui->soundPopUp->findText(title, Qt::MatchExactly);
    if (index >= 0) {
        m_ui->soundPopUp->setCurrentIndex(index);
    }
}

void OVOptionsSheet::setAnacronInControl(bool inControl)
{
    for (QComboBox *popUp : {m_ui->dailyHourPopUp,
                             m_ui->weeklyHourPopUp,
                             m_ui->monthlyHourPopUp,
                             m_ui->dailyMinutePopUp,
                             m_ui->weeklyMinutePopUp,
                             m_ui->monthlyMinutePopUp,
                             m_ui->weeklyDayPopUp,
                             m_ui->dayOfMonthPopUp}) {
        popUp->setEnabled(!inControl);
    }
    m_ui->anacronTextField->setText(inControl ? OVLocalized("AnacronInControl") : QString());
}

bool OVOptionsSheet::useAnacron() const
{
    return m_ui->useAnacronCheck->isChecked();
}

void OVOptionsSheet::setUseAnacron(bool useAnacron)
{
    m_ui->useAnacronCheck->setChecked(useAnacron);
    applyAnacronRule();
}

void OVOptionsSheet::done(int result)
{
    QDialog::done(result);
    m_credits->stopScrolling();
}

void OVOptionsSheet::keepAnacronChoice(bool useAnacron, QVariantMap &domain)
{
    if (useAnacron == domain.value(QStringLiteral("UseAnacron")).toBool()) {
        return;
    }
    setUseAnacron(useAnacron);
    domain.insert(QStringLiteral("UseAnacron"), useAnacron);
    OVSettingsDomain::replace(domain);
}

void OVOptionsSheet::applyAnacronRule()
{
    const bool anacron = QFileInfo::exists(QString::fromUtf8(OVFixedPaths::Anacrontab));
    const bool chosen = m_ui->useAnacronCheck->isChecked();
    // Without anacron the box can only be turned off.
    m_ui->useAnacronCheck->setEnabled(anacron || chosen);
    setAnacronInControl(anacron && chosen);
}

void OVOptionsSheet::updatePrefsUI(QObject *sender)
{
    Q_UNUSED(sender)
    applyAnacronRule();
    const bool alert = m_ui->displayAlertCheck->isChecked();
    const bool dismiss = alert && m_ui->autoDismissCheck->isChecked();
    m_ui->autoDismissCheck->setEnabled(alert);
    m_ui->timeValueField->setEnabled(dismiss);
    m_ui->timeValueStepper->setEnabled(dismiss);
    m_ui->timeUnitPopUp->setEnabled(dismiss);
    m_ui->soundPopUp->setEnabled(m_ui->playSoundCheck->isChecked());

    const bool connect = m_ui->autoConnectCheck->isChecked();
    for (QWidget *field : {static_cast<QWidget *>(m_ui->serverAddressField),
                           static_cast<QWidget *>(m_ui->userNameField),
                           static_cast<QWidget *>(m_ui->passwordField),
                           static_cast<QWidget *>(m_ui->volumeField),
                           static_cast<QWidget *>(m_ui->connectButton)}) {
        field->setEnabled(connect);
    }
    if (connect) {
        m_ui->serverAddressField->setFocus();
        m_ui->serverAddressField->selectAll();
    }

    const bool safetyNet = m_ui->useSafetyNetCheck->isChecked();
    for (QWidget *control : {static_cast<QWidget *>(m_ui->archivePopUp),
                             static_cast<QWidget *>(m_ui->maxArchivesField),
                             static_cast<QWidget *>(m_ui->maxArchivesStepper),
                             static_cast<QWidget *>(m_ui->chooseArchiveFolderButton)}) {
        control->setEnabled(safetyNet);
    }
    m_ui->openArchiveFolderButton->setEnabled(safetyNet && m_safetyNet->folderExists());
    m_ui->safetyNetPathLabel->setText(QDir::toNativeSeparators(m_safetyNet->safetyNetFolder()));
}

void OVOptionsSheet::selectSound(QObject *sender)
{
    Q_UNUSED(sender)
    OVSoundMenu::playNamedSound(m_ui->soundPopUp->currentText(), QDir::homePath());
}

QString OVOptionsSheet::currentIdentifier() const
{
    const QWidget *page = m_ui->optionsTabView->currentWidget();
    return page ? page->property("identifier").toString() : QString();
}

double OVOptionsSheet::heightFactor(const QString &identifier)
{
    if (identifier == QLatin1String("1")) {
        return 1.35;
    }
    if (identifier == QLatin1String("2") || identifier == QLatin1String("3")) {
        return 1.705;
    }
    if (identifier == QLatin1String("4")) {
        return 1.8;
    }
    if (identifier == QLatin1String("5")) {
        return 2.54;
    }
    return 1.7;
}

QWidget *OVOptionsSheet::contentBox(const QString &identifier) const
{
    if (identifier == QLatin1String("1")) {
        return m_ui->generalContentBox;
    }
    if (identifier == QLatin1String("2")) {
        return m_ui->safetyNetContentBox;
    }
    if (identifier == QLatin1String("3")) {
        return m_ui->autoConnectContentBox;
    }
    if (identifier == QLatin1String("4")) {
        return m_ui->schedulesContentBox;
    }
    if (identifier == QLatin1String("5")) {
        return m_ui->notificationContentBox;
    }
    return m_ui->aboutContentBox;
}

void OVOptionsSheet::fitToCurrentTab()
{
    const QString identifier = currentIdentifier();
    const float height = static_cast<float>(contentBox(identifier)->height() * heightFactor(identifier));
    // Screen coordinates grow downwards here: the top edge stays where it
    // is when y does.
    const QRect frame = geometry();
    setGeometry(frame.x(), frame.y(), frame.width(), qRound(height));
}

void OVOptionsSheet::tabChanged()
{
    // The general box is hidden while the sheet changes size under it.
    const bool general = currentIdentifier() == QLatin1String("1");
    if (general) {
        m_ui->generalContentBox->hide();
    }
    fitToCurrentTab();
    m_ui->generalContentBox->show();
}

void OVOptionsSheet::reject()
{
    // Escape and the window's close button mean Cancel.
    Q_EMIT closeRequested(m_ui->cancelButton);
}

void OVOptionsSheet::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    const QColor tint = ovStripeTint(palette());
    for (QWidget *bar : {m_ui->dailyColorBar, m_ui->monthlyColorBar}) {
        QPalette barPalette = bar->palette();
        barPalette.setColor(QPalette::Window, tint);
        bar->setPalette(barPalette);
    }
    fitToCurrentTab();
}

void OVOptionsSheet::restoreSaved(const std::optional<QVariantMap> &domain)
{
    if (!OVBundle::infoDictionary().isEmpty()) {
        setVersionText(OVLocalized("Version") + OVBundle::shortVersion());
    }
    selectSoundTitled(QStringLiteral("Magic Bell"));
    // Nothing stored yet: the controls go back to their design, so that a
    // Cancel throws the edits away then too.
    const QVariantMap stored = domain ? *domain : designedValues();
    restore(stored);
    const QString folder = OVSettingsTable::value(stored, "SafetyNetFolder").toString();
    m_safetyNet->setSafetyNetFolder(folder.isEmpty() ? OVSafetyNet::defaultFolder() : folder);
}

QList<QPair<QByteArray, QByteArray>> OVOptionsSheet::scheduledScripts(const QVector<OVBackupItem> &items, const QString &toast) const
{
    OVScriptBuilder::SharedOptions shared = sharedOptions();
    shared.toastApplication = toast;
    return OVScriptBuilder::buildScheduledScripts(
        items,
        [this](OVFrequency frequency) {
            return frequencyOptions(frequency);
        },
        shared);
}

QByteArray OVOptionsSheet::manualScript(const QVector<OVBackupItem> &items, const QString &toast) const
{
    OVScriptBuilder::SharedOptions shared = sharedOptions();
    shared.toastApplication = toast;
    return OVScriptBuilder::buildManualScript(items, frequencyOptions(OVFrequency::Manual), shared);
}

void OVOptionsSheet::fillSoundPopUp(const QString &home)
{
    OVSoundMenu::fill(soundPopUp(),
                      OVSoundMenu::soundFolders(home),
                      QIcon(QPixmap(OVBundle::pathForResource(QStringLiteral("sound"), QStringLiteral("tiff")))));
}
