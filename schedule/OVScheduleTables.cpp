// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVScheduleTables.h"

#include "OVTemporaryFile.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"

#include <QFile>

namespace OVScheduleTables
{
namespace
{
std::optional<QByteArray> readFile(const char *path)
{
    QFile file(QString::fromUtf8(path));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return file.readAll();
}

std::optional<QByteArray> readCrontab()
{
    if (QFile::exists(QString::fromUtf8(OVFixedPaths::Crontab))) {
        return readFile(OVFixedPaths::Crontab);
    }
    return readFile(OVFixedPaths::SavedCrontab);
}

// The edited tables wait here for installCrontab, which hands them to the
// helper on its standard input.
QByteArray s_crontab, s_anacrontab;
bool s_hasCrontab = false, s_hasAnacrontab = false;

void keepCrontab(const QByteArray &text)
{
    s_crontab = text;
    s_hasCrontab = true;
}

void keepAnacrontab(const QByteArray &text)
{
    s_anacrontab = text;
    s_hasAnacrontab = true;
}
}

QByteArray scriptPath(OVFrequency schedule)
{
    return QByteArray(OVFixedPaths::files(schedule).script);
}

QByteArray cronLine(OVFrequency schedule, const Times &t)
{
    const QByteArray quoted = '"' + scriptPath(schedule) + '"';
    switch (schedule) {
    case OVFrequency::Daily:
        return QByteArray::number(t.dailyMinute) + '\t' + QByteArray::number(t.dailyHour) + "\t*\t*\t*\troot\t" + quoted + '\n';
    case OVFrequency::Weekly:
        return QByteArray::number(t.weeklyMinute) + '\t' + QByteArray::number(t.weeklyHour) + "\t*\t*\t" + QByteArray::number(t.weeklyDay) + "\troot\t" + quoted
            + '\n';
    case OVFrequency::Monthly:
        return QByteArray::number(t.monthlyMinute) + '\t' + QByteArray::number(t.monthlyHour) + '\t' + QByteArray::number(t.dayOfMonth) + "\t*\t*\troot\t"
            + quoted + '\n';
    case OVFrequency::Manual:
        break;
    }
    return QByteArray();
}

QByteArray anacronLine(OVFrequency schedule)
{
    return QByteArray(OVFixedPaths::files(schedule).anacronJob) + '"' + scriptPath(schedule) + "\"\n";
}

QByteArray edit(QByteArray table, const std::array<std::optional<QByteArray>, 3> &wanted)
{
    for (std::size_t schedule = 0; schedule < OVFixedPaths::ScheduledCount; ++schedule) {
        const int at = table.indexOf(scriptPath(OVFixedPaths::Scheduled[schedule].frequency));
        if (at < 0) {
            if (wanted[schedule]) {
                table.append(*wanted[schedule]);
            }
            continue;
        }
        const int begin = table.lastIndexOf('\n', at) + 1;
        const int newline = table.indexOf('\n', at);
        const int end = newline < 0 ? table.size() : newline + 1;
        table.replace(begin, end - begin, wanted[schedule].value_or(QByteArray()));
    }
    return table;
}

void buildCrontab(const Times &times, const std::array<bool, 3> &scheduled)
{
    const auto table = readCrontab();
    if (!table) {
        return;
    }
    std::array<std::optional<QByteArray>, 3> wanted;
    for (std::size_t schedule = 0; schedule < OVFixedPaths::ScheduledCount; ++schedule) {
        if (scheduled[schedule]) {
            wanted[schedule] = cronLine(OVFixedPaths::Scheduled[schedule].frequency, times);
        }
    }
    keepCrontab(edit(*table, wanted));
}

void restoreCrontab()
{
    const auto table = readCrontab();
    if (table) {
        keepCrontab(edit(*table, {}));
    }
}

bool buildAnacrontab(const std::array<bool, 3> &scheduled)
{
    if (!QFile::exists(QString::fromUtf8(OVFixedPaths::Anacrontab))) {
        return false;
    }
    const auto table = readFile(OVFixedPaths::Anacrontab);
    if (table) {
        std::array<std::optional<QByteArray>, 3> wanted;
        for (std::size_t schedule = 0; schedule < OVFixedPaths::ScheduledCount; ++schedule) {
            if (scheduled[schedule]) {
                wanted[schedule] = anacronLine(OVFixedPaths::Scheduled[schedule].frequency);
            }
        }
        keepAnacrontab(edit(*table, wanted));
    }
    return true;
}

bool restoreAnacrontab()
{
    if (!QFile::exists(QString::fromUtf8(OVFixedPaths::Anacrontab))) {
        return false;
    }
    const auto table = readFile(OVFixedPaths::Anacrontab);
    if (table) {
        keepAnacrontab(edit(*table, {}));
    }
    return true;
}

void installCrontab()
{
    OVToolLauncher::Parts parts;
    if (s_hasCrontab) {
        parts.append({"crontab", s_crontab});
    }
    if (s_hasAnacrontab) {
        parts.append({"anacrontab", s_anacrontab});
    }
    s_hasCrontab = s_hasAnacrontab = false;
    OVToolLauncher::launch(OVFixedPaths::InstallCrontabTool, OVToolLauncher::parts(parts));
}

void applySchedule(bool &useAnacron, const Times &times, const std::array<bool, 3> &scheduled)
{
    if (useAnacron && !buildAnacrontab(scheduled)) {
        // Anacron is gone: cron takes the schedule back.
        useAnacron = false;
    }
    if (useAnacron) {
        restoreCrontab();
    } else {
        buildCrontab(times, scheduled);
        restoreAnacrontab();
    }
    installCrontab();
}

void removeSchedule(bool useAnacron)
{
    if (useAnacron) {
        restoreAnacrontab();
    } else {
        restoreCrontab();
    }
    installCrontab();
}
}
