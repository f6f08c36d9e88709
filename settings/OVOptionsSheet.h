// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QDialog>
#include <memory>

class QComboBox;
class OVCredits;
class OVSafetyNet;
class OVSettings;
class OVSettingsBinding;

namespace Ui
{
class OVOptionsSheet;
}

// The options dialog: every setting but the items, on six tabs, window-modal
// over the pane. It only edits the settings: its controls are bound to them
// by name (OVSettingsBinding); OK takes the controls into the settings, and
// the pane stores and applies them.
class OVOptionsSheet : public QDialog
{
    Q_OBJECT
public:
    OVOptionsSheet(OVSettings *settings, OVSafetyNet *safetyNet, QWidget *parent = nullptr);
    ~OVOptionsSheet() override;

    // The settings into the controls, with the version and the enable rules.
    void load();
    // The controls into the settings (OK).
    void apply();
    OVSettingsBinding *binding() const
    {
        return m_binding;
    }

    QComboBox *soundPopUp() const;
    // The remote server group as it stands in the sheet, for Connect and
    // the keychain; the password is never stored in the domain.
    struct RemoteFields {
        bool autoConnect = false;
        QString address, account, volume, password;
        bool isComplete() const
        {
            return !address.isEmpty() && !account.isEmpty() && !volume.isEmpty() && !password.isEmpty();
        }
    };
    RemoteFields remoteFields() const;
    void setRemotePassword(const QString &password);
    // The About tab's credits: loaded when the sheet opens, they scroll
    // while that tab is shown and stop when the sheet closes.
    OVCredits *credits() const
    {
        return m_credits;
    }

    // Opens the sheet on its first tab; while anacron runs the schedule,
    // its times are not the sheet's to set.
    void openOnFirstTab();
    void done(int result) override;

    void setVersionText(const QString &text);
    // The sound menu from the system's, the machine's and the user's sounds.
    void fillSoundPopUp(const QString &home);
    // While anacron runs the schedule, its times are not the pane's to set.
    void setAnacronInControl(bool inControl);
    // The box's choice counts while /etc/anacrontab exists.
    void applyAnacronRule();

    // The tab's identifier ("1" to "6") and the factor by which its content
    // box's height gives the sheet's height.
    QString currentIdentifier() const;
    static double heightFactor(const QString &identifier);
    // Sizes the sheet to the current tab, keeping its top edge in place.
    void fitToCurrentTab();

public Q_SLOTS:
    void updatePrefsUI(QObject *sender = nullptr);
    void selectSound(QObject *sender = nullptr);

Q_SIGNALS:
    // OK (tag 0) or Cancel (any other tag).
    void closeRequested(QObject *button);
    // The Safety Net tab's buttons; the pane owns the folder's dialog.
    void chooseSafetyNetFolderRequested(QObject *button);
    void openSafetyNetFolderRequested(QObject *button);
    // The remote tab's Connect button.
    void connectRequested();

protected:
    void reject() override;
    void showEvent(QShowEvent *event) override;

private:
    QWidget *contentBox(const QString &identifier) const;
    void tabChanged();

    std::unique_ptr<Ui::OVOptionsSheet> m_ui;
    OVSettings *m_settings;
    OVSafetyNet *m_safetyNet;
    OVSettingsBinding *m_binding;
    OVCredits *m_credits;
};
