// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <functional>

class OVToolReport;
class QWidget;

// Saves when the module goes. The host destroys the module before the
// application quits, so the host's window is watched: its close (or a hide
// that is no minimising) saves, the helpers of that save finish, and what
// failed is shown before the window goes. System Settings destroys the
// module when the user picks another one: that saves too (saveOnLeaving).
// A close is followed by a hide, and by the module's end: one save serves all.
class OVSaveOnClose : public QObject
{
    Q_OBJECT
public:
    // save: the module's save; it gets the event that caused it, if any.
    OVSaveOnClose(QWidget *module, OVToolReport *report, std::function<void(QEvent *)> save);

    // From the module's destructor. A module never shown, or already saved
    // by the close, saves nothing more.
    void saveOnLeaving();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_module;
    OVToolReport *m_report;
    std::function<void(QEvent *)> m_save;
    QPointer<QWidget> m_hostWindow;
    bool m_saved = false;
};
