// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "ovfixedpaths.h"

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <QVector>

// Every setting, declared once: its key (which names its control too,
// "kcfg_<Key>"), its type, its default, and for a number its range. The
// items below expand into the typed accessors of OVSettings and into its
// list of items, from which the domain is read and written.
//
// FLAG(accessor, Key, default)
// INDEX(accessor, Key, last entry, default): an entry of a menu; a stored
//     index beyond the menu names nothing, so the default stands.
// COUNT(accessor, Key, minimum, maximum, default): a stored count out of
//     range is brought into it.
// TEXT(accessor, Key, default): a default beginning "~/" is a path in the
//     home folder, and then an empty text stands for the default too.
#define OV_SETTINGS(FLAG, INDEX, COUNT, TEXT)                                                                                                                  \
    INDEX(master, Master, 1, 0) /* backups on (0) or off (1) */                                                                                                \
    INDEX(weeklyDay, WeeklyDay, 6, 0) /* Sunday (0) to Saturday */                                                                                             \
    INDEX(dayOfMonth, DayOfMonth, 30, 0) /* the 1st (0) to the 31st */                                                                                         \
    FLAG(waitUntilAway, WaitUntilAway, false)                                                                                                                  \
    FLAG(useAnacron, UseAnacron, false)                                                                                                                        \
    FLAG(autoConnect, AutoConnect, false)                                                                                                                      \
    TEXT(remoteServerAddress, RemoteServerAddress, "")                                                                                                         \
    TEXT(remoteUserName, RemoteUserName, "")                                                                                                                   \
    TEXT(remoteVolumeName, RemoteVolumeName, "")                                                                                                               \
    FLAG(safetyNet, SafetyNet, true)                                                                                                                           \
    INDEX(archiveItems, ArchiveItems, 2, 0) /* Everything, Changed, Deleted */                                                                                 \
    COUNT(maxArchives, MaxArchives, 1, 99, 3)                                                                                                                  \
    TEXT(safetyNetFolder, SafetyNetFolder, "~/Documents/Safety Net Archives")                                                                                  \
    FLAG(displayAlert, DisplayAlert, true)                                                                                                                     \
    FLAG(autoDismissAlert, AutoDismissAlert, false)                                                                                                            \
    FLAG(playSound, PlaySound, true)                                                                                                                           \
    FLAG(checkForUpdates, CheckForUpdates, false)                                                                                                              \
    FLAG(promptBeforeBackup, PromptBeforeBackup, false)                                                                                                        \
    FLAG(showOnlyErrors, ShowOnlyErrors, false)                                                                                                                \
    FLAG(locked, Locked, false)                                                                                                                                \
    INDEX(timeUnit, TimeUnit, 2, 1) /* seconds, minutes, hours */                                                                                              \
    COUNT(timeValue, TimeValue, 1, 999, 2)                                                                                                                     \
    TEXT(sound, Sound, "Magic Bell")

// The options each frequency has, keyed by the frequency's settingPrefix
// ("Daily" + "MirrorFolders", "Manually" + ...).
#define OV_FREQUENCY_SETTINGS(FLAG)                                                                                                                            \
    FLAG(mirrorFolders, MirrorFolders, false)                                                                                                                  \
    FLAG(remoteBackup, RemoteBackup, false)                                                                                                                    \
    FLAG(showProgress, ShowProgress, false)                                                                                                                    \
    FLAG(repairPermissions, RepairPermissions, false)

// The time of each schedule, keyed by the schedule's name ("Daily" +
// "Hour"): the hour entry (12, 1, ... 11) and the minute entry (:00 AM to
// :55 PM in steps of five), as the options' menus list them. A schedule
// runs by default at 2, 3 and 4 AM, in the schedules' order.
#define OV_SCHEDULE_SETTINGS(INDEX)                                                                                                                            \
    INDEX(hour, Hour, 11, (2, 3, 4))                                                                                                                           \
    INDEX(minute, Minute, 23, (0, 0, 0))

// The settings domain's values, typed: what the module shows and edits,
// what the scripts and the schedule are built from, and what the notice
// program reads. Reading and writing the domain keeps its keys and types
// exactly (booleans, integers, strings).
class OVSettings
{
public:
    enum class Kind { Flag, Index, Count, Text };
    struct Item {
        QString key;
        Kind kind;
        QVariant defaultValue;
        int minimum = 0;
        int maximum = 0;
        // A folder in the home folder by default; never empty.
        bool path = false;
    };
    // Every setting, in the order of the table above, then each frequency's
    // options, then each schedule's time.
    static const QVector<Item> &items();
    // Null for a key that is not ours.
    static const Item *item(const QString &key);

    // Every setting at its default.
    OVSettings();

