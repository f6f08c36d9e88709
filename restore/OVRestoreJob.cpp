// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVRestoreJob.h"

#include "OVLocalizedStrings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMap>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace
{
QByteArray bytes(const QString &path)
{
    return QFile::encodeName(path);
}

QString temporaryBeside(const QString &target)
{
    const QFileInfo info(target);
    return info.absolutePath() + QStringLiteral("/.") + info.fileName() + QStringLiteral(".ov-restore-")
        + QString::number(QRandomGenerator::global()->generate(), 36);
}

// The access time is left as it is; the modification time is the
// version's, to the nanosecond.
void timesOf(const OVVersion &version, struct timespec times[2])
{
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1] = version.mtime;
}

bool setTimes(const QByteArray &path, const OVVersion &version, int flags)
{
    struct timespec times[2];
    timesOf(version, times);
    return utimensat(AT_FDCWD, path.constData(), times, flags) == 0;
}

// Every extended attribute the user may read (ACLs are two of them), by name.
QMap<QByteArray, QByteArray> attributes(int fd)
{
    QMap<QByteArray, QByteArray> found;
    QByteArray names;
    for (int attempt = 0; attempt < 4; ++attempt) {
        const ssize_t size = flistxattr(fd, nullptr, 0);
        if (size <= 0) {
            return found;
        }
        names.resize(int(size));
        const ssize_t got = flistxattr(fd, names.data(), names.size());
        if (got >= 0) {
            names.truncate(int(got));
            break;
        }
        if (errno != ERANGE) {
            return found;
        }
        names.clear();
    }
    for (const QByteArray &name : names.split('\0')) {
        if (name.isEmpty()) {
            continue;
        }
        const ssize_t size = fgetxattr(fd, name.constData(), nullptr, 0);
        if (size < 0) {
            continue;
        }
        QByteArray value(int(size), Qt::Uninitialized);
        const ssize_t got = fgetxattr(fd, name.constData(), value.data(), value.size());
        if (got >= 0) {
            value.truncate(int(got));
            found.insert(name, value);
        }
    }
    return found;
}

QString attributeName(const QByteArray &name)
{
    if (name == "system.posix_acl_access" || name == "system.posix_acl_default") {
        return QStringLiteral("ACL");
    }
    return QString::fromLatin1(name);
}
}

void OVRestoreJob::copyAttributes(int from, int to, const QString &target)
{
    const QMap<QByteArray, QByteArray> found = attributes(from);
    for (auto it = found.cbegin(); it != found.cend(); ++it) {
        if (fsetxattr(to, it.key().constData(), it.value().constData(), size_t(it.value().size()), 0) != 0) {
            // What the user may not set (another user's ACL, security.* as
            // a user), or the folder's disk cannot hold: named once, below.
            m_attributesNotKept.insert(attributeName(it.key()));
            if (!m_filesMissingAttributes.contains(target)) {
                m_filesMissingAttributes.append(target);
            }
        }
    }
}

QVector<OVVersion> OVRestoreJob::choose(const OVVersionIndex &index, const QStringList &relativePaths, const QDateTime &asOf, QStringList *missing)
{
    QVector<OVVersion> chosen;
    for (const QString &path : relativePaths) {
        OVVersion version;
        if (index.versionAt(path, asOf, &version)) {
            chosen.append(version);
        } else if (missing) {
            missing->append(path);
        }
    }
    return chosen;
}

QStringList OVRestoreJob::summary() const
{
    QStringList lines;
    lines.append(OVLocalized(m_cancelled ? "RestoreCancelled" : "RestoreDone").arg(m_restored.size()));
    if (!m_kept.isEmpty()) {
        lines.append(OVLocalized("RestoreAlreadyThere").arg(m_kept.size()));
    }
    if (!m_filesMissingAttributes.isEmpty()) {
        lines.append(OVLocalized("RestoreAttributesNotKept").arg(m_filesMissingAttributes.size()).arg(attributesNotKept().join(QStringLiteral(", "))));
    }
    if (!m_errors.isEmpty()) {
        lines.append(OVLocalized("RestoreFailed"));
        lines += m_errors;
    }
    return lines;
}

QVector<OVRestoreJob::Root> OVRestoreJob::plan(const OVVersionIndex &index, const QVector<OVVersion> &chosen, const QString &otherFolder)
{
    QVector<Root> roots;
    for (const OVVersion &version : chosen) {
        Root root;
        root.versions = index.expand(version);
        const QString base = otherFolder.isEmpty() ? index.sourceRoot() : QDir::cleanPath(otherFolder);
        root.target = version.relativePath.isEmpty() ? base : base + QLatin1Char('/') + version.relativePath;
        roots.append(root);
    }
    return roots;
}

