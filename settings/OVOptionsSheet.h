// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QDialog>
#include <QVariantMap>
#include <memory>
#include <optional>
#include <vector>

#include "OVScheduleTables.h"
#include "OVScriptBuilder.h"
#include "OVSettingsTable.h"
#include "ovfixedpaths.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;
class OVCredits;
class OVSafetyNet;

namespace Ui
{
class OVOptionsSheet;
}

// The options dialog: every setting but the items, on six tabs, window-modal
// over the pane. It holds the working copy of its settings; the pane stores
// and applies them.
class OVOptionsSheet : public QDialog
{
    Q_OBJECT
public:
    OVOptionsSheet(OVSafetyNet *safetyNet, QWidget *parent = nullptr);
    ~OVOptionsSheet() override;

    QComboBox *soundPopUp() const;
    // The remote server group; the password is never stored in the domain.
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

    // Puts a stored domain into the controls; keys the domain lacks take
    // their absent values (OVSettingsTable), and an index beyond its pop-up
    // is ignored.
    void restore(const QVariantMap &domain);
    // What start-up and Cancel put back: the version, the bell selected,
    // then the stored domain when there is one, with its Safety Net folder.
    void restoreSaved(const std::optional<QVariantMap> &domain);
    // The settings held by the sheet's controls: every key of the settings
    // table but the pane's own four.
    QVariantMap values() const;
    // The controls' settings as the interface file made them: what Cancel
    // goes back to while nothing is stored yet.
    QVariantMap designedValues() const
    {
        return m_designed;
    }

    // Anacron, not cron, runs the schedule (and so catches up on runs missed
    // while the computer was off).
    bool useAnacron() const;
    void setUseAnacron(bool useAnacron);
    // A save's schedule had to drop anacron (gone from the system): the box
    // and the stored domain say so too. Nothing happens when they agree.
    void keepAnacronChoice(bool useAnacron, QVariantMap &domain);

    // What the scripts take from the sheet: one frequency's check boxes,
    // and the options all scripts share (the Safety Net folder included).
    OVScriptBuilder::FrequencyOptions frequencyOptions(OVFrequency frequency) const;
    OVScriptBuilder::SharedOptions sharedOptions() const;
    // The save's scripts from items with these options (toast: the Toast
    // application's name, or empty): the scheduled ones for install_scripts,
    // the manual one for manual_backup.
    QList<QPair<QByteArray, QByteArray>> scheduledScripts(const QVector<OVBackupItem> &items, const QString &toast) const;
    QByteArray manualScript(const QVector<OVBackupItem> &items, const QString &toast) const;
    // Opens the sheet on its first tab; while anacron runs the schedule,
    // its times are not the sheet's to set.
    void openOnFirstTab();
    void done(int result) override;

    // The schedule's times from the pop-ups' tags; the afternoon is read from
    // the minute's title ("... PM").
    OVScheduleTables::Times scheduleTimes() const;

    void setVersionText(const QString &text);
    void selectSoundTitled(const QString &title);
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
    QCheckBox *optionCheck(OVFrequency frequency, OVSettingsTable::Option option) const;
    // Which control holds which key: restore and values read one list.
    struct Bindings {
        std::vector<std::pair<QString, QCheckBox *>> checks;
        std::vector<std::pair<const char *, QComboBox *>> popUps;
        std::vector<std::pair<const char *, QSpinBox *>> numbers;
        std::vector<std::pair<const char *, QLineEdit *>> texts;
    };
    Bindings bindings() const;

    std::unique_ptr<Ui::OVOptionsSheet> m_ui;
    OVSafetyNet *m_safetyNet;
    OVCredits *m_credits;
    QVariantMap m_designed;
};
