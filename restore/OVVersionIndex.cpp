// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVVersionIndex.h"

#include "OVExclusions.h"

#include <QFile>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <sys/stat.h>

namespace
{
// The engine's own bookkeeping at the top of a destination, never the
// user's: psync's, and the Safety Net's staging folder of a run.
bool isEngineName(const QByteArray &name)
{
    return name == ".psync-work" || name == ".psync-attributes" || name.startsWith(".orvane-kept-");
}

QString joined(const QString &root, const QString &relativePath)
{
    return relativePath.isEmpty() ? root : root + QLatin1Char('/') + relativePath;
}

// A copy stands for the whole day of its last run.
QDateTime sortTime(const OVSnapshot &snapshot)
{
    if (snapshot.kind == OVSnapshot::Copy) {
        return snapshot.time.isValid() ? snapshot.time.addSecs(24 * 3600 - 1) : QDateTime::fromSecsSinceEpoch(std::numeric_limits<qint32>::max());
    }
    return snapshot.time;
}

// Names of a folder with whether each is a folder; false when it cannot
// be read (errno tells why; a missing folder is no error).
bool readFolder(const QByteArray &path, const std::function<void(const QByteArray &, bool)> &each)
{
    DIR *dir = opendir(path.constData());
    if (!dir) {
        return false;
    }
    while (const dirent *entry = readdir(dir)) {
        const char *name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) {
            continue;
        }
        bool isDir = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat st;
            isDir = fstatat(dirfd(dir), name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        }
        each(QByteArray(name), isDir);
    }
    closedir(dir);
    return true;
}
}

OVVersionIndex::OVVersionIndex(const QString &sourceRoot, const QVector<OVSnapshot> &snapshots)
    : m_sourceRoot(sourceRoot)
    , m_snapshots(snapshots)
{
    while (m_sourceRoot.size() > 1 && m_sourceRoot.endsWith(QLatin1Char('/'))) {
        m_sourceRoot.chop(1);
    }
    for (int i = 0; i < m_snapshots.size(); ++i) {
        m_order.append(i);
    }
    std::stable_sort(m_order.begin(), m_order.end(), [this](int a, int b) {
        return isNewer(a, b);
    });
}

bool OVVersionIndex::isNewer(int snapshotA, int snapshotB) const
{
    const OVSnapshot &a = m_snapshots.at(snapshotA);
    const OVSnapshot &b = m_snapshots.at(snapshotB);
    if (a.chain == b.chain && a.kind != b.kind) {
        return a.kind == OVSnapshot::Copy;
    }
    return sortTime(a) > sortTime(b);
}

QString OVVersionIndex::relativePathOf(const QString &absolutePath) const
{
    QString path = absolutePath;
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    if (path == m_sourceRoot) {
        return QStringLiteral("");
    }
    const QString prefix = m_sourceRoot == QLatin1String("/") ? m_sourceRoot : m_sourceRoot + QLatin1Char('/');
    if (!path.startsWith(prefix)) {
        return QString();
    }
    return path.mid(prefix.size());
}

QDateTime OVVersionIndex::asOfFor(const OVVersion &version) const
{
    const OVSnapshot &snapshot = m_snapshots.at(version.snapshot);
    return snapshot.kind == OVSnapshot::Archive ? snapshot.time.addSecs(-1) : QDateTime();
}

bool OVVersionIndex::stat(int snapshot, const QString &relativePath, OVVersion *version) const
{
    const QString path = joined(m_snapshots.at(snapshot).root, relativePath);
    struct stat st;
    if (lstat(QFile::encodeName(path).constData(), &st) != 0) {
        if (errno == EACCES) {
            m_unreadable.insert(snapshot);
        }
        return false;
    }
    version->snapshot = snapshot;
    version->relativePath = relativePath;
    version->path = path;
    version->isDir = S_ISDIR(st.st_mode);
    version->isLink = S_ISLNK(st.st_mode);
    version->size = version->isDir ? 0 : qint64(st.st_size);
    version->mode = st.st_mode & 07777;
    version->modified = QDateTime::fromMSecsSinceEpoch(qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000);
    version->mtime = st.st_mtim;
    return true;
}

QVector<OVVersion> OVVersionIndex::versionsOf(const QString &relativePath) const
{
    QVector<OVVersion> versions;
    if (isLeftOut(relativePath)) {
        return versions;
    }
    for (int snapshot : m_order) {
        OVVersion version;
        if (stat(snapshot, relativePath, &version)) {
            versions.append(version);
        }
    }
    return versions;
}

