// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QPair>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QVarLengthArray>
#include <QVector>

#include <ctime>

class OVExclusions;

// One place that holds the source folder as it was at some moment: the
// backup copy at a destination (the state of its frequency's last
// successful run) or one Safety Net archive (the files that run replaced
// or deleted, as they were before it).
struct OVSnapshot {
    enum Kind {
        Copy,
        Archive,
    };
    Kind kind = Copy;
    // An archive: the moment of its run; its files are the state until
    // then. A copy: the day of the last run known to have written it
    // (invalid when none is known), and its files are the state since.
    QDateTime time;
    // The folder that stands for the source folder in this snapshot.
    QString root;
    // "Daily" ... and the destination: what the version list shows. A
    // copy's frequency names those whose runs write it now.
    QString frequency;
    QString destination;
    // The copy and the archives of one destination and frequency form a
    // chain, whatever frequency made them: only within a chain does "the
    // first archive after a date" tell how a file was on that date.
    int chain = 0;
};

// One backed-up state of a file or folder.
struct OVVersion {
    int snapshot = -1;
    // Relative to the source folder ("" is the source folder itself).
    QString relativePath;
    // Where the content lies in the backup.
    QString path;
    bool isDir = false;
    bool isLink = false;
    qint64 size = 0;
    uint mode = 0;
    QDateTime modified;
    // To the nanosecond, as the backup keeps it.
    struct timespec mtime = {0, 0};
};

// A name in a folder of the source, now or in the backup.
struct OVEntry {
    QString name;
    bool isDir = false;
    // It is in the source folder now.
    bool inSource = false;
    // The backed-up state shown for it: the newest, or the one of the
    // chosen date. Absent when it was never backed up (or not by then).
    bool hasVersion = false;
    OVVersion version;
    // The backups leave it out now (an exclusion of the item, or a folder
    // tagged as a cache).
    bool excluded = false;
};

// Everything that can be restored of one source folder, read straight
// from the snapshots on disk: nothing is scanned ahead, so one file's
// versions cost one lstat per snapshot and a folder costs one readdir per
// snapshot plus one lstat per name shown.
class OVVersionIndex
{
public:
    OVVersionIndex() = default;
    OVVersionIndex(const QString &sourceRoot, const QVector<OVSnapshot> &snapshots);

    QString sourceRoot() const
    {
        return m_sourceRoot;
    }
    const QVector<OVSnapshot> &snapshots() const
    {
        return m_snapshots;
    }
    const OVSnapshot &snapshot(int index) const
    {
        return m_snapshots.at(index);
    }

    // "" for the source folder, a relative path inside it, or null when
    // the path lies outside the source folder.
    QString relativePathOf(const QString &absolutePath) const;

    // Every backed-up state of the path, newest first.
    QVector<OVVersion> versionsOf(const QString &relativePath) const;
    // The state shown for the path: the newest, or the one of the date
    // (the one a folder listing shows for it). False when there is none.
    bool versionAt(const QString &relativePath, const QDateTime &asOf, OVVersion *version) const;
    // A version the Safety Net kept because that run deleted the file (the
    // chain's tree just after the run does not hold it); false for one it
    // replaced, and for a copy.
    bool wasDeletedBy(const OVVersion &version) const;
    // The path is in the source folder now.
    bool inSource(const QString &relativePath) const;

    // The folder's names now and in the backup: with an invalid date each
    // with its newest backed-up state, deleted ones included; with a date
    // only what the backup held on that date, each in its state then.
    QVector<OVEntry> listFolder(const QString &relativePath, const QDateTime &asOf = QDateTime()) const;

    // What restoring a version of a folder brings back: the folder and
    // everything below it as that version holds it (the copy's tree, or
    // the tree as it was just before the archive's run). A file's version
    // is itself.
    QVector<OVVersion> expand(const OVVersion &version) const;

    // The moment whose tree a version belongs to: an archive's run less a
    // second; invalid (the latest) for a copy.
    QDateTime asOfFor(const OVVersion &version) const;

    // Newest first: copies before the archives of their chain.
    bool isNewer(int snapshotA, int snapshotB) const;

    // A folder inside the source that is no part of it (the Safety Net
    // folder, which the backups never hold): never listed, no versions.
    void setLeftOut(const QString &relativePath)
    {
        m_leftOut = relativePath;
    }
    bool isLeftOut(const QString &relativePath) const;

    // What the items of the source folder leave out, each relative to its
    // own source: the first of a pair is the source folder's path inside it
    // ("" when it is the same folder).
    using ExclusionList = QVector<QPair<QString, QSharedPointer<const OVExclusions>>>;
    void setExclusionList(const ExclusionList &list)
    {
        m_exclusions = list;
    }
    // Left out of the backups now: by every item's exclusions, or inside a
    // folder tagged as a cache.
    bool isExcluded(const QString &relativePath, bool isDir) const;

    // Snapshots found so far that the user may not read.
    QSet<int> unreadable() const
    {
        return m_unreadable;
    }

private:
    struct Found {
        bool isDir = false;
        bool inSource = false;
        QVarLengthArray<int, 8> snapshots;
    };
    bool stat(int snapshot, const QString &relativePath, OVVersion *version) const;
    bool chooseAt(const QString &relativePath, const Found &found, const QDateTime &asOf, int onlyChain, OVVersion *version) const;
    QVector<OVEntry> list(const QString &relativePath, const QDateTime &asOf, int onlyChain) const;
    void collect(const QString &relativePath, const QDateTime &asOf, int chain, QVector<OVVersion> *out) const;
    void collectSnapshot(int snapshot, const QString &relativePath, QVector<OVVersion> *out) const;

    QString m_sourceRoot;
    QString m_leftOut;
    ExclusionList m_exclusions;
    mutable QHash<QString, bool> m_cacheTagged;
    QVector<OVSnapshot> m_snapshots;
    // Snapshot indexes, newest first.
    QVector<int> m_order;
    mutable QSet<int> m_unreadable;
};
