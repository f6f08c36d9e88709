// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QString>

class QProcess;

// The remote server of the auto-connect group: its password in the user's
// Secret Service and the mount of its volume at "/Volumes/<volume>".
//
// The password is stored under libsecret's network-password schema
// (org.gnome.keyring.NetworkPassword: user, server, protocol, object) with
// the label "Orvane Auto-Connect", so the desktop's own smb:// mounts find it.
namespace OVRemoteServer
{
struct Server {
    QString address; // "smb://host" as typed
    QString account;
    QString volume;
};

enum class StoreResult {
    Stored,
    InvalidAddress, // no "://": the pane shows "InvalidServerAddress"
    Failed, // the Secret Service refused it; error says why
};

// The server as the keychain names it: the address without its scheme.
QString serverPart(const QString &address);
// "smb" or "afp"; empty for any other address.
QString protocolFor(const QString &address);

// Deletes every item of the schema labelled "Orvane Auto-Connect".
bool deleteExistingKeys(QString *error = nullptr);
// Replaces the pane's item by one for server with password.
StoreResult addAutoConnectPassword(const Server &server, const QString &password, QString *error = nullptr);
// The stored password for the server, user and volume, or "".
QString autoConnectPassword(const Server &server);
// How many items carry the pane's label (tests and diagnostics).
int countAutoConnectItems();
}

// Connect: mounts the volume through the bundle's connect_volume, which has
// automount mount it as root for this user (only root mounts in /Volumes),
// and reports how that went. The pane must hold the unlock.
class OVRemoteConnection : public QObject
{
    Q_OBJECT
public:
    explicit OVRemoteConnection(QObject *parent = nullptr);

    // The program that mounts (the bundle's connect_volume unless a test says).
    void setProgram(const QString &path)
    {
        m_program = path;
    }

    // Starts the mount; finished() follows. False (and nothing started) when
    // a field is empty or one is already under way.
    bool connectToServer(const OVRemoteServer::Server &server);

Q_SIGNALS:
    // ok: the volume is mounted at mountPoint; otherwise message says why.
    void finished(bool ok, const QString &mountPoint, const QString &message);

private:
    QString m_program;
    QProcess *m_process = nullptr;
};
