// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVToolLauncher.h"

#include "OVBundle.h"
#include "ovfixedpaths.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>

OVToolLauncher::OVToolLauncher(QObject *parent)
    : QObject(parent)
{
}

OVToolLauncher *OVToolLauncher::instance()
{
    // Lives as long as the application: a save's tools outlive the module.
    static OVToolLauncher *launcher = new OVToolLauncher(QCoreApplication::instance());
    return launcher;
}

void OVToolLauncher::launch(const char *tool, const QByteArray &input, Done done)
{
    OVToolLauncher *self = instance();
    self->m_queue.append({QString::fromLatin1(tool), input, std::move(done)});
    if (!self->m_process) {
        self->startNext();
    }
}

QByteArray OVToolLauncher::parts(const Parts &parts)
{
    QByteArray input;
    for (const auto &part : parts) {
        input += part.first + ' ' + QByteArray::number(part.second.size()) + '\n' + part.second;
    }
    return input;
}

bool OVToolLauncher::isBusy() const
{
    return m_process || !m_queue.isEmpty();
}

void OVToolLauncher::startNext()
{
    if (m_queue.isEmpty()) {
        return;
    }
    const Job job = m_queue.takeFirst();
    m_running = job.tool;
    m_done = job.done;
    m_process = new QProcess(this);
    m_process->setProgram(OVBundle::toolPath(job.tool));
    m_process->setArguments({QString::fromLatin1(OVFixedPaths::ToolArgument)});
    m_process->setStandardOutputFile(QProcess::nullDevice());
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            finish(false, QStringLiteral("%1: cannot be started: %2").arg(m_running, m_process->errorString()));
        }
    });
    connect(m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, [this](int code, QProcess::ExitStatus status) {
        const QStringList lines = QString::fromLocal8Bit(m_process->readAllStandardError()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QString message = lines.isEmpty() ? QString() : lines.last();
        const bool ok = status == QProcess::NormalExit && code == 0;
        if (!ok && message.isEmpty()) {
            message = status == QProcess::CrashExit ? QStringLiteral("%1: stopped by a signal").arg(m_running)
                                                    : QStringLiteral("%1: failed with status %2").arg(m_running).arg(code);
        }
        finish(ok, message);
    });
    QProcess *process = m_process;
    process->start(QIODevice::ReadWrite);
    // A start that failed at once has already moved on to the next tool.
    if (m_process == process && process->state() != QProcess::NotRunning) {
        process->write(job.input);
        process->closeWriteChannel();
    }
}

void OVToolLauncher::finish(bool ok, const QString &message)
{
    if (!m_process) {
        return;
    }
    m_process->deleteLater();
    m_process = nullptr;
    const QString tool = m_running;
    m_running.clear();
    const Done done = std::move(m_done);
    m_done = nullptr;
    Q_EMIT toolFinished(tool, ok, message);
    if (done) {
        // It may have launched the next tool already.
        done(ok, message);
    }
    if (!m_process) {
        startNext();
    }
}

bool OVToolLauncher::waitForAll(int msecs)
{
    const QDeadlineTimer deadline(msecs);
    while (m_process) {
        QProcess *process = m_process;
        if (!process->waitForFinished(static_cast<int>(qMax<qint64>(1, deadline.remainingTime()))) && m_process == process) {
            if (deadline.hasExpired()) {
                return false;
            }
            // Failed to start: the error has been handled above.
            if (process->state() == QProcess::NotRunning) {
                finish(false, QStringLiteral("%1: cannot be started").arg(m_running));
            }
        }
    }
    return m_queue.isEmpty();
}
