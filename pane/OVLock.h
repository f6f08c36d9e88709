// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QObject>

// The pane's lock: an administrator's password, asked by the desktop's
// polkit agent, opens it. It only gates the pane; the helpers make their own
// check of who runs them.
class OVLock : public QObject
{
    Q_OBJECT
public:
    static const QString ActionId;

    explicit OVLock(QObject *parent = nullptr);

    // "/usr/bin/groups" names a group holding "admin", or "sudo" or "wheel".
    static bool isAdminUser();
    static bool isAdminGroupList(const QString &groups);

    // Forgets any check under way: the next unlock starts afresh.
    void initPrivilege();
    // Asks polkit, with the password dialog when needed; the answer comes
    // as authorizationFinished().
    void requestAuthorization();
    bool isRequestPending() const
    {
        return m_pending;
    }
    // Gives up what polkit may have kept for this process, so the next
    // unlock asks again.
    void removePrivilege();

    // Why polkit could not be asked at all, for the user (empty when it was
    // asked and answered).
    enum class Failure { None, NoAuthority, NoAgent };
    static Failure failureFor(int result, bool authorityError);
    // Whether polkit's authority runs on the system bus, or the bus can start it.
    static bool authorityOnBus();

Q_SIGNALS:
    void authorizationFinished(bool granted);
    // Before a refusal that is no answer of an administrator's: no polkit
    // authority runs, or no agent could ask for the password. details:
    // polkit's own words, when it gave any.
    void authorizationUnavailable(OVLock::Failure failure, const QString &details);

private:
    bool m_pending = false;
};
