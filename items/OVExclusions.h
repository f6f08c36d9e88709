// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

// What an item leaves out of its backups. An entry that begins with "/" is
// a path inside the item's source, taken literally; any other entry is a
// pattern: "*" and "?" within a name, "**" across folders ("a/**/b" holds
// "a/b" too); without "/" it
// matches a name at any depth, with "/" a path from the source's top; a
// trailing "/" matches folders only. Whatever lies below a left-out folder
// is left out with it. Folders tagged with a CACHEDIR.TAG are always left
// out, whatever the entries say.
class OVExclusions
{
public:
    OVExclusions() = default;
    OVExclusions(const QStringList &entries, const QString &source);

    static bool isPath(const QString &entry)
    {
        return entry.startsWith(QLatin1Char('/'));
    }
    // A path entry relative to the source ("" is the source itself); null
    // when it lies outside.
    static QString relativeTo(const QString &path, const QString &source);

    // Whether an entry names this path itself (not a folder above it).
    bool matches(const QString &relativePath, bool isDir) const;
    // Whether the path, or a folder above it, is left out by an entry.
    bool excludes(const QString &relativePath, bool isDir) const;
    bool isEmpty() const
    {
        return m_rules.isEmpty();
    }

    // The copy tool's options for an item's entries: --exclude-path= and
    // --exclude= (--drop-path= and --drop= for those also removed from the
    // backup). A path entry outside the source gives none.
    static QStringList psyncArguments(const QStringList &entries, const QStringList &removedFromBackup, const QString &source);

    // What a new item leaves out: the user's Trash and cache folder, where
    // the source holds them.
    static QStringList defaults(const QString &source, const QString &home);

    // The folder holds a CACHEDIR.TAG with the tagging signature.
    static bool hasCacheDirTag(const QString &folder);

private:
    struct Rule {
        QString path; // a path entry, relative to the source
        QRegularExpression pattern;
        bool anchored = false;
        bool foldersOnly = false;
    };
    QVector<Rule> m_rules;
};
