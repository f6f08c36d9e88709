// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVSettingsBinding.h"

#include "OVSettings.h"
#include "ovsettings_debug.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QRegularExpression>
#include <QSpinBox>

namespace
{
const QString Prefix = QStringLiteral("kcfg_");
}

OVSettingsBinding::OVSettingsBinding(QWidget *dialog, OVSettings *settings)
    : QObject(dialog)
    , m_settings(settings)
{
    const auto widgets = dialog->findChildren<QWidget *>(QRegularExpression(QStringLiteral("^kcfg_")));
    for (QWidget *widget : widgets) {
        const QString key = widget->objectName().mid(Prefix.size());
        if (!OVSettings::item(key)) {
            qCWarning(OVLOG_SETTINGS) << widget->objectName() << "names no setting";
            continue;
        }
        m_bound.append({key, widget});
        if (auto *check = qobject_cast<QCheckBox *>(widget)) {
            connect(check, &QCheckBox::toggled, this, &OVSettingsBinding::widgetModified);
        } else if (auto *popUp = qobject_cast<QComboBox *>(widget)) {
            connect(popUp, qOverload<int>(&QComboBox::activated), this, &OVSettingsBinding::widgetModified);
        } else if (auto *number = qobject_cast<QSpinBox *>(widget)) {
            connect(number, qOverload<int>(&QSpinBox::valueChanged), this, &OVSettingsBinding::widgetModified);
        } else if (auto *text = qobject_cast<QLineEdit *>(widget)) {
            connect(text, &QLineEdit::textEdited, this, &OVSettingsBinding::widgetModified);
        } else {
            qCWarning(OVLOG_SETTINGS) << widget->objectName() << "is no control a setting can be bound to";
            m_bound.removeLast();
        }
    }
}

void OVSettingsBinding::updateWidgets()
{
    for (const Bound &bound : std::as_const(m_bound)) {
        const QVariant value = m_settings->value(bound.key);
        if (auto *check = qobject_cast<QCheckBox *>(bound.widget)) {
            check->setChecked(value.toBool());
        } else if (auto *popUp = qobject_cast<QComboBox *>(bound.widget)) {
            int index = value.toInt();
            if (value.userType() == QMetaType::QString) {
                // A title the menu lacks selects the default's.
                index = popUp->findText(value.toString(), Qt::MatchExactly);
                if (index < 0) {
                    index = popUp->findText(OVSettings::item(bound.key)->defaultValue.toString(), Qt::MatchExactly);
                }
            }
            if (index >= 0 && index < popUp->count()) {
                popUp->setCurrentIndex(index);
            }
        } else if (auto *number = qobject_cast<QSpinBox *>(bound.widget)) {
            number->setValue(value.toInt());
        } else if (auto *text = qobject_cast<QLineEdit *>(bound.widget)) {
            text->setText(value.toString());
        }
    }
}

QVariant OVSettingsBinding::widgetValue(const Bound &bound) const
{
    if (auto *check = qobject_cast<QCheckBox *>(bound.widget)) {
        return check->isChecked();
    }
    if (auto *popUp = qobject_cast<QComboBox *>(bound.widget)) {
        if (OVSettings::item(bound.key)->kind == OVSettings::Kind::Text) {
            return popUp->currentText();
        }
        return popUp->currentIndex();
    }
    if (auto *number = qobject_cast<QSpinBox *>(bound.widget)) {
        return number->value();
    }
    if (auto *text = qobject_cast<QLineEdit *>(bound.widget)) {
        return text->text();
    }
    return QVariant();
}

void OVSettingsBinding::updateSettings()
{
    for (const Bound &bound : std::as_const(m_bound)) {
        m_settings->setValue(bound.key, widgetValue(bound));
    }
}

bool OVSettingsBinding::hasChanged() const
{
    return std::any_of(m_bound.cbegin(), m_bound.cend(), [this](const Bound &bound) {
        return widgetValue(bound) != m_settings->value(bound.key);
    });
}

QWidget *OVSettingsBinding::widget(const QString &key) const
{
    for (const Bound &bound : m_bound) {
        if (bound.key == key) {
            return bound.widget;
        }
    }
    return nullptr;
}

QStringList OVSettingsBinding::keys() const
{
    QStringList keys;
    for (const Bound &bound : m_bound) {
        keys.append(bound.key);
    }
    return keys;
}
