// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QVariant>
#include <QVariantMap>

// Every key of the settings domain with its type and its absent value: the
// one list that the options sheet, the pane and the notice program read. No
// other key is read or written.
namespace OVSettingsTable
{
enum class Type { Boolean, Integer, String };

struct Setting {
    const char *key;
    Type type;
    // The value a domain without the key stands for, written as text
    // ("true", "3", "Magic Bell"); null: the control keeps its own.
    const char *absent;
};

// In the order a save writes them.
const Setting *begin();
const Setting *end();
int count();
// Null for a key that is not ours.
const Setting *find(const QString &key);

// The key's value of the domain when it is there and converts to the key's
// type; otherwise its absent value (invalid when it has none).
QVariant value(const QVariantMap &domain, const char *key);
QVariant absentValue(const Setting &setting);

// The keys of the options that each frequency has (prefixed "Daily",
// "Weekly", "Monthly", "Manually").
enum class Option { MirrorFolders, RemoteBackup, ShowProgress, RepairPermissions };
constexpr Option AllOptions[] = {Option::MirrorFolders, Option::RemoteBackup, Option::ShowProgress, Option::RepairPermissions};
QString optionKey(const char *settingPrefix, Option option);
}

// Range-for over the table.
struct OVSettingsTableRange {
    const OVSettingsTable::Setting *begin() const
    {
        return OVSettingsTable::begin();
    }
    const OVSettingsTable::Setting *end() const
    {
        return OVSettingsTable::end();
    }
};
