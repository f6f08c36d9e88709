// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVSaveOnClose.h"

#include "OVToolLauncher.h"
#include "OVToolReport.h"

#include <QEvent>
#include <QWidget>

namespace
{
// How long the helpers of the last save may take before the module goes.
constexpr int HelpersWait = 120000;
}

OVSaveOnClose::OVSaveOnClose(QWidget *module, OVToolReport *report, std::function<void(QEvent *)> save)
    : QObject(module)
    , m_module(module)
    , m_report(report)
    , m_save(std::move(save))
{
    // The host's window is known once the module is first shown in it.
    m_module->installEventFilter(this);
}

bool OVSaveOnClose::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_module) {
        if (event->type() == QEvent::Show && !m_hostWindow && m_module->window() != m_module) {
            m_hostWindow = m_module->window();
            m_hostWindow->installEventFilter(this);
        }
    } else if (watched == m_hostWindow && m_module->isVisibleTo(m_hostWindow)) {
        if (event->type() == QEvent::Show) {
            m_saved = false;
        } else if (!m_saved && (event->type() == QEvent::Close || (event->type() == QEvent::Hide && !m_hostWindow->isMinimized()))) {
            m_saved = true;
            const int mark = m_report->failureCount();
            m_save(event);
            // The host goes next: its helpers finish first (an agent's
            // password dialog included), and what failed is shown.
            m_report->finishBeforeClose(m_hostWindow, mark, HelpersWait);
        }
    }
    return QObject::eventFilter(watched, event);
}

void OVSaveOnClose::saveOnLeaving()
{
    if (m_hostWindow) {
        // The module is going: the window's later events are not its own.
        m_hostWindow->removeEventFilter(this);
    }
    if (!m_hostWindow || m_saved) {
        return;
    }
    m_saved = true;
    m_save(nullptr);
    OVToolLauncher::instance()->waitForAll(HelpersWait);
}
