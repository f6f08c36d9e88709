// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVScheduleTables.h"

#include "OVSettings.h"
#include "ovschedule_debug.h"

#include <QFile>

namespace OVScheduleTables
{
namespace
{
std::optional<QByteArray> readFile(const char *path)
{
    QFile file(QString::fromUtf8(path));
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(OVLOG_SCHEDULE) << "cannot read" << file.fileName() << file.errorString() << "- the schedule there stays as it is";
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

using Wanted = std::array<std::optional<QByteArray>, OVFixedPaths::ScheduledCount>;

template<typename Line>
Wanted wantedLines(const Scheduled &scheduled, Line line)
{
    Wanted wanted;
    for (std::size_t schedule = 0; schedule < OVFixedPaths::ScheduledCount; ++schedule) {
        if (scheduled[schedule]) {
            wanted[schedule] = line(OVFixedPaths::Scheduled[schedule].frequency);
        }
    }
    return wanted;
}
}

Times times(const OVSettings &settings)
{
    Times times;
    for (std::size_t schedule = 0; schedule < OVFixedPaths::ScheduledCount; ++schedule) {
        const OVFrequency frequency = OVFixedPaths::Scheduled[schedule].frequency;
        // Twelve minute entries in the morning, twelve in the afternoon.
        const int minute = settings.minute(frequency);
        times.at[schedule].minute = (minute % 12) * 5;
        times.at[schedule].hour = settings.hour(frequency) + (minute >= 12 ? 12 : 0);
    }
    times.weekday = settings.weeklyDay();
    times.dayOfMonth = settings.dayOfMonth() + 1;
    return times;
}

QByteArray scriptPath(OVFrequency schedule)
{
    return QByteArray(OVFixedPaths::files(schedule).script);
}

QByteArray cronLine(OVFrequency schedule, const Times &times)
{
    const OVFixedPaths::FrequencyFiles &files = OVFixedPaths::files(schedule);
    if (!files.script) {
        return QByteArray();
    }
    const Times::Time &time = times.at[static_cast<int>(schedule)];
    QByteArray days;
    switch (files.cronDay) {
    case OVFixedPaths::CronDay::EveryDay:
        days = "*\t*\t*";
        break;
    case OVFixedPaths::CronDay::Weekday:
        days = "*\t*\t" + QByteArray::number(times.weekday);
        break;
    case OVFixedPaths::CronDay::MonthDay:
        days = QByteArray::number(times.dayOfMonth) + "\t*\t*";
        break;
    }
    return QByteArray::number(time.minute) + '\t' + QByteArray::number(time.hour) + '\t' + days + "\troot\t\"" + files.script + "\"\n";
}

QByteArray anacronLine(OVFrequency schedule)
{
    return QByteArray(OVFixedPaths::files(schedule).anacronJob) + '"' + scriptPath(schedule) + "\"\n";
}

QByteArray edit(QByteArray table, const Wanted &wanted)
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

std::optional<QByteArray> crontabWith(const Times &times, const Scheduled &scheduled)
{
    const auto table = readCrontab();
    if (!table) {
        return std::nullopt;
    }
    return edit(*table, wantedLines(scheduled, [&times](OVFrequency schedule) {
        return cronLine(schedule, times);
    }));
}

std::optional<QByteArray> anacrontabWith(const Scheduled &scheduled)
{
    if (!QFile::exists(QString::fromUtf8(OVFixedPaths::Anacrontab))) {
        return std::nullopt;
    }
    const auto table = readFile(OVFixedPaths::Anacrontab);
    if (!table) {
        return std::nullopt;
    }
    return edit(*table, wantedLines(scheduled, anacronLine));
}

namespace
{
OVToolLauncher::Parts parts(const std::optional<QByteArray> &crontab, const std::optional<QByteArray> &anacrontab)
{
    OVToolLauncher::Parts parts;
    if (crontab) {
        parts.append({"crontab", *crontab});
    }
    if (anacrontab) {
        parts.append({"anacrontab", *anacrontab});
    }
    return parts;
}
}

OVToolLauncher::Parts tables(bool &useAnacron, const Times &times, const Scheduled &scheduled)
{
    const Scheduled none{};
    if (useAnacron) {
        if (QFile::exists(QString::fromUtf8(OVFixedPaths::Anacrontab))) {
            return parts(crontabWith(times, none), anacrontabWith(scheduled));
        }
        // Anacron is gone: cron takes the schedule back.
        useAnacron = false;
    }
    return parts(crontabWith(times, scheduled), anacrontabWith(none));
}

OVToolLauncher::Parts tablesWithout(bool useAnacron)
{
    const Scheduled none{};
    return useAnacron ? parts(std::nullopt, anacrontabWith(none)) : parts(crontabWith(Times(), none), std::nullopt);
}
}
