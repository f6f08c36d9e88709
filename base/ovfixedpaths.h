// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The fixed paths of the installed product. Plain C++ so that the set-user-ID
// helpers, which link no Qt, share them with the pane.
#pragma once

#include <cstddef>

namespace OVFixedPaths
{
constexpr const char BundlePath[] = "/Library/PreferencePanes/Orvane.prefPane";
constexpr const char ResourcesPath[] = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources";
constexpr const char InfoPlistPath[] = "/Library/PreferencePanes/Orvane.prefPane/Contents/Info.plist";

constexpr const char LibraryFolder[] = "/Library";
constexpr const char ApplicationSupportFolder[] = "/Library/Application Support";
constexpr const char SupportFolder[] = "/Library/Application Support/Orvane";
constexpr const char DailyFolder[] = "/Library/Application Support/Orvane/.daily";
constexpr const char WeeklyFolder[] = "/Library/Application Support/Orvane/.weekly";
constexpr const char MonthlyFolder[] = "/Library/Application Support/Orvane/.monthly";

constexpr const char ItemsArchive[] = "/Library/Application Support/Orvane/BackupItems.plist";
constexpr const char ItemsArchiveName[] = "BackupItems.plist";
// archive_table keeps the archive it replaces here, so a list that the pane
// could not read is never lost by the next save.
constexpr const char PreviousItemsArchiveName[] = "BackupItems.previous.plist";

constexpr const char DailyScript[] = "/Library/Application Support/Orvane/.daily/orvane_daily.rb";
constexpr const char WeeklyScript[] = "/Library/Application Support/Orvane/.weekly/orvane_weekly.rb";
constexpr const char MonthlyScript[] = "/Library/Application Support/Orvane/.monthly/orvane_monthly.rb";
constexpr const char DailyScriptName[] = "orvane_daily.rb";
constexpr const char WeeklyScriptName[] = "orvane_weekly.rb";
constexpr const char MonthlyScriptName[] = "orvane_monthly.rb";

constexpr const char TmpDailyScript[] = "/tmp/orvane_daily.rb";
constexpr const char TmpWeeklyScript[] = "/tmp/orvane_weekly.rb";
constexpr const char TmpMonthlyScript[] = "/tmp/orvane_monthly.rb";
constexpr const char TmpManualScript[] = "/tmp/orvane_manual.rb";

constexpr const char DailyRunFlag[] = "/tmp/ov_Daily.run";
constexpr const char WeeklyRunFlag[] = "/tmp/ov_Weekly.run";
constexpr const char MonthlyRunFlag[] = "/tmp/ov_Monthly.run";

constexpr const char DailyLog[] = "/var/log/orvane_daily.log";
constexpr const char WeeklyLog[] = "/var/log/orvane_weekly.log";
constexpr const char MonthlyLog[] = "/var/log/orvane_monthly.log";
constexpr const char DailyErrors[] = "/var/log/.orvane_daily.err";
constexpr const char WeeklyErrors[] = "/var/log/.orvane_weekly.err";
constexpr const char MonthlyErrors[] = "/var/log/.orvane_monthly.err";

constexpr const char Crontab[] = "/etc/crontab";
constexpr const char SavedCrontab[] = "/etc/crontab.ov";
constexpr const char Anacrontab[] = "/etc/anacrontab";

constexpr const char SystemSounds[] = "/System/Library/Sounds";
constexpr const char LibrarySounds[] = "/Library/Sounds";
// Relative to the user's home folder.
constexpr const char UserSounds[] = "Library/Sounds";

constexpr const char ToolArgument[] = "--Orvane";
constexpr const char ArchiveTableTool[] = "archive_table";
constexpr const char InstallScriptsTool[] = "install_scripts";
constexpr const char RemoveScriptsTool[] = "remove_scripts";
constexpr const char InstallCrontabTool[] = "install_crontab";
constexpr const char ManualBackupTool[] = "manual_backup";
constexpr const char ManualBackupToolPath[] = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/manual_backup";

constexpr const char ManualScriptName[] = "orvane_manual.rb";

// The change journal: its daemon, its state (root, 0700) and its socket
// (root only).
constexpr const char JournalDaemon[] = "/usr/libexec/orvane-journal";
constexpr const char StateFolder[] = "/var/lib/orvane";
constexpr const char JournalStateFolder[] = "/var/lib/orvane/journal";
constexpr const char JournalSocket[] = "/run/orvane-journal.socket";

// psync: the rsync it drives (and the oldest it accepts), and its per-pair
// state (root, 0700).
constexpr const char RsyncPath[] = "/usr/bin/rsync";
constexpr const char RsyncVersionNeeded[] = "3.5.0";
constexpr const char PsyncStateFolder[] = "/var/lib/orvane/psync";
}

