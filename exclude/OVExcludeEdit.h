// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVBackupItem.h"

#include <QStringList>
#include <QVector>

// The file manager's "Exclude from Backups" and "Include in Backups" on
// the item list: a file or folder inside a backed-up source becomes (or
// stops being) a path exclusion of every item whose source holds it.
namespace OVExcludeEdit
{
struct Outcome {
    enum Kind {
        // The items changed.
        Changed,
        // Already as asked: nothing to do.
        AlreadyThere,
        // In no item's source (or the source itself): nothing can be done.
        NotInAnyItem,
        // Include: still left out, by a pattern or a folder above it.
        StillExcluded,
    };
    Kind kind = NotInAnyItem;
    // The sources of the items it concerns.
    QStringList sources;
    // StillExcluded: the entry that leaves it out.
    QString by;
};

Outcome exclude(QVector<OVBackupItem> *items, const QString &path, bool removeFromBackup);
Outcome include(QVector<OVBackupItem> *items, const QString &path);

// The outcome in words for the user.
QString describe(const Outcome &outcome, const QString &path, bool excluding);
}
