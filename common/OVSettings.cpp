// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVSettings.h"

#include "OVSettingsDomain.h"

#include <QDir>

namespace
{
#define OV_LIST(...) __VA_ARGS__

QVector<OVSettings::Item> makeItems()
{
    using Kind = OVSettings::Kind;
    QVector<OVSettings::Item> items;
    auto add = [&items](const QString &key, Kind kind, const QVariant &value, int minimum = 0, int maximum = 0) {
        items.append({key, kind, value, minimum, maximum});
    };
    // "~/Documents": a folder in the home folder.
    auto addText = [&items](const QString &key, const char *value) {
        const QString text = QString::fromUtf8(value);
        const bool path = text.startsWith(QLatin1String("~/"));
        items.append({key, Kind::Text, path ? QDir::homePath() + text.mid(1) : text, 0, 0, path});
    };
#define OV_ITEM_FLAG(name, Key, def) add(QStringLiteral(#Key), Kind::Flag, bool(def));
#define OV_ITEM_INDEX(name, Key, last, def) add(QStringLiteral(#Key), Kind::Index, int(def), 0, last);
#define OV_ITEM_COUNT(name, Key, minimum, maximum, def) add(QStringLiteral(#Key), Kind::Count, int(def), minimum, maximum);
#define OV_ITEM_TEXT(name, Key, def) addText(QStringLiteral(#Key), def);
    OV_SETTINGS(OV_ITEM_FLAG, OV_ITEM_INDEX, OV_ITEM_COUNT, OV_ITEM_TEXT)

    for (const OVFrequency frequency : OVFixedPaths::AllFrequencies) {
        const QString prefix = QString::fromLatin1(OVFixedPaths::files(frequency).settingPrefix);
#define OV_ITEM_FREQUENCY_FLAG(name, Key, def) add(prefix + QStringLiteral(#Key), Kind::Flag, bool(def));
        OV_FREQUENCY_SETTINGS(OV_ITEM_FREQUENCY_FLAG)
    }

    for (std::size_t schedule = 0; schedule < OVFixedPaths::ScheduledCount; ++schedule) {
        const QString name = QString::fromLatin1(OVFixedPaths::Scheduled[schedule].name);
#define OV_ITEM_SCHEDULE_INDEX(name_, Key, last, defaults)                                                                                                     \
    {                                                                                                                                                          \
        constexpr int values[] = {OV_LIST defaults};                                                                                                           \
        static_assert(std::size(values) == OVFixedPaths::ScheduledCount, "one default per schedule");                                                          \
        add(name + QStringLiteral(#Key), Kind::Index, values[schedule], 0, last);                                                                              \
    }
        OV_SCHEDULE_SETTINGS(OV_ITEM_SCHEDULE_INDEX)
    }
    return items;
}

// A stored value as its item's type; invalid when it is of no use.
QVariant converted(const OVSettings::Item &item, const QVariant &value)
{
    switch (item.kind) {
    case OVSettings::Kind::Flag:
        // A number or a text ("false") for a flag, as QVariant reads it.
        return value.canConvert<bool>() ? QVariant(value.toBool()) : QVariant();
    case OVSettings::Kind::Index:
    case OVSettings::Kind::Count: {
        bool number = false;
        const int n = value.toInt(&number);
        if (!number) {
            return QVariant();
        }
        if (item.kind == OVSettings::Kind::Count) {
            return qBound(item.minimum, n, item.maximum);
        }
        return n >= item.minimum && n <= item.maximum ? QVariant(n) : QVariant();
    }
    case OVSettings::Kind::Text:
        if (!value.canConvert<QString>()) {
            return QVariant();
        }
        // No path is empty: the default folder stands.
        if (item.path && value.toString().isEmpty()) {
            return QVariant();
        }
        return value.toString();
    }
    return QVariant();
}

int indexOf(const QString &key)
{
    const QVector<OVSettings::Item> &all = OVSettings::items();
    for (int i = 0; i < all.size(); ++i) {
        if (all.at(i).key == key) {
            return i;
        }
    }
    return -1;
}
}

const QVector<OVSettings::Item> &OVSettings::items()
{
    static const QVector<Item> all = makeItems();
    return all;
}

const OVSettings::Item *OVSettings::item(const QString &key)
{
    const int i = indexOf(key);
    return i < 0 ? nullptr : &items().at(i);
}

int OVSettings::frequencyItem(OVFrequency frequency, FrequencyId id)
{
    int row = 0;
    while (OVFixedPaths::AllFrequencies[row] != frequency) {
        ++row;
    }
    return int(Id::Count) + row * int(FrequencyId::Count) + int(id);
}

int OVSettings::scheduleItem(OVFrequency schedule, ScheduleId id)
{
    constexpr int frequencyItems = int(std::size(OVFixedPaths::AllFrequencies)) * int(FrequencyId::Count);
    return int(Id::Count) + frequencyItems + static_cast<int>(schedule) * int(ScheduleId::Count) + int(id);
}

OVSettings::OVSettings()
{
    setDefaults();
}

void OVSettings::setDefaults()
{
    m_values.clear();
    for (const Item &item : items()) {
        m_values.append(item.defaultValue);
    }
}

void OVSettings::set(int item, const QVariant &value)
{
    const QVariant typed = converted(items().at(item), value);
    m_values[item] = typed.isValid() ? typed : items().at(item).defaultValue;
}

QVariant OVSettings::value(const QString &key) const
{
    const int i = indexOf(key);
    return i < 0 ? QVariant() : m_values.at(i);
}

void OVSettings::setValue(const QString &key, const QVariant &value)
{
    const int i = indexOf(key);
    Q_ASSERT_X(i >= 0, "OVSettings::setValue", "not a key of ours");
    if (i >= 0) {
        set(i, value);
    }
}

QVariantMap OVSettings::domain() const
{
    QVariantMap domain;
    for (int i = 0; i < m_values.size(); ++i) {
        domain.insert(items().at(i).key, m_values.at(i));
    }
    return domain;
}

void OVSettings::setDomain(const QVariantMap &domain)
{
    const QVector<Item> &all = items();
    for (int i = 0; i < all.size(); ++i) {
        const auto stored = domain.constFind(all.at(i).key);
        if (stored == domain.constEnd()) {
            m_values[i] = all.at(i).defaultValue;
        } else {
            set(i, *stored);
        }
    }
}

OVSettings OVSettings::stored()
{
    OVSettings settings;
    settings.load();
    return settings;
}

bool OVSettings::load()
{
    const auto domain = OVSettingsDomain::read();
    setDomain(domain.value_or(QVariantMap()));
    return domain.has_value();
}

bool OVSettings::save() const
{
    return OVSettingsDomain::replace(domain());
}

QString OVSettings::defaultSafetyNetFolder()
{
    return OVSettings().safetyNetFolder();
}