QString OVRestoreJob::datedName(const QString &path, const QDateTime &date, int attempt)
{
    const QFileInfo info(path);
    const QString name = info.fileName();
    // The extension stays last so the file still opens with its program;
    // a leading dot is a hidden file's name, not an extension.
    int dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0) {
        dot = name.size();
    }
    QString stamp = date.isValid() ? date.toString(QStringLiteral("yyyy-MM-dd HH.mm.ss")) : QStringLiteral("restored");
    if (attempt > 1) {
        stamp += QLatin1Char(' ') + QString::number(attempt);
    }
    return info.path() + QLatin1Char('/') + name.left(dot) + QStringLiteral(" (") + stamp + QLatin1Char(')') + name.mid(dot);
}

OVRestoreJob::OVRestoreJob(const OVVersionIndex &index, const QVector<Root> &roots, Conflict conflict, QObject *parent)
    : QObject(parent)
    , m_index(index)
    , m_roots(roots)
    , m_conflict(conflict)
{
    for (const Root &root : m_roots) {
        for (const OVVersion &version : root.versions) {
            if (!version.isDir && !version.isLink) {
                m_total += version.size;
            }
        }
    }
}

void OVRestoreJob::fail(const QString &what, int error)
{
    m_errors.append(what + QStringLiteral(": ") + QString::fromLocal8Bit(strerror(error)));
}

void OVRestoreJob::report(const QString &current, bool always)
{
    // A few reports a second: enough to watch, never a flood of events.
    if (always || !m_sinceReport.isValid() || m_sinceReport.elapsed() >= 100) {
        m_sinceReport.start();
        Q_EMIT progress(m_done, m_total, current);
    }
}