bool OVVersionIndex::versionAt(const QString &relativePath, const QDateTime &asOf, OVVersion *version) const
{
    if (isLeftOut(relativePath)) {
        return false;
    }
    if (!asOf.isValid()) {
        const QVector<OVVersion> versions = versionsOf(relativePath);
        if (versions.isEmpty()) {
            return false;
        }
        *version = versions.first();
        return true;
    }
    Found found;
    for (int snapshot = 0; snapshot < m_snapshots.size(); ++snapshot) {
        struct stat st;
        if (lstat(QFile::encodeName(joined(m_snapshots.at(snapshot).root, relativePath)).constData(), &st) == 0) {
            found.snapshots.append(snapshot);
        }
    }
    return !found.snapshots.isEmpty() && chooseAt(relativePath, found, asOf, -1, version);
}

bool OVVersionIndex::wasDeletedBy(const OVVersion &version) const
{
    const OVSnapshot &kept = m_snapshots.at(version.snapshot);
    if (kept.kind != OVSnapshot::Archive) {
        return false;
    }
    // Replaced, the file was still there just after the run: the chain's
    // tree of that moment holds it (a later re-creation is younger).
    Found found;
    for (int snapshot = 0; snapshot < m_snapshots.size(); ++snapshot) {
        struct stat st;
        if (m_snapshots.at(snapshot).chain == kept.chain && snapshot != version.snapshot
            && lstat(QFile::encodeName(joined(m_snapshots.at(snapshot).root, version.relativePath)).constData(), &st) == 0) {
            found.snapshots.append(snapshot);
        }
    }
    OVVersion after;
    return found.snapshots.isEmpty() || !chooseAt(version.relativePath, found, kept.time, kept.chain, &after);
}

bool OVVersionIndex::inSource(const QString &relativePath) const
{
    struct stat st;
    return lstat(QFile::encodeName(joined(m_sourceRoot, relativePath)).constData(), &st) == 0;
}

bool OVVersionIndex::isExcluded(const QString &relativePath, bool isDir) const
{
    if (relativePath.isEmpty()) {
        return false;
    }
    if (!m_exclusions.isEmpty()) {
        const bool byEveryItem = std::all_of(m_exclusions.cbegin(), m_exclusions.cend(), [&](const auto &item) {
            return item.second->excludes(item.first.isEmpty() ? relativePath : item.first + QLatin1Char('/') + relativePath, isDir);
        });
        if (byEveryItem) {
            return true;
        }
    }
    // A folder tagged as a cache is never copied, and nothing below it.
    const auto tagged = [this](const QString &folder) {
        const auto found = m_cacheTagged.constFind(folder);
        if (found != m_cacheTagged.cend()) {
            return *found;
        }
        const bool tag = OVExclusions::hasCacheDirTag(joined(m_sourceRoot, folder));
        m_cacheTagged.insert(folder, tag);
        return tag;
    };
    for (int slash = relativePath.indexOf(QLatin1Char('/')); slash >= 0; slash = relativePath.indexOf(QLatin1Char('/'), slash + 1)) {
        if (tagged(relativePath.left(slash))) {
            return true;
        }
    }
    return isDir && tagged(relativePath);
}

bool OVVersionIndex::chooseAt(const QString &relativePath, const Found &found, const QDateTime &asOf, int onlyChain, OVVersion *version) const
{
    if (!asOf.isValid()) {
        for (int snapshot : m_order) {
            if (found.snapshots.contains(snapshot) && (onlyChain < 0 || m_snapshots.at(snapshot).chain == onlyChain) && stat(snapshot, relativePath, version)) {
                return true;
            }
        }
        return false;
    }
    // Within a chain, the first archive after the date kept the state the
    // file had then; without one, the copy still holds it, unless the
    // copy's content is younger than the date.
    QVector<int> chains;
    for (int snapshot : m_order) {
        const int chain = m_snapshots.at(snapshot).chain;
        if ((onlyChain < 0 || chain == onlyChain) && !chains.contains(chain)) {
            chains.append(chain);
        }
    }
    for (int chain : chains) {
        int chosen = -1;
        int copy = -1;
        for (int snapshot : found.snapshots) {
            const OVSnapshot &s = m_snapshots.at(snapshot);
            if (s.chain != chain) {
                continue;
            }
            if (s.kind == OVSnapshot::Copy) {
                copy = snapshot;
            } else if (s.time > asOf && (chosen < 0 || s.time < m_snapshots.at(chosen).time)) {
                chosen = snapshot;
            }
        }
        if (chosen < 0) {
            chosen = copy;
        }
        if (chosen >= 0 && stat(chosen, relativePath, version) && (version->isDir || version->modified <= asOf)) {
            return true;
        }
    }
    return false;
}

