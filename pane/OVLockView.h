// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "OVLock.h"

#include <QObject>

class QAbstractButton;
class QLabel;
class QWidget;

// The lock as the pane shows it: its label and button, and the way from
// a click to an answer. The button shows the closed lock until polkit says
// yes; a lock that cannot open says why in an alert over the pane.
class OVLockView : public QObject
{
    Q_OBJECT
public:
    OVLockView(OVLock *lock, QLabel *label, QAbstractButton *button, QWidget *pane);

    // The open or the closed lock's label, image and state.
    void showLook(bool unlocked);
    // Asks for an administrator's password; a yes shows the open lock and
    // then emits opened().
    void requestOpen();
    // Gives up the rights polkit may have kept and shows the closed lock.
    void close();

Q_SIGNALS:
    void opened();

private:
    void finished(bool granted);
    void showUnavailable(OVLock::Failure failure, const QString &details);

    OVLock *m_lock;
    QLabel *m_label;
    QAbstractButton *m_button;
    QWidget *m_pane;
};
