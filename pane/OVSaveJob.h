// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QVector>
#include <functional>
#include <optional>

class OVLock;
class QWidget;

// What a save or the master switch hands to root, and the way there: polkit
// is asked first, asynchronously (the agent's password dialog when its keep
// time has run out: the host never waits on it), then the helpers run one
// after the other, stopping at the first that fails. A job belongs to the
// application, not to the module: a save applied as the user leaves the
// module goes on after the module is gone, and the application's end waits
// for it.
//
// The items a save hands over are kept in the user's config folder until the
// helpers have put them in place, so an edit that could not be applied (no
// password, no agent, a refusal, the host gone) is offered again at the
// next opening.
class OVSaveJob : public QObject
{
    Q_OBJECT
public:
    struct Step {
        const char *tool;
        QByteArray input;
    };
    enum class Outcome { Done, NotAuthorized, ToolFailed };

    // owner hears finished() while it lives; once it is gone, a failure is
    // shown over window, or, when that is gone too, in a dialog of its own.
    // items: the item archive the steps put in place, kept until they have.
    static OVSaveJob *start(const QVector<Step> &steps, QObject *owner, QWidget *window, const std::optional<QByteArray> &items = std::nullopt);
    static bool isRunning();
    // Calls what once no job runs (at once when none does), if context lives.
    static void whenIdle(QObject *context, std::function<void()> what);
    // Runs the event loop until every job has ended or msecs have passed.
    static bool finishAll(int msecs);

    // The items of a save that was not applied, and when it was made.
    struct Unapplied {
        QByteArray items;
        QDateTime made;
    };
    static std::optional<Unapplied> unapplied();
    static void keepUnapplied(const QByteArray &items);
    static void forgetUnapplied();
    static QString unappliedPath();

Q_SIGNALS:
    // reason: why nothing, or not everything, was put in place, in the
    // user's words (empty when done).
    void finished(OVSaveJob::Outcome outcome, const QString &reason);

private:
    OVSaveJob(const QVector<Step> &steps, QObject *owner, QWidget *window, const std::optional<QByteArray> &items);
    void begin();
    void authorized(bool granted);
    void runNext();
    void finish(Outcome outcome, const QString &reason);

    QVector<Step> m_steps;
    QPointer<QObject> m_owner;
    QPointer<QWidget> m_window;
    std::optional<QByteArray> m_items;
    OVLock *m_lock = nullptr;
    QString m_unavailable;
};