bool OVVersionIndex::isLeftOut(const QString &relativePath) const
{
    return !m_leftOut.isEmpty() && (relativePath == m_leftOut || (relativePath.startsWith(m_leftOut) && relativePath.at(m_leftOut.size()) == QLatin1Char('/')));
}

QVector<OVEntry> OVVersionIndex::list(const QString &relativePath, const QDateTime &asOf, int onlyChain) const
{
    QHash<QByteArray, Found> names;
    if (isLeftOut(relativePath)) {
        return {};
    }
    readFolder(QFile::encodeName(joined(m_sourceRoot, relativePath)), [&names](const QByteArray &name, bool isDir) {
        Found &found = names[name];
        found.inSource = true;
        found.isDir = isDir;
    });
    for (int snapshot = 0; snapshot < m_snapshots.size(); ++snapshot) {
        const OVSnapshot &s = m_snapshots.at(snapshot);
        if (onlyChain >= 0 && s.chain != onlyChain) {
            continue;
        }
        const bool top = relativePath.isEmpty() && s.kind == OVSnapshot::Copy;
        const bool read = readFolder(QFile::encodeName(joined(s.root, relativePath)), [&](const QByteArray &name, bool isDir) {
            if (top && isEngineName(name)) {
                return;
            }
            Found &found = names[name];
            if (!found.inSource) {
                found.isDir = found.isDir || isDir;
            }
            found.snapshots.append(snapshot);
        });
        if (!read && errno == EACCES) {
            m_unreadable.insert(snapshot);
        }
    }

    QVector<OVEntry> entries;
    entries.reserve(names.size());
    for (auto it = names.cbegin(); it != names.cend(); ++it) {
        OVEntry entry;
        entry.name = QFile::decodeName(it.key());
        entry.isDir = it->isDir;
        entry.inSource = it->inSource;
        const QString path = relativePath.isEmpty() ? entry.name : relativePath + QLatin1Char('/') + entry.name;
        if (isLeftOut(path)) {
            continue;
        }
        entry.hasVersion = !it->snapshots.isEmpty() && chooseAt(path, *it, asOf, onlyChain, &entry.version);
        if (asOf.isValid() && !entry.hasVersion) {
            continue;
        }
        if (entry.hasVersion && !entry.inSource) {
            entry.isDir = entry.version.isDir;
        }
        entry.excluded = isExcluded(path, entry.isDir);
        entries.append(entry);
    }
    std::sort(entries.begin(), entries.end(), [](const OVEntry &a, const OVEntry &b) {
        if (a.isDir != b.isDir) {
            return a.isDir;
        }
        return a.name < b.name;
    });
    return entries;
}

QVector<OVEntry> OVVersionIndex::listFolder(const QString &relativePath, const QDateTime &asOf) const
{
    return list(relativePath, asOf, -1);
}

QVector<OVVersion> OVVersionIndex::expand(const OVVersion &version) const
{
    QVector<OVVersion> out;
    out.append(version);
    if (!version.isDir) {
        return out;
    }
    const OVSnapshot &snapshot = m_snapshots.at(version.snapshot);
    if (snapshot.kind == OVSnapshot::Copy) {
        collectSnapshot(version.snapshot, version.relativePath, &out);
    } else {
        collect(version.relativePath, asOfFor(version), snapshot.chain, &out);
    }
    return out;
}

void OVVersionIndex::collect(const QString &relativePath, const QDateTime &asOf, int chain, QVector<OVVersion> *out) const
{
    const QVector<OVEntry> entries = list(relativePath, asOf, chain);
    for (const OVEntry &entry : entries) {
        out->append(entry.version);
        if (entry.version.isDir) {
            collect(entry.version.relativePath, asOf, chain, out);
        }
    }
}

void OVVersionIndex::collectSnapshot(int snapshot, const QString &relativePath, QVector<OVVersion> *out) const
{
    const OVSnapshot &s = m_snapshots.at(snapshot);
    QVector<QByteArray> names;
    const bool top = relativePath.isEmpty();
    const bool read = readFolder(QFile::encodeName(joined(s.root, relativePath)), [&](const QByteArray &name, bool) {
        if (!(top && isEngineName(name))) {
            names.append(name);
        }
    });
    if (!read && errno == EACCES) {
        m_unreadable.insert(snapshot);
    }
    std::sort(names.begin(), names.end());
    for (const QByteArray &name : names) {
        const QString path = top ? QFile::decodeName(name) : relativePath + QLatin1Char('/') + QFile::decodeName(name);
        OVVersion version;
        if (stat(snapshot, path, &version)) {
            out->append(version);
            if (version.isDir) {
                collectSnapshot(snapshot, path, out);
            }
        }
    }
}
