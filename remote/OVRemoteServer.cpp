// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVRemoteServer.h"

#include "OVBundle.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"

#include <QProcess>

#include <libsecret/secret.h>

namespace
{
const char *const Label = "Orvane Auto-Connect";

QString takeError(GError *&error)
{
    QString message = error ? QString::fromUtf8(error->message) : QStringLiteral("the Secret Service did not answer");
    g_clear_error(&error);
    return message;
}

// The pane's items: the schema's items with the pane's label.
GList *labelledItems(SecretService *service, GError **error)
{
    GHashTable *none = g_hash_table_new(g_str_hash, g_str_equal);
    GList *items = secret_service_search_sync(service, SECRET_SCHEMA_COMPAT_NETWORK, none, SECRET_SEARCH_ALL, nullptr, error);
    g_hash_table_unref(none);
    GList *ours = nullptr;
    for (GList *l = items; l; l = l->next) {
        gchar *label = secret_item_get_label(SECRET_ITEM(l->data));
        if (label && qstrcmp(label, Label) == 0) {
            ours = g_list_prepend(ours, g_object_ref(l->data));
        }
        g_free(label);
    }
    g_list_free_full(items, g_object_unref);
    return ours;
}
}

namespace OVRemoteServer
{
QString serverPart(const QString &address)
{
    return address.mid(6);
}

QString protocolFor(const QString &address)
{
    if (address.contains(QLatin1String("afp://"))) {
        return QStringLiteral("afp");
    }
    if (address.contains(QLatin1String("smb://"))) {
        return QStringLiteral("smb");
    }
    return QString();
}

bool deleteExistingKeys(QString *error)
{
    GError *gerror = nullptr;
    SecretService *service = secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, &gerror);
    if (!service) {
        if (error) {
            *error = takeError(gerror);
        }
        g_clear_error(&gerror);
        return false;
    }
    GList *items = labelledItems(service, &gerror);
    bool ok = !gerror;
    for (GList *l = items; l && ok; l = l->next) {
        ok = secret_item_delete_sync(SECRET_ITEM(l->data), nullptr, &gerror);
    }
    if (!ok && error) {
        *error = takeError(gerror);
    }
    g_clear_error(&gerror);
    g_list_free_full(items, g_object_unref);
    g_object_unref(service);
    return ok;
}

StoreResult addAutoConnectPassword(const Server &server, const QString &password, QString *error)
{
    const QString protocol = protocolFor(server.address);
    if (!server.address.contains(QLatin1String("://")) || protocol.isEmpty()) {
        return StoreResult::InvalidAddress;
    }
    if (!deleteExistingKeys(error)) {
        return StoreResult::Failed;
    }
    const QByteArray user = server.account.toUtf8();
    const QByteArray host = serverPart(server.address).toUtf8();
    const QByteArray scheme = protocol.toUtf8();
    const QByteArray object = server.volume.toUtf8();
    QByteArray secret = password.toUtf8();
    GError *gerror = nullptr;
    const bool stored = secret_password_store_sync(SECRET_SCHEMA_COMPAT_NETWORK,
                                                   SECRET_COLLECTION_DEFAULT,
                                                   Label,
                                                   secret.constData(),
                                                   nullptr,
                                                   &gerror,
                                                   "user",
                                                   user.constData(),
                                                   "server",
                                                   host.constData(),
                                                   "protocol",
                                                   scheme.constData(),
                                                   "object",
                                                   object.constData(),
                                                   nullptr);
    secret.fill('\0');
    if (!stored) {
        if (error) {
            *error = takeError(gerror);
        }
        g_clear_error(&gerror);
        return StoreResult::Failed;
    }
    return StoreResult::Stored;
}

QString autoConnectPassword(const Server &server)
{
    if (server.address.isEmpty() || server.account.isEmpty() || server.volume.isEmpty()) {
        return QString();
    }
    const QByteArray user = server.account.toUtf8();
    const QByteArray host = serverPart(server.address).toUtf8();
    const QByteArray object = server.volume.toUtf8();
    GError *gerror = nullptr;
    gchar *secret = secret_password_lookup_sync(SECRET_SCHEMA_COMPAT_NETWORK,
                                                nullptr,
                                                &gerror,
                                                "user",
                                                user.constData(),
                                                "server",
                                                host.constData(),
                                                "object",
                                                object.constData(),
                                                nullptr);
    g_clear_error(&gerror);
    if (!secret) {
        return QString();
    }
    // Bytes that are not UTF-8 are no password the field can show.
    const QByteArray bytes(secret);
    secret_password_free(secret);
    const QString text = QString::fromUtf8(bytes);
    return text.toUtf8() == bytes ? text : QString();
}

int countAutoConnectItems()
{
    GError *gerror = nullptr;
    SecretService *service = secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, &gerror);
    if (!service) {
        g_clear_error(&gerror);
        return -1;
    }
    GList *items = labelledItems(service, &gerror);
    const int count = gerror ? -1 : static_cast<int>(g_list_length(items));
    g_clear_error(&gerror);
    g_list_free_full(items, g_object_unref);
    g_object_unref(service);
    return count;
}
}

OVRemoteConnection::OVRemoteConnection(QObject *parent)
    : QObject(parent)
    , m_program(OVBundle::toolPath(QString::fromLatin1(OVFixedPaths::ConnectVolumeTool)))
{
}

bool OVRemoteConnection::connectToServer(const OVRemoteServer::Server &server)
{
    if (m_process || server.address.isEmpty() || server.account.isEmpty() || server.volume.isEmpty()) {
        return false;
    }
    // A helper like the others: its parent, this process, must hold the unlock.
    m_process = new QProcess(this);
    m_process->setProgram(m_program);
    m_process->setArguments({QString::fromLatin1(OVFixedPaths::ToolArgument)});
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    const QString mountPoint = QString::fromUtf8(OVFixedPaths::VolumesFolder) + QLatin1Char('/') + server.volume;
    connect(m_process, &QProcess::errorOccurred, this, [this, mountPoint](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) {
            return;
        }
        const QString message = m_process->program() + QStringLiteral(": ") + m_process->errorString();
        m_process->deleteLater();
        m_process = nullptr;
        Q_EMIT finished(false, mountPoint, message);
    });
    connect(m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, [this, mountPoint](int code, QProcess::ExitStatus status) {
        // The last line says why; the tool's name in front of it says nothing to the user.
        const QStringList lines = QString::fromUtf8(m_process->readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QString message = lines.isEmpty() ? QString() : lines.last().trimmed();
        for (const QLatin1String prefix : {QLatin1String("automount: "), QLatin1String("connect_volume: ")}) {
            if (message.startsWith(prefix)) {
                message.remove(0, prefix.size());
            }
        }
        m_process->deleteLater();
        m_process = nullptr;
        Q_EMIT finished(status == QProcess::NormalExit && code == 0, mountPoint, message);
    });
    m_process->start();
    m_process->write(OVToolLauncher::parts({{"server", server.address.toUtf8()}, {"account", server.account.toUtf8()}, {"volume", server.volume.toUtf8()}}));
    m_process->closeWriteChannel();
    return true;
}
