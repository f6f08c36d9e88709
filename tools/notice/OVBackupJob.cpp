// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVBackupJob.h"

#include "OVNoticeText.h"

#include <QFile>

namespace
{
constexpr int PollMilliseconds = 400;
// A run writes its progress file before it starts this program; one that
// never appears means the run is already over.
constexpr int PollsBeforeGivingUp = 25;
// A file that has not changed for this long was left by a run that died.
constexpr qint64 StaleMilliseconds = 6 * 3600 * 1000;
}

OVBackupJob::OVBackupJob(const QString &progressFile, const QString &title, QObject *parent)
    : KJob(parent)
    , m_progressFile(progressFile)
    , m_title(title)
{
    setCapabilities(KJob::NoCapabilities);
    m_timer.setInterval(PollMilliseconds);
    connect(&m_timer, &QTimer::timeout, this, &OVBackupJob::poll);
}

void OVBackupJob::start()
{
    Q_EMIT description(this, m_title);
    m_unchanged.start();
    poll();
    m_timer.start();
}

void OVBackupJob::end()
{
    if (m_timer.isActive()) {
        m_timer.stop();
        emitResult();
    }
}

void OVBackupJob::poll()
{
    ++m_polls;
    QFile file(m_progressFile);
    if (!file.open(QIODevice::ReadOnly)) {
        if (m_seen || m_polls >= PollsBeforeGivingUp) {
            end();
        }
        return;
    }
    m_seen = true;
    const QByteArray line = file.readLine(256);
    if (line == m_lastLine) {
        if (m_unchanged.hasExpired(StaleMilliseconds)) {
            end();
        }
        return;
    }
    m_unchanged.restart();
    // A line that is not ours leaves the last good one standing.
    const std::optional<OVNoticeText::Progress> progress = OVNoticeText::parseProgress(line);
    if (!progress) {
        return;
    }
    m_lastLine = line;
    setTotalAmount(KJob::Files, progress->filesTotal);
    setProcessedAmount(KJob::Files, progress->filesDone);
    setTotalAmount(KJob::Bytes, progress->bytesTotal);
    setProcessedAmount(KJob::Bytes, progress->bytesDone);
    setPercent(progress->percent());
    const QString folder = progress->folderText();
    if (!folder.isEmpty()) {
        Q_EMIT description(this, m_title, {QStringLiteral("Folder"), folder});
    }
}
