// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <functional>

class QProcess;

// Starts the helper tools from the bundle's resources, as children of this
// process (the helpers ask polkit whether their parent holds the unlock),
// with the one argument "--Orvane" and their input on standard input.
// The GUI never waits: tools run one after the other in the order they were
// launched, and each one's result comes back through toolFinished.
class OVToolLauncher : public QObject
{
    Q_OBJECT
public:
    using Parts = QList<QPair<QByteArray, QByteArray>>;
    // What one tool's end tells its caller: as toolFinished.
    using Done = std::function<void(bool ok, const QString &message)>;

    // The one launcher of the process.
    static OVToolLauncher *instance();

    // Queues tool with input for its standard input; done, when given, hears
    // how this run of it ended (after toolFinished).
    static void launch(const char *tool, const QByteArray &input = QByteArray(), Done done = {});
    // Input in parts, for the tools that take several: each part is
    // "NAME LENGTH\n" followed by exactly LENGTH bytes.
    static QByteArray parts(const Parts &parts);

    // Blocks until every queued tool has ended, or msecs have passed (for
    // the save when the host window closes). False when some did not end.
    bool waitForAll(int msecs);
    bool isBusy() const;

Q_SIGNALS:
    // ok: the tool exited with status 0. message: its last line on standard
    // error, or what kept it from running.
    void toolFinished(const QString &tool, bool ok, const QString &message);

private:
    explicit OVToolLauncher(QObject *parent = nullptr);
    void startNext();
    void finish(bool ok, const QString &message);

    struct Job {
        QString tool;
        QByteArray input;
        Done done;
    };
    QList<Job> m_queue;
    QProcess *m_process = nullptr;
    QString m_running;
    Done m_done;
};
