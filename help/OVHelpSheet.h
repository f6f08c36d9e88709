// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QDialog>
#include <QUrl>
#include <memory>

class QTextBrowser;

namespace Ui
{
class OVHelpSheet;
}

// The sheet that shows Orvane's manual: a local HTML page with its images,
// whose relative links are followed inside the sheet and whose web links
// open in the browser.
class OVHelpSheet : public QDialog
{
    Q_OBJECT
public:
    // helpPage is the manual's first page ("help.html" among the bundle's
    // resources).
    explicit OVHelpSheet(const QString &helpPage, QWidget *parent = nullptr);
    ~OVHelpSheet() override;

    QTextBrowser *helpWebView() const;
    QUrl helpPageUrl() const
    {
        return m_helpPage;
    }

    // Shows the help page from its top, forgetting the pages followed from it.
    void loadHelpPage();

public Q_SLOTS:
    void viewHelp(QObject *sender = nullptr);
    void hideHelpSheet(QObject *sender = nullptr);

protected:
    void reject() override;
    void hideEvent(QHideEvent *event) override;

private:
    std::unique_ptr<Ui::OVHelpSheet> m_ui;
    QUrl m_helpPage;
};
