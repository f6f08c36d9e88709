// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVBackupItem.h"

OVBackupItem OVBackupItem::initWithValues(const QVariantMap &values)
{
    OVBackupItem item;
    item.setCheckColumn(values.value(QStringLiteral("CheckColumn")).toBool());
    item.setCheckEnabled(false);
    item.setFrequencyColumn(values.value(QStringLiteral("FrequencyColumn")).toInt());
    item.setSourceColumn(values.value(QStringLiteral("SourceColumn")).toInt());
    item.setDestColumn(values.value(QStringLiteral("DestColumn")).toInt());
    if (values.contains(QStringLiteral("BackupSource"))) {
        item.setBackupSource(values.value(QStringLiteral("BackupSource")).toString());
    }
    if (values.contains(QStringLiteral("BackupDestination"))) {
        item.setBackupDestination(values.value(QStringLiteral("BackupDestination")).toString());
    }
    if (values.contains(QStringLiteral("Toast"))) {
        item.setToast(values.value(QStringLiteral("Toast")).toBool());
    }
    return item;
}

void OVBackupItem::setExclusions(const QStringList &exclusions, const QStringList &removedFromBackup)
{
    m_exclusions.clear();
    for (const QString &entry : exclusions) {
        if (!entry.isEmpty() && !m_exclusions.contains(entry)) {
            m_exclusions.append(entry);
        }
    }
    m_exclusionsRemovedFromBackup.clear();
    for (const QString &entry : removedFromBackup) {
        if (m_exclusions.contains(entry) && !m_exclusionsRemovedFromBackup.contains(entry)) {
            m_exclusionsRemovedFromBackup.append(entry);
        }
    }
}

bool OVBackupItem::isComplete() const
{
    return !m_sourcePath.isNull() && (!m_destPath.isNull() || m_toast);
}

QVariant OVBackupItem::valueForKey(const QString &key) const
{
    if (key == QLatin1String("checkColumn")) {
        return m_checkColumn;
    }
    if (key == QLatin1String("frequencyColumn")) {
        return m_frequencyColumn;
    }
    if (key == QLatin1String("sourceColumn")) {
        return m_sourceColumn;
    }
    if (key == QLatin1String("destColumn")) {
        return m_destColumn;
    }
    return QVariant();
}

bool OVBackupItem::setValueForKey(const QString &key, const QVariant &value)
{
    if (key == QLatin1String("checkColumn")) {
        m_checkColumn = value.toBool();
    } else if (key == QLatin1String("frequencyColumn")) {
        m_frequencyColumn = value.toInt();
    } else if (key == QLatin1String("sourceColumn")) {
        m_sourceColumn = value.toInt();
    } else if (key == QLatin1String("destColumn")) {
        m_destColumn = value.toInt();
    } else {
        return false;
    }
    return true;
}

bool OVBackupItem::operator==(const OVBackupItem &other) const
{
    // Null and empty strings differ here: an absent label is not an empty one.
    auto same = [](const QString &a, const QString &b) {
        return a.isNull() == b.isNull() && a == b;
    };
    return m_checkColumn == other.m_checkColumn && m_checkEnabled == other.m_checkEnabled && m_toast == other.m_toast
        && m_frequencyColumn == other.m_frequencyColumn && m_sourceColumn == other.m_sourceColumn && m_destColumn == other.m_destColumn
        && same(m_backupSource, other.m_backupSource) && same(m_backupDestination, other.m_backupDestination) && same(m_sourcePath, other.m_sourcePath)
        && same(m_destPath, other.m_destPath) && m_exclusions == other.m_exclusions && m_exclusionsRemovedFromBackup == other.m_exclusionsRemovedFromBackup;
}
