// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVVersionIndex.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <atomic>

// Puts backed-up versions back, as the user, file by file: each file is
// written to a temporary name beside its place and renamed into it only
// when whole, with its permissions, its modification time to the
// nanosecond, its extended attributes and ACLs, so a cancel or
// a failure never leaves a half-written file. An existing file is never
// replaced unless asked: the version then comes back beside it under a
// dated name, or not at all when the file already holds that version.
class OVRestoreJob : public QObject
{
    Q_OBJECT
public:
    enum Conflict {
        KeepBoth,
        Replace,
    };
    // One chosen version and where it goes back to; a folder's version
    // brings what expand() gave with it, below the same place.
    struct Root {
        QVector<OVVersion> versions;
        QString target;
    };

    // The version of each path (relative to the source folder) that the
    // window's tree shows and the command line restores: the newest, or the
    // one of the date. A path without one is left out, and named in missing.
    static QVector<OVVersion> choose(const OVVersionIndex &index, const QStringList &relativePaths, const QDateTime &asOf, QStringList *missing = nullptr);
    // The chosen versions at their places: the original one (empty
    // folder) or below another folder, keeping their path in the source.
    static QVector<Root> plan(const OVVersionIndex &index, const QVector<OVVersion> &chosen, const QString &otherFolder = QString());
    // "report (2026-11-20 14.05.00).odt": a version beside the file it
    // would have replaced.
    static QString datedName(const QString &path, const QDateTime &date, int attempt);

    OVRestoreJob(const OVVersionIndex &index, const QVector<Root> &roots, Conflict conflict, QObject *parent = nullptr);

    qint64 totalBytes() const
    {
        return m_total;
    }
    // Runs to the end (or the cancel) in the calling thread.
    bool run();
    // Safe from any thread.
    void cancel()
    {
        m_cancelled = true;
    }
    bool wasCancelled() const
    {
        return m_cancelled;
    }

    // Where each version went, and what failed, for the user.
    QStringList restored() const
    {
        return m_restored;
    }
    QStringList kept() const
    {
        return m_kept;
    }
    QStringList errors() const
    {
        return m_errors;
    }
    // Restored files whose extended attributes or ACLs did not all come
    // back (the user may not set them, or the disk cannot hold them), and
    // which: "ACL", "security.capability".
    QStringList filesMissingAttributes() const
    {
        return m_filesMissingAttributes;
    }
    // What the run did, in lines for the user.
    QStringList summary() const;
    QStringList attributesNotKept() const
    {
        QStringList names = m_attributesNotKept.values();
        names.sort();
        return names;
    }

Q_SIGNALS:
    void progress(qint64 doneBytes, qint64 totalBytes, const QString &current);

private:
    bool restoreFile(const OVVersion &version, const QString &target);
    bool restoreLink(const OVVersion &version, const QString &target);
    bool placeFolder(const OVVersion &version, const QString &target, QString *placed, bool *made);
    void copyAttributes(int from, int to, const QString &target);
    bool moveIntoPlace(const QString &temporary, const QString &target, const OVVersion &version, QString *placed);
    bool sameContent(const QString &a, const QString &b) const;
    void fail(const QString &what, int error);
    void report(const QString &current, bool always = false);

    OVVersionIndex m_index;
    QVector<Root> m_roots;
    Conflict m_conflict;
    qint64 m_total = 0;
    qint64 m_done = 0;
    QElapsedTimer m_sinceReport;
    std::atomic<bool> m_cancelled{false};
    QStringList m_restored;
    QStringList m_kept;
    QStringList m_errors;
    QStringList m_filesMissingAttributes;
    QSet<QString> m_attributesNotKept;
};
