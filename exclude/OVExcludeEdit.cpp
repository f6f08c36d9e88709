// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVExcludeEdit.h"

#include "OVExclusions.h"
#include "OVLocalizedStrings.h"

#include <QDir>
#include <QFileInfo>

namespace OVExcludeEdit
{
namespace
{
// The items whose source holds the path (not the source itself), with the
// path relative to each.
QVector<QPair<int, QString>> holding(const QVector<OVBackupItem> &items, const QString &path)
{
    QVector<QPair<int, QString>> found;
    for (int i = 0; i < items.size(); ++i) {
        const OVBackupItem &item = items.at(i);
        if (!item.isComplete() || item.frequencyColumn() == OVBackupItem::NoSchedule) {
            continue;
        }
        const QString relative = OVExclusions::relativeTo(path, item.sourcePath());
        if (!relative.isEmpty()) {
            found.append({i, relative});
        }
    }
    return found;
}

QString clean(const QString &path)
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}
}

Outcome exclude(QVector<OVBackupItem> *items, const QString &rawPath, bool removeFromBackup)
{
    const QString path = clean(rawPath);
    Outcome outcome;
    const bool isDir = QFileInfo(path).isDir();
    bool changed = false;
    for (const auto &found : holding(*items, path)) {
        OVBackupItem &item = (*items)[found.first];
        outcome.sources.append(item.sourcePath());
        if (OVExclusions(item.exclusions(), item.sourcePath()).excludes(found.second, isDir)) {
            continue;
        }
        QStringList removed = item.exclusionsRemovedFromBackup();
        if (removeFromBackup) {
            removed.append(path);
        }
        item.setExclusions(item.exclusions() + QStringList{path}, removed);
        changed = true;
    }
    outcome.kind = outcome.sources.isEmpty() ? Outcome::NotInAnyItem : changed ? Outcome::Changed : Outcome::AlreadyThere;
    return outcome;
}

Outcome include(QVector<OVBackupItem> *items, const QString &rawPath)
{
    const QString path = clean(rawPath);
    Outcome outcome;
    const bool isDir = QFileInfo(path).isDir();
    bool changed = false;
    for (const auto &found : holding(*items, path)) {
        OVBackupItem &item = (*items)[found.first];
        outcome.sources.append(item.sourcePath());
        // Its own entry goes, however it was written.
        QStringList entries = item.exclusions();
        QStringList removed = item.exclusionsRemovedFromBackup();
        for (const QString &entry : item.exclusions()) {
            if (OVExclusions::isPath(entry) && OVExclusions::relativeTo(entry, item.sourcePath()) == found.second) {
                entries.removeAll(entry);
                removed.removeAll(entry);
                changed = true;
            }
        }
        item.setExclusions(entries, removed);
        // Anything else that still leaves it out is the user's to change.
        const QString relative = found.second;
        for (const QString &entry : entries) {
            const OVExclusions one({entry}, item.sourcePath());
            if (outcome.by.isEmpty() && one.excludes(relative, isDir)) {
                outcome.by = entry;
            }
        }
    }
    if (outcome.sources.isEmpty()) {
        outcome.kind = Outcome::NotInAnyItem;
    } else if (!outcome.by.isEmpty()) {
        outcome.kind = Outcome::StillExcluded;
    } else {
        outcome.kind = changed ? Outcome::Changed : Outcome::AlreadyThere;
    }
    return outcome;
}

QString describe(const Outcome &outcome, const QString &path, bool excluding)
{
    const QString sources = outcome.sources.join(QStringLiteral(", "));
    switch (outcome.kind) {
    case Outcome::Changed:
        return OVLocalized(excluding ? "ExcludeDone" : "IncludeDone").arg(path, sources);
    case Outcome::AlreadyThere:
        return OVLocalized(excluding ? "ExcludeAlready" : "IncludeAlready").arg(path, sources);
    case Outcome::NotInAnyItem:
        return OVLocalized("ExcludeNotInAnyItem").arg(path);
    case Outcome::StillExcluded:
        return OVLocalized("IncludeStillExcluded").arg(path, outcome.by);
    }
    return QString();
}
}
