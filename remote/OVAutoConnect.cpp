// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVAutoConnect.h"

#include "OVAlert.h"

#include <QApplication>
#include <QWidget>

OVAutoConnect::OVAutoConnect(QWidget *window)
    : QObject(window)
    , m_window(window)
{
}

bool OVAutoConnect::storePassword(const OVRemoteServer::Server &server, const QString &password)
{
    QString error;
    switch (OVRemoteServer::addAutoConnectPassword(server, password, &error)) {
    case OVRemoteServer::StoreResult::Stored:
        return true;
    case OVRemoteServer::StoreResult::InvalidAddress:
        QApplication::beep();
        OVAlert::show(m_window, QMessageBox::Warning, "InvalidServerAddress", "InvalidServerAddressExplanation", QStringLiteral("invalidServerAddressAlert"));
        return false;
    case OVRemoteServer::StoreResult::Failed:
        break;
    }
    OVAlert::show(m_window, QMessageBox::Warning, "PasswordNotStored", "PasswordNotStoredExplanation", QStringLiteral("passwordNotStoredAlert"))
        ->setInformativeText(error);
    return false;
}

void OVAutoConnect::connectToServer(const OVRemoteServer::Server &server, const QString &password)
{
    if (!storePassword(server, password)) {
        return;
    }
    if (!m_connection) {
        m_connection = new OVRemoteConnection(this);
        connect(m_connection, &OVRemoteConnection::finished, this, [this](bool ok, const QString &, const QString &message) {
            if (!ok) {
                OVAlert::show(m_window, QMessageBox::Warning, "ConnectFailed", "ConnectFailedExplanation", QStringLiteral("connectFailedAlert"))
                    ->setInformativeText(message);
            }
        });
    }
    m_connection->connectToServer(server);
}
