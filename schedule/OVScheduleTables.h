// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVToolLauncher.h"
#include "ovfixedpaths.h"

#include <QByteArray>
#include <array>
#include <optional>

class OVSettings;

// Orvane's lines in the system crontab and in the anacron table. The pane
// only edits copies of the installed tables; install_crontab takes them.
namespace OVScheduleTables
{
using Scheduled = std::array<bool, OVFixedPaths::ScheduledCount>;

// When each schedule runs, as cron counts.
struct Times {
    struct Time {
        int minute = 0;
        int hour = 0;
    };
    std::array<Time, OVFixedPaths::ScheduledCount> at{};
    int weekday = 0; // 0 Sunday
    int dayOfMonth = 1;
};
// The times the settings' menu entries stand for: hours "12", "1" ... "11",
// minutes ":00 AM" to ":55 PM" in steps of five, weekdays from Sunday, days
// from the 1st.
Times times(const OVSettings &settings);

// The schedule's script path: a line holding it is the pane's.
QByteArray scriptPath(OVFrequency schedule);
QByteArray cronLine(OVFrequency schedule, const Times &times);
QByteArray anacronLine(OVFrequency schedule);

// For each schedule, the first line holding its script path is replaced by
// the wanted line, or deleted when none is wanted; a wanted line that has
// no place yet goes at the very end. Every other line stays as it is.
QByteArray edit(QByteArray table, const std::array<std::optional<QByteArray>, OVFixedPaths::ScheduledCount> &wanted);

// "/etc/crontab" (or the saved "/etc/crontab.ov" when it is missing) with
// the lines of the scheduled ones; nothing when neither can be read.
std::optional<QByteArray> crontabWith(const Times &times, const Scheduled &scheduled);
// "/etc/anacrontab" with the lines of the scheduled ones; nothing when
// there is no anacron table.
std::optional<QByteArray> anacrontabWith(const Scheduled &scheduled);

// A save's tables for install_crontab: the wanted lines go into the table
// that runs them (the anacron table when useAnacron, else the crontab) and
// out of the other. With no anacron table, cron takes the schedule back
// and useAnacron turns false.
OVToolLauncher::Parts tables(bool &useAnacron, const Times &times, const Scheduled &scheduled);
// Backups switched off: the pane's lines leave the table that runs them.
OVToolLauncher::Parts tablesWithout(bool useAnacron);
}
