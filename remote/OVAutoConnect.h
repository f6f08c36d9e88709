// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "OVRemoteServer.h"

#include <QObject>

class QWidget;

// The auto-connect group's actions with what the user is told: storing the
// server's password (on the options' OK) and Connect. Alerts go over window.
class OVAutoConnect : public QObject
{
    Q_OBJECT
public:
    explicit OVAutoConnect(QWidget *window);

    // Stores the password; false, with an alert, when the address is invalid
    // or the Secret Service refused it.
    bool storePassword(const OVRemoteServer::Server &server, const QString &password);
    // Stores the password, then mounts the volume; a failure comes as an alert.
    void connectToServer(const OVRemoteServer::Server &server, const QString &password);

private:
    QWidget *m_window;
    OVRemoteConnection *m_connection = nullptr;
};
