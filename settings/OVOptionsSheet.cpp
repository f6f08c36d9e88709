#include "OVOptionsSheet.h"

#include "OVLocalizedStrings.h"
#include "OVSafetyNet.h"
#include "OVSoundMenu.h"
#include "OVTint.h"
#include "ui_optionssheet.h"

#include <QDir>
#include <QScrollBar>

namespace
{
// The per-frequency flags: the key's prefix and the check boxes' prefix.
const char *const Frequencies[] = {"Daily", "Weekly", "Monthly", "Manually"};
const char *const Flags[] = {"MirrorFolders", "RemoteBackup", "ShowProgress", "RepairPermissions"};

QString key(const char *name)
{
    return QString::fromLatin1(name);
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
    for (QPushButton *button : {m_ui->okButton, m_ui->cancelButton}) {
        connect(button, &QPushButton::clicked, this, [this, button] {
            Q_EMIT closeRequested(button);
        });
    }
}

OVOptionsSheet::~OVOptionsSheet() = default;

QComboBox *OVOptionsSheet::soundPopUp() const
{
    return m_ui->soundPopUp;
}

void OVOptionsSheet::restore(const QVariantMap &domain)
{
    auto flag = [&domain](const char *name, bool absent) {
        return domain.value(key(name), absent).toBool();
    };
    m_ui->waitUntilAwayCheck->setChecked(flag("WaitUntilAway", false));
    m_ui->useSafetyNetCheck->setChecked(flag("SafetyNet", true));
    selectIndex(m_ui->archivePopUp, domain.value(key("ArchiveItems"), 0));
    m_ui->maxArchivesField->setValue(domain.value(key("MaxArchives"), 3).toInt());
    m_ui->autoConnectCheck->setChecked(flag("AutoConnect", false));
    m_ui->serverAddressField->setText(domain.value(key("RemoteServerAddress")).toString());
    m_ui->userNameField->setText(domain.value(key("RemoteUserName")).toString());
    m_ui->volumeField->setText(domain.value(key("RemoteVolumeName")).toString());
    m_ui->displayAlertCheck->setChecked(flag("DisplayAlert", true));
    m_ui->autoDismissCheck->setChecked(flag("AutoDismissAlert", false));
    m_ui->playSoundCheck->setChecked(flag("PlaySound", true));
    m_ui->promptBeforeBackupCheck->setChecked(flag("PromptBeforeBackup", false));
    m_ui->checkForUpdatesCheck->setChecked(flag("CheckForUpdates", false));
    m_ui->timeValueField->setValue(domain.value(key("TimeValue"), 2).toInt());
    selectIndex(m_ui->timeUnitPopUp, domain.value(key("TimeUnit"), 1));
    if (domain.contains(key("Sound"))) {
        selectSoundTitled(domain.value(key("Sound")).toString());
    }
    for (const char *frequency : Frequencies) {
        for (const char *option : Flags) {
            const QString name = key(frequency) + key(option);
            auto *check = findChild<QCheckBox *>(name.left(1).toLower() + name.mid(1) + QStringLiteral("Check"));
            check->setChecked(domain.value(name, false).toBool());
        }
    }
    selectIndex(m_ui->weeklyDayPopUp, domain.value(key("WeeklyDay"), 0));
    selectIndex(m_ui->dayOfMonthPopUp, domain.value(key("DayOfMonth"), 0));
    // Times the store lacks keep the dialog's own.
    const std::pair<const char *, QComboBox *> times[] = {
        {"DailyHour", m_ui->dailyHourPopUp},
        {"WeeklyHour", m_ui->weeklyHourPopUp},
        {"MonthlyHour", m_ui->monthlyHourPopUp},
        {"DailyMinute", m_ui->dailyMinutePopUp},
        {"WeeklyMinute", m_ui->weeklyMinutePopUp},
        {"MonthlyMinute", m_ui->monthlyMinutePopUp},
    };
    for (const auto &[name, popUp] : times) {
        if (domain.contains(key(name))) {
            selectIndex(popUp, domain.value(key(name)));
        }
    }
}

QVariantMap OVOptionsSheet::values() const
{
    QVariantMap values{
        {key("DailyHour"), m_ui->dailyHourPopUp->currentIndex()},
        {key("DailyMinute"), m_ui->dailyMinutePopUp->currentIndex()},
        {key("WeeklyDay"), m_ui->weeklyDayPopUp->currentIndex()},
        {key("WeeklyHour"), m_ui->weeklyHourPopUp->currentIndex()},
        {key("WeeklyMinute"), m_ui->weeklyMinutePopUp->currentIndex()},
        {key("DayOfMonth"), m_ui->dayOfMonthPopUp->currentIndex()},
        {key("MonthlyHour"), m_ui->monthlyHourPopUp->currentIndex()},
        {key("MonthlyMinute"), m_ui->monthlyMinutePopUp->currentIndex()},
        {key("WaitUntilAway"), m_ui->waitUntilAwayCheck->isChecked()},
        {key("AutoConnect"), m_ui->autoConnectCheck->isChecked()},
        {key("RemoteServerAddress"), m_ui->serverAddressField->text()},
        {key("RemoteUserName"), m_ui->userNameField->text()},
        {key("RemoteVolumeName"), m_ui->volumeField->text()},
        {key("SafetyNet"), m_ui->useSafetyNetCheck->isChecked()},
        {key("ArchiveItems"), m_ui->archivePopUp->currentIndex()},
        {key("MaxArchives"), m_ui->maxArchivesField->value()},
        {key("DisplayAlert"), m_ui->displayAlertCheck->isChecked()},
        {key("AutoDismissAlert"), m_ui->autoDismissCheck->isChecked()},
        {key("PlaySound"), m_ui->playSoundCheck->isChecked()},
        {key("CheckForUpdates"), m_ui->checkForUpdatesCheck->isChecked()},
        {key("PromptBeforeBackup"), m_ui->promptBeforeBackupCheck->isChecked()},
        {key("TimeUnit"), m_ui->timeUnitPopUp->currentIndex()},
        {key("TimeValue"), m_ui->timeValueField->value()},
        {key("Sound"), m_ui->soundPopUp->currentText()},
    };
    for (const char *frequency : Frequencies) {
        for (const char *option : Flags) {
            const QString name = key(frequency) + key(option);
            values.insert(name, findChild<QCheckBox *>(name.left(1).toLower() + name.mid(1) + QStringLiteral("Check"))->isChecked());
        }
    }
    return values;
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

void OVOptionsSheet::updatePrefsUI(QObject *sender)
{
    Q_UNUSED(sender)
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