// The backup frequencies, numbered as an item's frequency column stores
// them. The frequency menu's fourth entry (3) is a separator, no schedule.
enum class OVFrequency : int { Daily = 0, Weekly = 1, Monthly = 2, Manual = 4 };

namespace OVFixedPaths
{
// Everything that differs between the frequencies, in one row each. Adding
// a file for every frequency means adding one column here.
struct FrequencyFiles {
    OVFrequency frequency;
    const char *name; // "Daily": the scripts' frequency, the notices
    const char *word; // "daily": the item types, the anacron tag
    const char *settingPrefix; // "Daily", "Manually": the option keys
    const char *folder; // the installed script's folder, holding the marker
    const char *scriptName;
    const char *script;
    const char *tmpScript; // where older versions handed the script over; start-up removes it
    const char *runFlag;
    const char *log;
    const char *errors;
    const char *lastBackup; // the last-backup marker, "%m/%d/%y"
    const char *anacronJob; // period, delay and tag of the anacron line
};

// The scheduled frequencies, indexed by their OVFrequency value.
constexpr FrequencyFiles Scheduled[] = {
    {OVFrequency::Daily,
     "Daily",
     "daily",
     "Daily",
     DailyFolder,
     DailyScriptName,
     DailyScript,
     TmpDailyScript,
     DailyRunFlag,
     DailyLog,
     DailyErrors,
     "/Library/Application Support/Orvane/.daily/.lastbackup",
     "1\t20\torvane.daily\t"},
    {OVFrequency::Weekly,
     "Weekly",
     "weekly",
     "Weekly",
     WeeklyFolder,
     WeeklyScriptName,
     WeeklyScript,
     TmpWeeklyScript,
     WeeklyRunFlag,
     WeeklyLog,
     WeeklyErrors,
     "/Library/Application Support/Orvane/.weekly/.lastbackup",
     "7\t25\torvane.weekly\t"},
    {OVFrequency::Monthly,
     "Monthly",
     "monthly",
     "Monthly",
     MonthlyFolder,
     MonthlyScriptName,
     MonthlyScript,
     TmpMonthlyScript,
     MonthlyRunFlag,
     MonthlyLog,
     MonthlyErrors,
     "/Library/Application Support/Orvane/.monthly/.lastbackup",
     "30\t30\torvane.monthly\t"},
};
constexpr std::size_t ScheduledCount = sizeof(Scheduled) / sizeof(Scheduled[0]);

// A manual run has its own script and options, and logs and marks as a
// daily one; nothing installs it or schedules it.
constexpr FrequencyFiles Manual = {OVFrequency::Manual,
                                   "Daily",
                                   "manual",
                                   "Manually",
                                   DailyFolder,
                                   ManualScriptName,
                                   nullptr,
                                   TmpManualScript,
                                   DailyRunFlag,
                                   DailyLog,
                                   DailyErrors,
                                   Scheduled[0].lastBackup,
                                   nullptr};

constexpr const FrequencyFiles &files(OVFrequency frequency)
{
    return frequency == OVFrequency::Manual ? Manual : Scheduled[static_cast<int>(frequency)];
}

// Every frequency whose options the user sets, in the order the options show them.
constexpr OVFrequency AllFrequencies[] = {OVFrequency::Daily, OVFrequency::Weekly, OVFrequency::Monthly, OVFrequency::Manual};
}