bool OVRestoreJob::run()
{
    for (const Root &root : qAsConst(m_roots)) {
        if (m_cancelled || root.versions.isEmpty()) {
            break;
        }
        const QString topRelative = root.versions.first().relativePath;
        // Where each restored folder went: a folder that came back under a
        // dated name takes its contents with it.
        QHash<QString, QString> placed;
        QVector<QPair<QString, OVVersion>> folders;
        for (const OVVersion &version : root.versions) {
            if (m_cancelled) {
                break;
            }
            QString target;
            if (version.relativePath == topRelative) {
                target = root.target;
                QDir().mkpath(QFileInfo(target).absolutePath());
            } else {
                const int slash = version.relativePath.lastIndexOf(QLatin1Char('/'));
                const QString parent = slash < 0 ? QString() : version.relativePath.left(slash);
                if (!placed.contains(parent)) {
                    continue; // its folder could not be made: already reported
                }
                target = placed.value(parent) + QLatin1Char('/') + version.relativePath.mid(slash + 1);
            }
            report(version.relativePath);
            if (version.isDir) {
                QString where;
                bool made = false;
                if (placeFolder(version, target, &where, &made)) {
                    placed.insert(version.relativePath, where);
                    // A folder that was there keeps its own state, unless asked.
                    if (made || m_conflict == Replace) {
                        folders.append({where, version});
                    }
                }
            } else if (version.isLink) {
                restoreLink(version, target);
            } else {
                restoreFile(version, target);
            }
        }
        // Folder times last, deepest first: filling a folder changes its time.
        for (int i = folders.size() - 1; i >= 0; --i) {
            const QByteArray path = bytes(folders.at(i).first);
            const OVVersion &version = folders.at(i).second;
            const int from = open(bytes(version.path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            const int to = open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (from >= 0 && to >= 0) {
                copyAttributes(from, to, folders.at(i).first);
            }
            if (from >= 0) {
                close(from);
            }
            if (to >= 0) {
                close(to);
            }
            chmod(path.constData(), version.mode & 07777);
            setTimes(path, version, 0);
        }
    }
    report(QString(), true);
    return m_errors.isEmpty() && !m_cancelled;
}

bool OVRestoreJob::placeFolder(const OVVersion &version, const QString &target, QString *placed, bool *made)
{
    const QByteArray path = bytes(target);
    struct stat st;
    if (lstat(path.constData(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            // An existing folder takes the versions in; its own state stays.
            *placed = target;
            return true;
        }
        if (m_conflict == Replace) {
            fail(target, EEXIST);
            return false;
        }
    }
    QString where = target;
    for (int attempt = 1; attempt < 100; ++attempt) {
        if (mkdir(bytes(where).constData(), 0700) == 0) {
            *placed = where;
            *made = true;
            m_restored.append(where);
            return true;
        }
        if (errno != EEXIST) {
            break;
        }
        where = datedName(target, m_index.snapshot(version.snapshot).time, attempt);
    }
    fail(target, errno);
    return false;
}

bool OVRestoreJob::sameContent(const QString &a, const QString &b) const
{
    QFile fa(a);
    QFile fb(b);
    if (fa.size() != fb.size() || !fa.open(QIODevice::ReadOnly) || !fb.open(QIODevice::ReadOnly)) {
        return false;
    }
    // A tag, a rating or an ACL is part of the version too.
    if (attributes(fa.handle()) != attributes(fb.handle())) {
        return false;
    }
    while (!fa.atEnd()) {
        if (fa.read(1 << 20) != fb.read(1 << 20)) {
            return false;
        }
    }
    return true;
}

bool OVRestoreJob::moveIntoPlace(const QString &temporary, const QString &target, const OVVersion &version, QString *placed)
{
    const QByteArray from = bytes(temporary);
    if (m_conflict == Replace) {
        if (rename(from.constData(), bytes(target).constData()) == 0) {
            *placed = target;
            return true;
        }
        return false;
    }
    QString where = target;
    for (int attempt = 1; attempt < 100; ++attempt) {
        if (renameat2(AT_FDCWD, from.constData(), AT_FDCWD, bytes(where).constData(), RENAME_NOREPLACE) == 0) {
            *placed = where;
            return true;
        }
        if (errno != EEXIST) {
            return false;
        }
        if (attempt == 1 && !version.isLink && sameContent(temporary, target)) {
            // The file already holds this version: nothing to keep twice.
            unlink(from.constData());
            placed->clear();
            return true;
        }
        where = datedName(target, m_index.snapshot(version.snapshot).time, attempt);
    }
    errno = EEXIST;
    return false;
}

bool OVRestoreJob::restoreFile(const OVVersion &version, const QString &target)
{
    const int in = open(bytes(version.path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (in < 0) {
        fail(version.path, errno);
        return false;
    }
    const QString temporary = temporaryBeside(target);
    const QByteArray temporaryPath = bytes(temporary);
    const int out = open(temporaryPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (out < 0) {
        fail(target, errno);
        close(in);
        return false;
    }
    int error = 0;
    static thread_local QByteArray buffer(1 << 20, Qt::Uninitialized);
    for (;;) {
        if (m_cancelled) {
            error = ECANCELED;
            break;
        }
        const ssize_t got = read(in, buffer.data(), buffer.size());
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            error = errno;
            break;
        }
        if (got == 0) {
            break;
        }
        for (ssize_t written = 0; written < got;) {
            const ssize_t n = write(out, buffer.constData() + written, got - written);
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                error = errno;
                break;
            }
            written += n;
        }
        if (error) {
            break;
        }
        m_done += got;
        report(version.relativePath);
    }
    if (!error) {
        copyAttributes(in, out, target);
    }
    close(in);
    if (!error && (fchmod(out, version.mode & 0777) != 0 || fsync(out) != 0)) {
        error = errno;
    }
    if (!error) {
        struct timespec times[2];
        timesOf(version, times);
        if (futimens(out, times) != 0) {
            error = errno;
        }
    }
    if (close(out) != 0 && !error) {
        error = errno;
    }
    QString placed;
    if (!error && !moveIntoPlace(temporary, target, version, &placed)) {
        error = errno;
    }
    if (error) {
        unlink(temporaryPath.constData());
        if (error != ECANCELED) {
            fail(target, error);
        }
        return false;
    }
    if (placed.isEmpty()) {
        m_kept.append(target);
    } else {
        m_restored.append(placed);
    }
    return true;
}

bool OVRestoreJob::restoreLink(const OVVersion &version, const QString &target)
{
    QByteArray link(4096, Qt::Uninitialized);
    const ssize_t n = readlink(bytes(version.path).constData(), link.data(), link.size() - 1);
    if (n < 0) {
        fail(version.path, errno);
        return false;
    }
    link.truncate(n);
    const QString temporary = temporaryBeside(target);
    if (symlink(link.constData(), bytes(temporary).constData()) != 0) {
        fail(target, errno);
        return false;
    }
    setTimes(bytes(temporary), version, AT_SYMLINK_NOFOLLOW);
    QString placed;
    if (!moveIntoPlace(temporary, target, version, &placed)) {
        const int error = errno;
        unlink(bytes(temporary).constData());
        fail(target, error);
        return false;
    }
    m_restored.append(placed);
    return true;
}
