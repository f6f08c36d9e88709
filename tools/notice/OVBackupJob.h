// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <KJob>
#include <QElapsedTimer>
#include <QTimer>

// A running backup as the desktop sees it: files and bytes read from the
// run's progress file, which the run replaces about once a second and
// removes when it ends. The job cannot stop the run (that belongs to root),
// so it offers no cancel.
class OVBackupJob : public KJob
{
    Q_OBJECT
public:
    OVBackupJob(const QString &progressFile, const QString &title, QObject *parent = nullptr);
    void start() override;
    // The run is over (its pipe closed): the job ends now.
    void end();

private:
    void poll();

    QString m_progressFile;
    QString m_title;
    QTimer m_timer;
    QByteArray m_lastLine;
    bool m_seen = false;
    int m_polls = 0;
    QElapsedTimer m_unchanged;
};
