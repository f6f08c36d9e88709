// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "ovfixedpaths.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

// One row of the items table: a source folder copied to a destination
// folder (or burned with Toast) on a schedule. A null string is an absent
// label or path.
class OVBackupItem
{
public:
    // The frequency column holds an OVFrequency; index 3 of the frequency
    // menu is its separator: no schedule.
    static constexpr int NoSchedule = 3;

    OVBackupItem() = default;
    // From a settings-style dictionary ("CheckColumn", "FrequencyColumn", ...).
    static OVBackupItem initWithValues(const QVariantMap &values);

    bool checkColumn() const
    {
        return m_checkColumn;
    }
    void setCheckColumn(bool value)
    {
        m_checkColumn = value;
    }
    bool checkEnabled() const
    {
        return m_checkEnabled;
    }
    void setCheckEnabled(bool value)
    {
        m_checkEnabled = value;
    }
    bool toast() const
    {
        return m_toast;
    }
    void setToast(bool value)
    {
        m_toast = value;
    }
    qint32 frequencyColumn() const
    {
        return m_frequencyColumn;
    }
    bool hasFrequency(OVFrequency frequency) const
    {
        return m_frequencyColumn == int(frequency);
    }
    void setFrequencyColumn(qint32 value)
    {
        m_frequencyColumn = value;
    }
    qint32 sourceColumn() const
    {
        return m_sourceColumn;
    }
    void setSourceColumn(qint32 value)
    {
        m_sourceColumn = value;
    }
    qint32 destColumn() const
    {
        return m_destColumn;
    }
    void setDestColumn(qint32 value)
    {
        m_destColumn = value;
    }
    QString backupSource() const
    {
        return m_backupSource;
    }
    void setBackupSource(const QString &value)
    {
        m_backupSource = value;
    }
    QString backupDestination() const
    {
        return m_backupDestination;
    }
    void setBackupDestination(const QString &value)
    {
        m_backupDestination = value;
    }
    QString sourcePath() const
    {
        return m_sourcePath;
    }
    void setSourcePath(const QString &value)
    {
        m_sourcePath = value;
    }
    QString destPath() const
    {
        return m_destPath;
    }
    void setDestPath(const QString &value)
    {
        m_destPath = value;
    }

    // What the backups leave out (see OVExclusions): absolute paths inside
    // the source, and patterns.
    QStringList exclusions() const
    {
        return m_exclusions;
    }
    // The entries whose earlier copies go from the backup too: always a
    // part of exclusions(), whatever is given.
    QStringList exclusionsRemovedFromBackup() const
    {
        return m_exclusionsRemovedFromBackup;
    }
    void setExclusions(const QStringList &exclusions, const QStringList &removedFromBackup = QStringList());

    // Has a source, and a destination or the Toast flag.
    bool isComplete() const;
    // Ticked, complete and of that frequency: it reaches that script.
    bool qualifiesFor(OVFrequency frequency) const
    {
        return hasFrequency(frequency) && checkColumn() && isComplete();
    }

    // Field access by column identifier, as the table reaches the four
    // columns ("checkColumn", "frequencyColumn", "sourceColumn", "destColumn").
    QVariant valueForKey(const QString &key) const;
    bool setValueForKey(const QString &key, const QVariant &value);

    bool operator==(const OVBackupItem &other) const;

private:
    bool m_checkColumn = false;
    bool m_checkEnabled = false;
    bool m_toast = false;
    qint32 m_frequencyColumn = 0;
    qint32 m_sourceColumn = 0;
    qint32 m_destColumn = 0;
    QString m_backupSource;
    QString m_backupDestination;
    QString m_sourcePath;
    QString m_destPath;
    QStringList m_exclusions;
    QStringList m_exclusionsRemovedFromBackup;
};
