// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVSaveOnClose.h"

#include <QEvent>
#include <QWidget>

OVSaveOnClose::OVSaveOnClose(QWidget *module, std::function<void()> save)
    : QObject(module)
    , m_module(module)
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
            m_save();
        }
    }
    return QObject::eventFilter(watched, event);
}
