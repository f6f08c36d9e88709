// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "ovfixedpaths.h"

#include <QByteArrayList>
#include <QDate>
#include <QObject>
#include <array>
#include <functional>
#include <optional>

class QLabel;
class QPushButton;
class QTimer;

// Shows, per scheduled frequency, whether a backup runs now and the date and
// result of the last one, from the files the backup scripts leave behind.
class OVStatusMonitor : public QObject
{
    Q_OBJECT
public:
    struct Row {
        QPushButton *button;
        QLabel *image;
    };

    // The rows of the scheduled frequencies, in their order.
    OVStatusMonitor(const std::array<Row, OVFixedPaths::ScheduledCount> &rows, std::function<bool()> isAuthorized, QObject *parent = nullptr);

    // Refreshes the three running flags: a run flag in /tmp counts while the
    // process whose PID it holds is alive and is a backup script (root's
    // ruby); any other flag is stale, ignored and removed when possible.
    bool isBackupRunning();
    bool isRunning(OVFrequency frequency) const
    {
        return m_running[static_cast<int>(frequency)];
    }

    // Refreshes the six controls, then reports updated().
    void updateLogButtons();

    // The five-second poll, fired at once when asked.
    void startTimer(bool fireNow);
    void stopTimer();
    bool isTimerActive() const;

    // The last scheduled run in the file beside the marker: its date
    // ("%m/%d/%y") and result ("complete", "errors", "caution"). Nothing
    // when no scheduled run is in it (only manual runs since it was kept).
    static std::optional<QByteArrayList> scheduledRun(const QByteArray &lastRun);
    // The last-backup marker shown in the user's short date format, or
    // nothing when it is no date.
    static QString displayDate(const QByteArray &marker);

Q_SIGNALS:
    void updated();

private:
    std::array<Row, OVFixedPaths::ScheduledCount> m_rows;
    std::function<bool()> m_isAuthorized;
    std::array<bool, OVFixedPaths::ScheduledCount> m_running{};
    QTimer *m_timer;
};
