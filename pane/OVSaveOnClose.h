// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <functional>

class QWidget;

// Saves when the host's window closes, as closing the pane's window does on
// its own platform. The host destroys the module before the application
// quits, so the host's window is watched: its close (or a hide that is no
// minimising) saves; a close is followed by a hide: one save serves both.
// The save only starts the helpers' work (OVSaveJob), which the
// application's end waits for: nothing here waits, and the module's end
// saves nothing.
class OVSaveOnClose : public QObject
{
    Q_OBJECT
public:
    // save: the module's save.
    OVSaveOnClose(QWidget *module, std::function<void()> save);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_module;
    std::function<void()> m_save;
    QPointer<QWidget> m_hostWindow;
    bool m_saved = false;
};
