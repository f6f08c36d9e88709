#pragma once

#include <QDialog>
#include <QVariantMap>
#include <memory>

#include "OVScheduleTables.h"

class QComboBox;
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

    Ui::OVOptionsSheet *ui() const { return m_ui.get(); }
    QComboBox *soundPopUp() const;

    // Puts a stored domain into the controls; keys the domain lacks take
    // their absent values, and an index beyond its pop-up is ignored.
    void restore(const QVariantMap &domain);
    // The settings held by the sheet's controls.
    QVariantMap values() const;

    // The schedule's times from the pop-ups' tags; the afternoon is read from
    // the minute's title ("... PM").
    OVScheduleTables::Times scheduleTimes() const;

    void setVersionText(const QString &text);
    void selectSoundTitled(const QString &title);
    // While anacron runs the schedule, its times are not the pane's to set.
    void setAnacronInControl(bool inControl);

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

protected:
    void reject() override;
    void showEvent(QShowEvent *event) override;

private:
    QWidget *contentBox(const QString &identifier) const;
    void tabChanged();

    std::unique_ptr<Ui::OVOptionsSheet> m_ui;
    OVSafetyNet *m_safetyNet;
};
