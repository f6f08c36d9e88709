// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVSaveJob.h"

#include "OVLocalizedStrings.h"
#include "OVLock.h"
#include "OVToolLauncher.h"
#include "OVToolReport.h"
#include "ovpane_debug.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>
#include <QWidget>

#include <unistd.h>

namespace
{
QList<OVSaveJob *> &runningJobs()
{
    static QList<OVSaveJob *> jobs;
    return jobs;
}

struct Waiting {
    QPointer<QObject> context;
    std::function<void()> what;
};
QList<Waiting> &waitingForIdle()
{
    static QList<Waiting> waiting;
    return waiting;
}

// Set while the application's end waits for the jobs.
bool s_finishing = false;

}

void OVSaveJob::keepUnapplied(const QByteArray &items)
{
    const QString path = OVSaveJob::unappliedPath();
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(items) != items.size() || !file.commit()) {
        qCWarning(OVLOG_PANE) << "cannot keep the items until they are applied:" << path << file.errorString();
    }
}

QString OVSaveJob::unappliedPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/orvane/unapplied-items.plist");
}

std::optional<OVSaveJob::Unapplied> OVSaveJob::unapplied()
{
    QFile file(unappliedPath());
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return Unapplied{file.readAll(), QFileInfo(file).lastModified()};
}

void OVSaveJob::forgetUnapplied()
{
    QFile::remove(unappliedPath());
}

OVSaveJob::OVSaveJob(const QVector<Step> &steps, QObject *owner, QWidget *window, const std::optional<QByteArray> &items)
    : QObject(QCoreApplication::instance())
    , m_steps(steps)
    , m_owner(owner)
    , m_window(window)
    , m_items(items)
{
}

OVSaveJob *OVSaveJob::start(const QVector<Step> &steps, QObject *owner, QWidget *window, const std::optional<QByteArray> &items)
{
    static const bool waitsAtTheEnd = [] {
        // The module is gone by now; its last save is not.
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, [] {
            finishAll(120000);
        });
        return true;
    }();
    Q_UNUSED(waitsAtTheEnd)

    auto *job = new OVSaveJob(steps, owner, window, items);
    runningJobs().append(job);
    if (items) {
        keepUnapplied(*items);
    }
    // One job after the other: a save and the master switch never mix
    // their helpers.
    if (runningJobs().size() == 1) {
        job->begin();
    }
    return job;
}

void OVSaveJob::begin()
{
    if (::geteuid() == 0) {
        // Root's helpers need no unlock.
        QMetaObject::invokeMethod(
            this,
            [this] {
                authorized(true);
            },
            Qt::QueuedConnection);
        return;
    }
    m_lock = new OVLock(this);
    connect(m_lock, &OVLock::authorizationUnavailable, this, [this](OVLock::Failure failure, const QString &) {
        m_unavailable = OVLocalized(failure == OVLock::Failure::NoAgent ? "NoPolkitAgentExplanation" : "NoPolkitExplanation");
    });
    connect(m_lock, &OVLock::authorizationFinished, this, &OVSaveJob::authorized);
    m_lock->requestAuthorization();
}

bool OVSaveJob::isRunning()
{
    return !runningJobs().isEmpty();
}

void OVSaveJob::whenIdle(QObject *context, std::function<void()> what)
{
    if (!isRunning()) {
        what();
        return;
    }
    waitingForIdle().append({context, std::move(what)});
}

bool OVSaveJob::finishAll(int msecs)
{
    if (!isRunning()) {
        return true;
    }
    s_finishing = true;
    const QDeadlineTimer deadline(msecs);
    QEventLoop loop;
    QTimer tick;
    connect(&tick, &QTimer::timeout, &loop, [&loop, &deadline] {
        if (!isRunning() || deadline.hasExpired()) {
            loop.quit();
        }
    });
    tick.start(50);
    loop.exec();
    s_finishing = false;
    if (isRunning()) {
        qCWarning(OVLOG_PANE) << "the last save did not end in time; its items are offered at the next opening";
    }
    return !isRunning();
}

void OVSaveJob::authorized(bool granted)
{
    if (!granted) {
        finish(Outcome::NotAuthorized, m_unavailable.isEmpty() ? OVLocalized("PasswordNotGiven") : m_unavailable);
        return;
    }
    runNext();
}

void OVSaveJob::runNext()
{
    if (m_steps.isEmpty()) {
        finish(Outcome::Done, QString());
        return;
    }
    const Step step = m_steps.takeFirst();
    const QString tool = QString::fromLatin1(step.tool);
    OVToolLauncher::launch(step.tool, step.input, [this, tool](bool ok, const QString &message) {
        if (ok) {
            runNext();
        } else {
            // What comes after it builds on it: the schedule never points at
            // scripts that were not installed.
            finish(Outcome::ToolFailed, OVToolReport::failureText(tool, message));
        }
    });
}

void OVSaveJob::finish(Outcome outcome, const QString &reason)
{
    if (outcome == Outcome::Done && m_items) {
        // A later save may have kept other items since; those stay.
        const auto kept = unapplied();
        if (kept && kept->items == *m_items) {
            forgetUnapplied();
        }
    }
    if (outcome != Outcome::Done) {
        qCInfo(OVLOG_PANE) << "a save was not applied:" << reason;
    }
    runningJobs().removeOne(this);
    if (!runningJobs().isEmpty()) {
        runningJobs().first()->begin();
    }
    if (m_owner) {
        Q_EMIT finished(outcome, reason);
    } else if (outcome != Outcome::Done) {
        // The module is gone: its host, or a dialog of its own, tells.
        QWidget *window = m_window && m_window->isVisible() ? m_window.data() : nullptr;
        auto *box = new QMessageBox(QMessageBox::Warning, OVLocalized("ChangesNotApplied"), OVLocalized("ChangesNotApplied"), QMessageBox::NoButton, window);
        box->setObjectName(QStringLiteral("changesNotAppliedAlert"));
        box->setInformativeText(m_items ? reason + QStringLiteral("\n\n") + OVLocalized("ChangesKeptExplanation") : reason);
        box->addButton(OVLocalized("OK"), QMessageBox::AcceptRole);
        box->setAttribute(Qt::WA_DeleteOnClose);
        if (s_finishing) {
            box->exec();
        } else if (window) {
            box->open();
        } else {
            box->show();
        }
    }
    if (!isRunning()) {
        const QList<Waiting> waiting = std::exchange(waitingForIdle(), {});
        for (const Waiting &w : waiting) {
            if (w.context) {
                w.what();
            }
        }
    }
    deleteLater();
}
