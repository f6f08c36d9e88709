// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// What the notices say and when they go, apart from any display or bus.
namespace OVNoticeText
{
// The run as the user knows it: "daily", "weekly", "monthly" or "manual".
// Nothing for a frequency that is not one of "Daily", "Weekly", "Monthly".
std::optional<QString> kindOfRun(const QString &frequency, bool manual);

QString completeText(const QString &kind);
QString errorsText(const QString &kind);
QString cautionText(const QString &kind);
QString promptText(const QString &kind);
// The end notice's text: the headline, then the first lines of what the run
// reported (bytes as the script wrote them), as notification markup.
QString withDetails(const QString &headline, const QByteArray &details);
// "COUNT files in BACKUP are no longer in SOURCE. Delete them from the
// backup?", as notification markup.
QString askDeletionsText(qulonglong count, const QString &backup, const QString &source);
// The name on the session bus held by the end notice of one kind of run;
// a later end notice of that kind takes it, and the earlier one goes.
QString finishedServiceName(const QString &kind);
// "Daily backup", "Manual backup": the title of the progress job.
QString jobTitle(const QString &kind);

// The log a run of this frequency appends to (a manual run uses the daily one).
QString logFile(const QString &frequency);

// Milliseconds after which the end notice closes by itself, or nothing when
// it stays until the user closes it ("AutoDismissAlert", "TimeValue",
// "TimeUnit": 0 seconds, 1 minutes, 2 hours).
std::optional<qint64> dismissDelay(const QVariantMap &settings);

// One line of a run's progress file:
// "<files done> <files total> <bytes done> <bytes total> <source index> <source count>".
struct Progress {
    qulonglong filesDone = 0;
    qulonglong filesTotal = 0;
    qulonglong bytesDone = 0;
    qulonglong bytesTotal = 0;
    qulonglong sourceIndex = 0; // counts from 1, as the script writes it
    qulonglong sourceCount = 0;
    // Of the whole run, by bytes when their total is known, else by files.
    unsigned long percent() const;
    // "2 of 3": the folder being copied, within the count; empty for a run
    // of one folder.
    QString folderText() const;
};
std::optional<Progress> parseProgress(const QByteArray &line);
}
