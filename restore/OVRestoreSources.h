// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVBackupItem.h"
#include "OVVersionIndex.h"

#include <QVariantMap>
#include <QVector>

// Why something of a source cannot be restored (or not all of it).
struct OVRestoreProblem {
    enum Kind {
        // The path lies in no backup item's source folder.
        NotInAnyItem,
        // The destination's disk is not connected; subject names the disk.
        DiskMissing,
        // The destination is on the remote volume, which is not mounted.
        RemoteNotMounted,
        // The user may not read a backup copy or an archive; subject names it.
        Unreadable,
        // The destination is a burned disc: nothing on this machine.
        BurnedOnly,
    };
    Kind kind;
    QString subject;
    QString server;
    QString volume;
    bool operator==(const OVRestoreProblem &other) const
    {
        return kind == other.kind && subject == other.subject;
    }
};

// Where the backups of one source folder lie: its items' destinations
// (dated by their frequency's last-backup marker) and the Safety Net
// archives of those frequencies.
class OVRestoreSources
{
public:
    struct Setup {
        QVector<OVBackupItem> items;
        // The settings domain (its Safety Net folder, the remote volume).
        QVariantMap settings;
        // Holds ".daily/.lastbackup" and its twins.
        QString supportFolder;
    };
    // The installed item archive, the user's settings, the fixed folders.
    static Setup installed();

    // For a file or folder: the deepest source folder holding it, with
    // every snapshot of it and of the source folders around it.
    static OVRestoreSources forPath(const QString &path, const Setup &setup);

    // "Daily", "Weekly", "Monthly"; a manual item's runs are daily ones.
    static QString frequencyName(int frequency);
    // "2026-11-20 14.05.00 Daily": the run's time and frequency.
    static bool parseArchiveName(const QString &name, QDateTime *time, QString *frequency);
    // The name a user knows a destination's disk by.
    static QString diskName(const QString &destination);

    // Every problem, and every snapshot found unreadable so far, in words
    // for the user, each once.
    QStringList describeProblems() const;

    QString sourceRoot;
    // The path asked for, relative to sourceRoot (null outside any source).
    QString relativePath;
    OVVersionIndex index;
    QVector<OVRestoreProblem> problems;
    // Every source folder of a complete item: what may be restored at all.
    QStringList allSources;
};
