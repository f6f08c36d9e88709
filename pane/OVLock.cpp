// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVLock.h"

#include <PolkitQt1/Authority>
#include <PolkitQt1/Subject>
#include <PolkitQt1/TemporaryAuthorization>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QProcess>
#include <QRegularExpression>

using PolkitQt1::Authority;

const QString OVLock::ActionId = QStringLiteral("org.orvane.Orvane.unlock");

OVLock::OVLock(QObject *parent)
    : QObject(parent)
{
    connect(Authority::instance(), &Authority::checkAuthorizationFinished, this, [this](Authority::Result result) {
        if (!m_pending) {
            return;
        }
        m_pending = false;
        Authority *authority = Authority::instance();
        const Failure failure = failureFor(result, authority->hasError());
        if (failure != Failure::None) {
            const QString details = authority->errorDetails();
            authority->clearError();
            Q_EMIT authorizationUnavailable(failure, details);
        }
        Q_EMIT authorizationFinished(result == Authority::Yes);
    });
}

bool OVLock::authorityOnBus()
{
    // Running, or started by the bus on the first call.
    const QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        return false;
    }
    const QString name = QStringLiteral("org.freedesktop.PolicyKit1");
    QDBusConnectionInterface *daemon = bus.interface();
    if (daemon->isServiceRegistered(name).value()) {
        return true;
    }
    const QDBusReply<QStringList> activatable = daemon->call(QStringLiteral("ListActivatableNames"));
    return activatable.isValid() && activatable.value().contains(name);
}

OVLock::Failure OVLock::failureFor(int result, bool authorityError)
{
    // Unknown comes with an error when polkitd is not there to answer;
    // Challenge means a password would do, but no agent is there to ask.
    if (authorityError || result == Authority::Unknown) {
        return Failure::NoAuthority;
    }
    return result == Authority::Challenge ? Failure::NoAgent : Failure::None;
}

bool OVLock::isAdminGroupList(const QString &groups)
{
    if (groups.contains(QLatin1String("admin"))) {
        return true;
    }
    const QStringList names = groups.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
    return names.contains(QLatin1String("sudo")) || names.contains(QLatin1String("wheel"));
}

bool OVLock::isAdminUser()
{
    QProcess groups;
    groups.start(QStringLiteral("/usr/bin/groups"), QStringList());
    if (!groups.waitForFinished(5000)) {
        groups.kill();
        return false;
    }
    return isAdminGroupList(QString::fromLatin1(groups.readAllStandardOutput()));
}

void OVLock::initPrivilege()
{
    if (m_pending) {
        m_pending = false;
        Authority::instance()->checkAuthorizationCancel();
    }
}

void OVLock::requestAuthorization()
{
    if (m_pending) {
        return;
    }
    Authority *authority = Authority::instance();
    if (authority->hasError() || !authorityOnBus()) {
        // No polkit: the lock cannot open. Say so, and answer as polkit would have.
        const QString details = authority->errorDetails();
        authority->clearError();
        QMetaObject::invokeMethod(
            this,
            [this, details] {
                Q_EMIT authorizationUnavailable(Failure::NoAuthority, details);
                Q_EMIT authorizationFinished(false);
            },
            Qt::QueuedConnection);
        return;
    }
    m_pending = true;
    authority->checkAuthorization(ActionId, PolkitQt1::UnixProcessSubject(QCoreApplication::applicationPid()), Authority::AllowUserInteraction);
}

void OVLock::removePrivilege()
{
    initPrivilege();
    Authority *authority = Authority::instance();
    const auto kept = authority->enumerateTemporaryAuthorizationsSync(PolkitQt1::UnixProcessSubject(QCoreApplication::applicationPid()));
    for (const PolkitQt1::TemporaryAuthorization &authorization : kept) {
        if (authorization.actionId() == ActionId) {
            authority->revokeTemporaryAuthorizationSync(authorization.id());
        }
    }
    authority->clearError();
}
