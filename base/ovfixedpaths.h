// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The fixed paths of the installed product. Plain C++ so that the set-user-ID
// helpers, which link no Qt, share them with the pane. Their roots and the
// scheduled frequencies come from base/ovpaths.cmake at configure time.
#pragma once

#include "ovpaths.h"

#include <cstddef>

namespace OVFixedPaths
{
constexpr const char BundlePath[] = OV_BUNDLE_PATH;
constexpr const char ResourcesPath[] = OV_BUNDLE_PATH "/Contents/Resources";
constexpr const char InfoPlistPath[] = OV_BUNDLE_PATH "/Contents/Info.plist";

constexpr const char LibraryFolder[] = OV_LIBRARY_PATH;
constexpr const char ApplicationSupportFolder[] = OV_LIBRARY_PATH "/Application Support";
constexpr const char SupportFolder[] = OV_SUPPORT_PATH;

constexpr const char ItemsArchiveName[] = "BackupItems.plist";
constexpr const char ItemsArchive[] = OV_SUPPORT_PATH "/BackupItems.plist";
// archive_table keeps the archive it replaces here, so a list that the pane
// could not read is never lost by the next save.
constexpr const char PreviousItemsArchiveName[] = "BackupItems.previous.plist";

// Each scheduled frequency's files, from its two names: Name ("Daily": the
// run flag, the progress file) and word ("daily": the folder, the script,
// the log and the errors).
#define OV_SCHEDULE_PATHS(Name, word, anacron, cronDay)                                                                                                        \
    constexpr const char Name##Folder[] = OV_SUPPORT_PATH "/." #word;                                                                                          \
    constexpr const char Name##ScriptName[] = "orvane_" #word ".rb";                                                                                           \
    constexpr const char Name##Script[] = OV_SUPPORT_PATH "/." #word "/orvane_" #word ".rb";                                                                   \
    constexpr const char Name##LastBackup[] = OV_SUPPORT_PATH "/." #word "/.lastbackup";                                                                       \
    constexpr const char Name##ArchiveRecord[] = OV_SUPPORT_PATH "/." #word "/.archives";                                                                      \
    constexpr const char Name##LastRun[] = OV_SUPPORT_PATH "/." #word "/.lastrun";                                                                             \
    constexpr const char Name##Disks[] = OV_SUPPORT_PATH "/." #word "/.disks";                                                                                 \
    constexpr const char Tmp##Name##Script[] = "/tmp/orvane_" #word ".rb";                                                                                     \
    constexpr const char Name##RunFlag[] = "/tmp/ov_" #Name ".run";                                                                                            \
    constexpr const char Name##Progress[] = "/tmp/ov_" #Name ".progress";                                                                                      \
    constexpr const char Name##Log[] = "/var/log/orvane_" #word ".log";                                                                                        \
    constexpr const char Name##Errors[] = "/var/log/.orvane_" #word ".err";
OV_SCHEDULES(OV_SCHEDULE_PATHS)
#undef OV_SCHEDULE_PATHS

constexpr const char TmpManualScript[] = "/tmp/orvane_manual.rb";
constexpr const char ManualScriptName[] = "orvane_manual.rb";

constexpr const char Crontab[] = "/etc/crontab";
constexpr const char SavedCrontab[] = "/etc/crontab.ov";
constexpr const char Anacrontab[] = "/etc/anacrontab";

constexpr const char SystemSounds[] = "/System/Library/Sounds";
constexpr const char LibrarySounds[] = OV_SOUNDS_PATH;
// Relative to the user's home folder.
constexpr const char UserSounds[] = "Library/Sounds";

constexpr const char ToolArgument[] = "--Orvane";
// The polkit action whose holder may change what root runs.
constexpr const char UnlockAction[] = "org.orvane.Orvane.unlock";
constexpr const char ArchiveTableTool[] = "archive_table";
constexpr const char InstallScriptsTool[] = "install_scripts";
constexpr const char RemoveScriptsTool[] = "remove_scripts";
constexpr const char InstallCrontabTool[] = "install_crontab";
constexpr const char ManualBackupTool[] = "manual_backup";
constexpr const char ManualBackupToolPath[] = OV_BUNDLE_PATH "/Contents/Resources/manual_backup";

// The copy tool the scripts run; the items' preview runs it too.
constexpr const char PsyncTool[] = "/usr/local/bin/psync";

// The remote volume: mounted only by root, at VolumesFolder/<volume>, by
// automount (for the scripts, and for Connect through connect_volume).
constexpr const char VolumesFolder[] = "/Volumes";
constexpr const char AutomountPath[] = OV_BUNDLE_PATH "/Contents/Resources/automount";
constexpr const char ConnectVolumeTool[] = "connect_volume";
// automount's records of the mounts it made (root, 0700).
constexpr const char AutomountRecordFolder[] = "/run/orvane-automount";

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
enum class OVFrequency : int {
#define OV_SCHEDULE_ENUM(Name, word, anacron, cronDay) Name,
    OV_SCHEDULES(OV_SCHEDULE_ENUM)
#undef OV_SCHEDULE_ENUM
        Manual = 4
};

namespace OVFixedPaths
{
// Which day fields of its cron line a schedule sets.
enum class CronDay { EveryDay, Weekday, MonthDay };

// Everything that differs between the frequencies, in one row each. Adding
// a file for every frequency means adding one column here.
struct FrequencyFiles {
    OVFrequency frequency;
    const char *name; // "Daily": the scripts' frequency, the notices, the Safety Net's archives
    const char *word; // "daily": the item types, the helpers' parts, the anacron tag
    const char *settingPrefix; // "Daily", "Manually": the option keys
    const char *folder; // the installed script's folder, holding the marker
    const char *scriptName;
    const char *script;
    const char *tmpScript; // where older versions handed the script over; start-up removes it
    const char *runFlag;
    const char *progress; // the run's progress line, while "Show progress" is on
    const char *log;
    const char *errors;
    const char *lastBackup; // the last-backup marker, "%m/%d/%y"
    const char *archiveRecord; // the Safety Net archives the runs made, in the order they made them
    const char *anacronJob; // period, delay and tag of the anacron line
    const char *lastRun; // "scheduled DATE RESULT" and "manual DATE RESULT", beside the marker
    const char *disks; // the disk of each source and destination at its last good run
    CronDay cronDay;
};

// The scheduled frequencies, indexed by their OVFrequency value.
constexpr FrequencyFiles Scheduled[] = {
#define OV_SCHEDULE_ROW(Name, word, anacron, cronDay)                                                                                                          \
    {OVFrequency::Name,                                                                                                                                        \
     #Name,                                                                                                                                                    \
     #word,                                                                                                                                                    \
     #Name,                                                                                                                                                    \
     Name##Folder,                                                                                                                                             \
     Name##ScriptName,                                                                                                                                         \
     Name##Script,                                                                                                                                             \
     Tmp##Name##Script,                                                                                                                                        \
     Name##RunFlag,                                                                                                                                            \
     Name##Progress,                                                                                                                                           \
     Name##Log,                                                                                                                                                \
     Name##Errors,                                                                                                                                             \
     Name##LastBackup,                                                                                                                                         \
     Name##ArchiveRecord,                                                                                                                                      \
     anacron "\torvane." #word "\t",                                                                                                                           \
     Name##LastRun,                                                                                                                                            \
     Name##Disks,                                                                                                                                              \
     CronDay::cronDay},
    OV_SCHEDULES(OV_SCHEDULE_ROW)
#undef OV_SCHEDULE_ROW
};
constexpr std::size_t ScheduledCount = sizeof(Scheduled) / sizeof(Scheduled[0]);

// A manual run has its own script and options, and logs, flags and marks
// as a daily one; nothing installs it or schedules it.
constexpr FrequencyFiles Manual = {OVFrequency::Manual,
                                   Scheduled[0].name,
                                   "manual",
                                   "Manually",
                                   Scheduled[0].folder,
                                   ManualScriptName,
                                   nullptr,
                                   TmpManualScript,
                                   Scheduled[0].runFlag,
                                   Scheduled[0].progress,
                                   Scheduled[0].log,
                                   Scheduled[0].errors,
                                   Scheduled[0].lastBackup,
                                   Scheduled[0].archiveRecord,
                                   nullptr,
                                   Scheduled[0].lastRun,
                                   Scheduled[0].disks,
                                   CronDay::EveryDay};

constexpr const FrequencyFiles &files(OVFrequency frequency)
{
    return frequency == OVFrequency::Manual ? Manual : Scheduled[static_cast<int>(frequency)];
}

namespace Detail
{
constexpr bool same(const char *a, const char *b)
{
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}
}

// The scheduled frequency of this name ("Daily"); null for any other.
constexpr const FrequencyFiles *scheduledByName(const char *name)
{
    for (const FrequencyFiles &row : Scheduled) {
        if (Detail::same(row.name, name)) {
            return &row;
        }
    }
    return nullptr;
}

// The scheduled frequency of this word ("daily"); null for any other.
constexpr const FrequencyFiles *scheduledByWord(const char *word)
{
    for (const FrequencyFiles &row : Scheduled) {
        if (Detail::same(row.word, word)) {
            return &row;
        }
    }
    return nullptr;
}

// Every frequency whose options the user sets, in the order the options show them.
constexpr OVFrequency AllFrequencies[] = {
#define OV_SCHEDULE_FREQUENCY(Name, word, anacron, cronDay) OVFrequency::Name,
    OV_SCHEDULES(OV_SCHEDULE_FREQUENCY)
#undef OV_SCHEDULE_FREQUENCY
        OVFrequency::Manual};
}
