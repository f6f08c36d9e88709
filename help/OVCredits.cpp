// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVCredits.h"

#include "OVLocalizedStrings.h"

#include <QFile>
#include <QScrollBar>
#include <QTabWidget>
#include <QTextEdit>
#include <QTimer>

OVCredits::OVCredits(QTextEdit *creditsTextView, QTabWidget *tabView, const QString &creditsPath, QObject *parent)
    : QObject(parent)
    , m_creditsTextView(creditsTextView)
    , m_tabView(tabView)
    , m_creditsPath(creditsPath)
{
    connect(tabView, &QTabWidget::currentChanged, this, &OVCredits::tabChanged);
}

OVCredits::~OVCredits() = default;

void OVCredits::loadCredits()
{
    if (!m_creditsTextView) {
        return;
    }
    QFile file(m_creditsPath);
    if (file.open(QIODevice::ReadOnly)) {
        m_creditsTextView->setHtml(QString::fromUtf8(file.readAll()));
    } else {
        m_creditsTextView->setPlainText(OVLocalized("CreditsMissing") + QLatin1Char('\n') + m_creditsPath);
    }
    m_creditsTextView->document()->setDocumentMargin(Inset);
    QPalette palette = m_creditsTextView->palette();
    for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        palette.setColor(group, QPalette::Text, Qt::black);
        palette.setColor(group, QPalette::Base, Qt::white);
    }
    m_creditsTextView->setPalette(palette);
    m_creditsTextView->moveCursor(QTextCursor::Start);
    m_creditsTextView->verticalScrollBar()->setValue(0);
}

void OVCredits::tabChanged(int index)
{
    const QWidget *page = m_tabView ? m_tabView->widget(index) : nullptr;
    if (page && m_creditsTextView && page->isAncestorOf(m_creditsTextView)) {
        startScrolling();
    } else {
        stopScrolling();
    }
}

void OVCredits::startScrolling()
{
    m_currentPosition = 0.0f;
    m_scrollTimer = std::make_unique<QTimer>();
    m_scrollTimer->setInterval(ScrollInterval);
    connect(m_scrollTimer.get(), &QTimer::timeout, this, &OVCredits::scrollCredits);
    m_scrollTimer->start();
}

void OVCredits::stopScrolling()
{
    if (m_creditsTextView) {
        m_creditsTextView->horizontalScrollBar()->setValue(0);
        m_creditsTextView->verticalScrollBar()->setValue(0);
    }
    m_scrollTimer.reset();
}

void OVCredits::scrollCredits()
{
    if (!m_creditsTextView) {
        return;
    }
    m_creditsTextView->horizontalScrollBar()->setValue(0);
    m_creditsTextView->verticalScrollBar()->setValue(qRound(m_currentPosition));
    // The loop follows the text's length in characters, not its height: a
    // count below 150 wraps to a huge unsigned limit and never loops.
    const quint64 characters = static_cast<quint64>(m_creditsTextView->toPlainText().size());
    const quint64 limit = characters - 150u;
    if (static_cast<double>(m_currentPosition) >= static_cast<double>(limit)) {
        m_currentPosition = 0.0f;
    } else {
        m_currentPosition += 1.0f;
    }
}
