#pragma once

#include <array>

// Every key of the settings domain, in the order a save writes them. No
// other key is read or written.
namespace OVSettingsKeys
{
constexpr std::array<const char *, 45> All = {
    "Master",         "DailyHour",         "DailyMinute",       "WeeklyDay",         "WeeklyHour",
    "WeeklyMinute",   "DayOfMonth",        "MonthlyHour",       "MonthlyMinute",     "WaitUntilAway",
    "UseAnacron",     "DailyMirrorFolders", "DailyRemoteBackup", "DailyShowProgress", "DailyRepairPermissions",
    "WeeklyMirrorFolders", "WeeklyRemoteBackup", "WeeklyShowProgress", "WeeklyRepairPermissions", "MonthlyMirrorFolders",
    "MonthlyRemoteBackup", "MonthlyShowProgress", "MonthlyRepairPermissions", "ManuallyMirrorFolders", "ManuallyRemoteBackup",
    "ManuallyShowProgress", "ManuallyRepairPermissions", "AutoConnect", "RemoteServerAddress", "RemoteUserName",
    "RemoteVolumeName", "SafetyNet",        "ArchiveItems",      "MaxArchives",       "SafetyNetFolder",
    "DisplayAlert",   "AutoDismissAlert",  "PlaySound",         "CheckForUpdates",   "PromptBeforeBackup",
    "ShowOnlyErrors", "Locked",            "TimeUnit",          "TimeValue",         "Sound",
};
}