    // The stored domain, or the defaults when there is none. A key the
    // domain lacks takes its default, and so does a value that is no use:
    // of a type that does not convert, or an index beyond its menu. A count
    // is brought into its range. Another type is read as QVariant converts it.
    static OVSettings stored();
    // Reads the stored domain into this object; false (and every default)
    // when there is none.
    bool load();
    // Replaces the stored domain whole with these values.
    bool save() const;
    void setDefaults();

    QVariantMap domain() const;
    void setDomain(const QVariantMap &domain);

    // By key, for the widgets bound to the settings.
    QVariant value(const QString &key) const;
    void setValue(const QString &key, const QVariant &value);

    bool operator==(const OVSettings &other) const
    {
        return m_values == other.m_values;
    }
    bool operator!=(const OVSettings &other) const
    {
        return !(*this == other);
    }

#define OV_SETTING_FLAG(name, Key, def)                                                                                                                        \
    bool name() const                                                                                                                                          \
    {                                                                                                                                                          \
        return m_values.at(int(Id::Key)).toBool();                                                                                                             \
    }                                                                                                                                                          \
    void set##Key(bool value)                                                                                                                                  \
    {                                                                                                                                                          \
        set(int(Id::Key), value);                                                                                                                              \
    }
#define OV_SETTING_INDEX(name, Key, last, def)                                                                                                                 \
    int name() const                                                                                                                                           \
    {                                                                                                                                                          \
        return m_values.at(int(Id::Key)).toInt();                                                                                                              \
    }                                                                                                                                                          \
    void set##Key(int value)                                                                                                                                   \
    {                                                                                                                                                          \
        set(int(Id::Key), value);                                                                                                                              \
    }
#define OV_SETTING_COUNT(name, Key, minimum, maximum, def) OV_SETTING_INDEX(name, Key, maximum, def)
#define OV_SETTING_TEXT(name, Key, def)                                                                                                                        \
    QString name() const                                                                                                                                       \
    {                                                                                                                                                          \
        return m_values.at(int(Id::Key)).toString();                                                                                                           \
    }                                                                                                                                                          \
    void set##Key(const QString &value)                                                                                                                        \
    {                                                                                                                                                          \
        set(int(Id::Key), value);                                                                                                                              \
    }
    OV_SETTINGS(OV_SETTING_FLAG, OV_SETTING_INDEX, OV_SETTING_COUNT, OV_SETTING_TEXT)
#undef OV_SETTING_TEXT
#undef OV_SETTING_COUNT
#undef OV_SETTING_INDEX
#undef OV_SETTING_FLAG

#define OV_SETTING_FREQUENCY_FLAG(name, Key, def)                                                                                                              \
    bool name(OVFrequency frequency) const                                                                                                                     \
    {                                                                                                                                                          \
        return m_values.at(frequencyItem(frequency, FrequencyId::Key)).toBool();                                                                               \
    }                                                                                                                                                          \
    void set##Key(OVFrequency frequency, bool value)                                                                                                           \
    {                                                                                                                                                          \
        set(frequencyItem(frequency, FrequencyId::Key), value);                                                                                                \
    }
    OV_FREQUENCY_SETTINGS(OV_SETTING_FREQUENCY_FLAG)
#undef OV_SETTING_FREQUENCY_FLAG

#define OV_SETTING_SCHEDULE_INDEX(name, Key, last, defaults)                                                                                                   \
    int name(OVFrequency schedule) const                                                                                                                       \
    {                                                                                                                                                          \
        return m_values.at(scheduleItem(schedule, ScheduleId::Key)).toInt();                                                                                   \
    }                                                                                                                                                          \
    void set##Key(OVFrequency schedule, int value)                                                                                                             \
    {                                                                                                                                                          \
        set(scheduleItem(schedule, ScheduleId::Key), value);                                                                                                   \
    }
    OV_SCHEDULE_SETTINGS(OV_SETTING_SCHEDULE_INDEX)
#undef OV_SETTING_SCHEDULE_INDEX

    static QString defaultSafetyNetFolder();

private:
#define OV_SETTING_ID(name, Key, ...) Key,
    enum class Id { OV_SETTINGS(OV_SETTING_ID, OV_SETTING_ID, OV_SETTING_ID, OV_SETTING_ID) Count };
    enum class FrequencyId { OV_FREQUENCY_SETTINGS(OV_SETTING_ID) Count };
    enum class ScheduleId { OV_SCHEDULE_SETTINGS(OV_SETTING_ID) Count };
#undef OV_SETTING_ID
    static int frequencyItem(OVFrequency frequency, FrequencyId id);
    static int scheduleItem(OVFrequency schedule, ScheduleId id);
    // Stores value as the item's type, or the item's default when it is of no use.
    void set(int item, const QVariant &value);

    QVector<QVariant> m_values;
};
