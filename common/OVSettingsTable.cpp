// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVSettingsTable.h"

#include <iterator>

namespace OVSettingsTable
{
namespace
{
constexpr Type B = Type::Boolean;
constexpr Type I = Type::Integer;
constexpr Type S = Type::String;

const Setting Table[] = {
    {"Master", I, "0"},
    {"DailyHour", I, nullptr},
    {"DailyMinute", I, nullptr},
    {"WeeklyDay", I, "0"},
    {"WeeklyHour", I, nullptr},
    {"WeeklyMinute", I, nullptr},
    {"DayOfMonth", I, "0"},
    {"MonthlyHour", I, nullptr},
    {"MonthlyMinute", I, nullptr},
    {"WaitUntilAway", B, "false"},
    {"UseAnacron", B, "false"},
    {"DailyMirrorFolders", B, "false"},
    {"DailyRemoteBackup", B, "false"},
    {"DailyShowProgress", B, "false"},
    {"DailyRepairPermissions", B, "false"},
    {"WeeklyMirrorFolders", B, "false"},
    {"WeeklyRemoteBackup", B, "false"},
    {"WeeklyShowProgress", B, "false"},
    {"WeeklyRepairPermissions", B, "false"},
    {"MonthlyMirrorFolders", B, "false"},
    {"MonthlyRemoteBackup", B, "false"},
    {"MonthlyShowProgress", B, "false"},
    {"MonthlyRepairPermissions", B, "false"},
    {"ManuallyMirrorFolders", B, "false"},
    {"ManuallyRemoteBackup", B, "false"},
    {"ManuallyShowProgress", B, "false"},
    {"ManuallyRepairPermissions", B, "false"},
    {"AutoConnect", B, "false"},
    {"RemoteServerAddress", S, ""},
    {"RemoteUserName", S, ""},
    {"RemoteVolumeName", S, ""},
    {"SafetyNet", B, "true"},
    {"ArchiveItems", I, "0"},
    {"MaxArchives", I, "3"},
    {"SafetyNetFolder", S, ""},
    {"DisplayAlert", B, "true"},
    {"AutoDismissAlert", B, "false"},
    {"PlaySound", B, "true"},
    {"CheckForUpdates", B, "false"},
    {"PromptBeforeBackup", B, "false"},
    {"ShowOnlyErrors", B, "false"},
    {"Locked", B, "false"},
    {"TimeUnit", I, "1"},
    {"TimeValue", I, "2"},
    {"Sound", S, "Magic Bell"},
};

const char *const OptionNames[] = {"MirrorFolders", "RemoteBackup", "ShowProgress", "RepairPermissions"};
}

const Setting *begin()
{
    return std::begin(Table);
}

const Setting *end()
{
    return std::end(Table);
}

int count()
{
    return int(std::size(Table));
}

const Setting *find(const QString &key)
{
    for (const Setting &setting : Table) {
        if (key == QLatin1String(setting.key)) {
            return &setting;
        }
    }
    return nullptr;
}

QVariant absentValue(const Setting &setting)
{
    if (!setting.absent) {
        return QVariant();
    }
    const QString text = QString::fromLatin1(setting.absent);
    switch (setting.type) {
    case Type::Boolean:
        return text == QLatin1String("true");
    case Type::Integer:
        return text.toInt();
    case Type::String:
        return text;
    }
    return QVariant();
}

QVariant value(const QVariantMap &domain, const char *key)
{
    const Setting *setting = find(QString::fromLatin1(key));
    Q_ASSERT(setting);
    if (!setting) {
        return QVariant();
    }
    const auto it = domain.constFind(QLatin1String(key));
    if (it != domain.constEnd()) {
        // A stored value of another type is read as QVariant converts it,
        // as the store always has: a number for a flag, a number for a text.
        bool ok = true;
        switch (setting->type) {
        case Type::Boolean:
            if (it->canConvert<bool>()) {
                return it->toBool();
            }
            break;
        case Type::Integer: {
            const int number = it->toInt(&ok);
            if (ok) {
                return number;
            }
            break;
        }
        case Type::String:
            if (it->canConvert<QString>()) {
                return it->toString();
            }
            break;
        }
    }
    return absentValue(*setting);
}

QString optionKey(const char *settingPrefix, Option option)
{
    return QString::fromLatin1(settingPrefix) + QString::fromLatin1(OptionNames[int(option)]);
}
}
