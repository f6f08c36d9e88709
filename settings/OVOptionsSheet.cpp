// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVOptionsSheet.h"

#include "OVBundle.h"
#include "OVCredits.h"
#include "OVLocalizedStrings.h"
#include "OVSafetyNet.h"
#include "OVSettings.h"
#include "OVSettingsBinding.h"
#include "OVSoundMenu.h"
#include "OVTint.h"
#include "ovfixedpaths.h"
#include "ui_optionssheet.h"

#include <QDir>
#include <QFileInfo>
#include <QScrollBar>

namespace
{
// A field and its stepper show the same number.
void pairFieldAndStepper(QSpinBox *field, QScrollBar *stepper)
{
    stepper->setRange(field->minimum(), field->maximum());
    stepper->setValue(field->value());
    QObject::connect(stepper, &QScrollBar::valueChanged, field, &QSpinBox::setValue);
    QObject::connect(field, qOverload<int>(&QSpinBox::valueChanged), stepper, &QScrollBar::setValue);
}
}

OVOptionsSheet::OVOptionsSheet(OVSettings *settings, OVSafetyNet *safetyNet, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::OVOptionsSheet>())
    , m_settings(settings)
    , m_safetyNet(safetyNet)
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    m_binding = new OVSettingsBinding(this, settings);
    const QString credits = OVBundle::pathForResource(QStringLiteral("Credits"), QStringLiteral("html"));
    m_credits = new OVCredits(m_ui->creditsTextView, m_ui->optionsTabView, credits, this);

    pairFieldAndStepper(m_ui->kcfg_MaxArchives, m_ui->maxArchivesStepper);
    pairFieldAndStepper(m_ui->kcfg_TimeValue, m_ui->timeValueStepper);

    for (QCheckBox *governing : {m_ui->kcfg_DisplayAlert, m_ui->kcfg_AutoDismissAlert, m_ui->kcfg_PlaySound, m_ui->kcfg_AutoConnect, m_ui->kcfg_SafetyNet}) {
        connect(governing, &QCheckBox::clicked, this, [this, governing] {
            updatePrefsUI(governing);
        });
    }
    connect(m_ui->kcfg_Sound, qOverload<int>(&QComboBox::activated), this, [this] {
        selectSound(m_ui->kcfg_Sound);
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
    connect(m_ui->kcfg_UseAnacron, &QCheckBox::clicked, this, &OVOptionsSheet::applyAnacronRule);
}

OVOptionsSheet::~OVOptionsSheet() = default;

void OVOptionsSheet::load()
{
    if (!OVBundle::infoDictionary().isEmpty()) {
        setVersionText(OVLocalized("Version") + OVBundle::shortVersion());
    }
    m_binding->updateWidgets();
    updatePrefsUI();
}

void OVOptionsSheet::apply()
{
    m_binding->updateSettings();
}

QComboBox *OVOptionsSheet::soundPopUp() const
{
    return m_ui->kcfg_Sound;
}

OVOptionsSheet::RemoteFields OVOptionsSheet::remoteFields() const
{
    return {m_ui->kcfg_AutoConnect->isChecked(),
            m_ui->kcfg_RemoteServerAddress->text(),
            m_ui->kcfg_RemoteUserName->text(),
            m_ui->kcfg_RemoteVolumeName->text(),
            m_ui->passwordField->text()};
}

void OVOptionsSheet::setRemotePassword(const QString &password)
{
    m_ui->passwordField->setText(password);
}

void OVOptionsSheet::openOnFirstTab()
{
    m_credits->loadCredits();
    m_ui->optionsTabView->setCurrentIndex(0);
    open();
    applyAnacronRule();
}

void OVOptionsSheet::setVersionText(const QString &text)
{
    m_ui->versionField->setText(text);
}

void OVOptionsSheet::setAnacronInControl(bool inControl)
{
    for (QComboBox *popUp : {m_ui->kcfg_DailyHour,
                             m_ui->kcfg_WeeklyHour,
                             m_ui->kcfg_MonthlyHour,
                             m_ui->kcfg_DailyMinute,
                             m_ui->kcfg_WeeklyMinute,
                             m_ui->kcfg_MonthlyMinute,
                             m_ui->kcfg_WeeklyDay,
                             m_ui->kcfg_DayOfMonth}) {
        popUp->setEnabled(!inControl);
    }
    m_ui->anacronTextField->setText(inControl ? OVLocalized("AnacronInControl") : QString());
}

void OVOptionsSheet::done(int result)
{
    QDialog::done(result);
    m_credits->stopScrolling();
}

void OVOptionsSheet::applyAnacronRule()
{
    const bool anacron = QFileInfo::exists(QString::fromUtf8(OVFixedPaths::Anacrontab));
    const bool chosen = m_ui->kcfg_UseAnacron->isChecked();
    // Without anacron the box can only be turned off.
    m_ui->kcfg_UseAnacron->setEnabled(anacron || chosen);
    setAnacronInControl(anacron && chosen);
}

void OVOptionsSheet::updatePrefsUI(QObject *sender)
{
    Q_UNUSED(sender)
    applyAnacronRule();
    const bool alert = m_ui->kcfg_DisplayAlert->isChecked();
    const bool dismiss = alert && m_ui->kcfg_AutoDismissAlert->isChecked();
    m_ui->kcfg_AutoDismissAlert->setEnabled(alert);
    m_ui->kcfg_TimeValue->setEnabled(dismiss);
    m_ui->timeValueStepper->setEnabled(dismiss);
    m_ui->kcfg_TimeUnit->setEnabled(dismiss);
    m_ui->kcfg_Sound->setEnabled(m_ui->kcfg_PlaySound->isChecked());

    const bool connect = m_ui->kcfg_AutoConnect->isChecked();
    for (QWidget *field : {static_cast<QWidget *>(m_ui->kcfg_RemoteServerAddress),
                           static_cast<QWidget *>(m_ui->kcfg_RemoteUserName),
                           static_cast<QWidget *>(m_ui->passwordField),
                           static_cast<QWidget *>(m_ui->kcfg_RemoteVolumeName),
                           static_cast<QWidget *>(m_ui->connectButton)}) {
        field->setEnabled(connect);
    }
    if (connect) {
        m_ui->kcfg_RemoteServerAddress->setFocus();
        m_ui->kcfg_RemoteServerAddress->selectAll();
    }

    const bool safetyNet = m_ui->kcfg_SafetyNet->isChecked();
    for (QWidget *control : {static_cast<QWidget *>(m_ui->kcfg_ArchiveItems),
                             static_cast<QWidget *>(m_ui->kcfg_MaxArchives),
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
    OVSoundMenu::playNamedSound(m_ui->kcfg_Sound->currentText(), QDir::homePath());
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

void OVOptionsSheet::fillSoundPopUp(const QString &home)
{
    OVSoundMenu::fill(soundPopUp(),
                      OVSoundMenu::soundFolders(home),
                      QIcon(QPixmap(OVBundle::pathForResource(QStringLiteral("sound"), QStringLiteral("tiff")))));
}
