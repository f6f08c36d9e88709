// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "ovfixedpaths.h"

#include <QByteArray>
#include <QString>
#include <array>
#include <optional>

// Orvane's lines in the system crontab and in the anacron table. The pane
// only edits copies: the edited table goes to /tmp for install_crontab.
namespace OVScheduleTables
{
struct Times {
    int dailyMinute = 0, dailyHour = 0;
    int weeklyMinute = 0, weeklyHour = 0, weeklyDay = 0;
    int monthlyMinute = 0, monthlyHour = 0, dayOfMonth = 1;
};

// The schedule's script path: a line holding it is the pane's.
QByteArray scriptPath(OVFrequency schedule);
QByteArray cronLine(OVFrequency schedule, const Times &times);
QByteArray anacronLine(OVFrequency schedule);

// For each schedule, the first line holding its script path is replaced by
// the wanted line, or deleted when none is wanted; a wanted line that has
// no place yet goes at the very end. Every other line stays as it is.
QByteArray edit(QByteArray table, const std::array<std::optional<QByteArray>, 3> &wanted);

// The files: "/etc/crontab" (or the saved "/etc/crontab.ov" when it is
// missing) and "/etc/anacrontab", edited into "/tmp/crontab.orvane" and
// "/tmp/anacrontab.orvane". A base that cannot be read writes nothing.
void buildCrontab(const Times &times, const std::array<bool, 3> &scheduled);
void restoreCrontab();
// False, writing nothing, when there is no /etc/anacrontab.
bool buildAnacrontab(const std::array<bool, 3> &scheduled);
bool restoreAnacrontab();
void installCrontab();

// A save's schedule: the wanted lines go into the table that runs them (the
// anacron table when useAnacron, else the crontab) and out of the other,
// then install_crontab. With no anacron table, cron takes the schedule back
// and useAnacron turns false.
void applySchedule(bool &useAnacron, const Times &times, const std::array<bool, 3> &scheduled);
// The master switch off: the pane's lines leave the table that runs them.
void removeSchedule(bool useAnacron);
}
