// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVHelpSheet.h"

#include "OVLocalizedStrings.h"
#include "ui_helpsheet.h"

#include <QFileInfo>
#include <QScrollBar>
#include <QSettings>

namespace
{
const QString FrameKey = QStringLiteral("OVHelpSheet");

QSettings sheetFrames()
{
    return QSettings(QStringLiteral("orvane"), QStringLiteral("sheets"));
}
}

OVHelpSheet::OVHelpSheet(const QString &helpPage, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::OVHelpSheet>())
    , m_helpPage(QUrl::fromLocalFile(helpPage))
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    connect(m_ui->closeButton, &QPushButton::clicked, this, [this] {
        hideHelpSheet(m_ui->closeButton);
    });
}

OVHelpSheet::~OVHelpSheet() = default;

QTextBrowser *OVHelpSheet::helpWebView() const
{
    return m_ui->helpWebView;
}

void OVHelpSheet::loadHelpPage()
{
    QTextBrowser *view = m_ui->helpWebView;
    const QString path = m_helpPage.toLocalFile();
    if (!QFileInfo(path).isReadable()) {
        // Say what is wrong rather than show an empty sheet.
        view->setSource(QUrl());
        view->setHtml(QStringLiteral("<p>%1</p><p><tt>%2</tt></p>").arg(OVLocalized("HelpMissing").toHtmlEscaped(), path.toHtmlEscaped()));
    } else {
        view->setSource(m_helpPage);
    }
    view->clearHistory();
    view->horizontalScrollBar()->setValue(0);
    view->verticalScrollBar()->setValue(0);
}

void OVHelpSheet::viewHelp(QObject *sender)
{
    Q_UNUSED(sender)
    loadHelpPage();
    const QByteArray frame = sheetFrames().value(FrameKey).toByteArray();
    if (!frame.isEmpty()) {
        restoreGeometry(frame);
    }
    open();
}

void OVHelpSheet::hideHelpSheet(QObject *sender)
{
    Q_UNUSED(sender)
    done(QDialog::Accepted);
    // The next opening starts at the top of the help page, not where the
    // reader left off.
    loadHelpPage();
}

void OVHelpSheet::reject()
{
    // Escape and the window's close button close the sheet as Close does.
    hideHelpSheet(this);
}

void OVHelpSheet::hideEvent(QHideEvent *event)
{
    sheetFrames().setValue(FrameKey, saveGeometry());
    QDialog::hideEvent(event);
}
