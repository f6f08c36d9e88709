// The fixed paths of the installed product. Plain C++ so that the set-user-ID
// helpers, which link no Qt, share them with the pane.
#pragma once

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

constexpr const char TmpItemsArchive[] = "/tmp/BackupItems.plist";
constexpr const char TmpDailyScript[] = "/tmp/orvane_daily.rb";
constexpr const char TmpWeeklyScript[] = "/tmp/orvane_weekly.rb";
constexpr const char TmpMonthlyScript[] = "/tmp/orvane_monthly.rb";
constexpr const char TmpManualScript[] = "/tmp/orvane_manual.rb";
constexpr const char TmpCrontab[] = "/tmp/crontab.orvane";
constexpr const char TmpAnacrontab[] = "/tmp/anacrontab.orvane";

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
}
