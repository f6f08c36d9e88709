// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QVector>

class OVSettings;
class QWidget;

// Binds the settings to the controls named after their keys, as KDE's
// KConfigDialogManager does: the control "kcfg_<Key>" shows and edits
// "<Key>". A check box holds a flag, a menu an index (a text: the
// entry of that title), a spin box a count, a line edit a text.
class OVSettingsBinding : public QObject
{
    Q_OBJECT
public:
    // Every "kcfg_" control below dialog; one whose name is no key of the
    // settings is a fault of the dialog's interface file.
    OVSettingsBinding(QWidget *dialog, OVSettings *settings);

    // Settings into the controls. A menu without an entry for the value
    // keeps its selection.
    void updateWidgets();
    // The controls into the settings.
    void updateSettings();
    // Whether a control shows other than the settings hold.
    bool hasChanged() const;

    QWidget *widget(const QString &key) const;
    QStringList keys() const;

Q_SIGNALS:
    // The user changed a control.
    void widgetModified();

private:
    struct Bound {
        QString key;
        QWidget *widget;
    };
    QVariant widgetValue(const Bound &bound) const;
    QVector<Bound> m_bound;
    OVSettings *m_settings;
};
