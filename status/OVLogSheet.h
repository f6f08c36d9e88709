// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QDialog>
#include <memory>

class QPushButton;

namespace Ui
{
class OVLogSheet;
}

// The read-only sheet that shows the log, or only the errors, of the last
// scheduled backup of one frequency.
class OVLogSheet : public QDialog
{
    Q_OBJECT
public:
    explicit OVLogSheet(QWidget *parent = nullptr);
    ~OVLogSheet() override;

    Ui::OVLogSheet *ui() const
    {
        return m_ui.get();
    }
    bool showOnlyErrors() const;
    void setShowOnlyErrors(bool onlyErrors);

    // Opens the sheet for the frequency in the button's tag (0 daily,
    // 1 weekly, 2 monthly); a button that shows no date opens nothing.
    void viewLog(QPushButton *sender);
    // Fills the view from the file the check box and its tag choose.
    void loadLog();

Q_SIGNALS:
    // The sheet's close button: the pane stores the filter, then closes.
    void closeRequested();

protected:
    void reject() override;
    void hideEvent(QHideEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    // Shows the log's end: the newest lines are what the user came for.
    void scrollToNewest();
    std::unique_ptr<Ui::OVLogSheet> m_ui;
};
