// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVRestoreSources.h"

#include "OVExclusions.h"
#include "OVItemArchive.h"
#include "OVLocalizedStrings.h"
#include "OVMarker.h"
#include "OVSettings.h"
#include "OVSettingsDomain.h"
#include "ovfixedpaths.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>

namespace
{
QString withoutTrailingSlash(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    return path;
}

bool contains(const QString &folder, const QString &path)
{
    return path == folder || folder == QLatin1String("/") || path.startsWith(folder + QLatin1Char('/'));
}

bool isMountPoint(const QString &path)
{
    struct stat here;
    struct stat parent;
    const QByteArray p = QFile::encodeName(path);
    return lstat(p.constData(), &here) == 0 && lstat(QFile::encodeName(path + QStringLiteral("/..")).constData(), &parent) == 0
        && (here.st_dev != parent.st_dev || here.st_ino == parent.st_ino);
}

// Where a removable or remote disk is mounted, for a destination on one.
QString volumeRoot(const QString &destination)
{
    const QStringList parts = destination.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    int depth = 0;
    if (parts.size() >= 2 && (parts[0] == QLatin1String("Volumes") || parts[0] == QLatin1String("mnt"))) {
        depth = 2;
    } else if (parts.size() >= 3 && parts[0] == QLatin1String("media")) {
        depth = 3;
    } else if (parts.size() >= 4 && parts[0] == QLatin1String("run") && parts[1] == QLatin1String("media")) {
        depth = 4;
    } else if (parts.size() >= 2 && parts[0] == QLatin1String("media")) {
        depth = 2;
    }
    if (depth == 0) {
        return QString();
    }
    return QLatin1Char('/') + parts.mid(0, depth).join(QLatin1Char('/'));
}

bool isEmptyFolder(const QString &path)
{
    return QDir(path).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System).isEmpty();
}

int readable(const QString &path)
{
    DIR *dir = opendir(QFile::encodeName(path).constData());
    if (!dir) {
        return errno;
    }
    closedir(dir);
    return 0;
}
}

QString OVRestoreSources::frequencyName(int frequency)
{
    // A manual run, and any value that is no schedule, keeps the first schedule's name.
    const bool scheduled = frequency >= 0 && frequency < int(OVFixedPaths::ScheduledCount);
    return QString::fromLatin1(scheduled ? OVFixedPaths::Scheduled[frequency].name : OVFixedPaths::Manual.name);
}

bool OVRestoreSources::parseArchiveName(const QString &name, QDateTime *time, QString *frequency)
{
    static const QRegularExpression pattern(QStringLiteral("\\A(\\d{4}-\\d\\d-\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d) (\\w+)\\z"));
    const QRegularExpressionMatch match = pattern.match(name);
    if (!match.hasMatch() || !OVFixedPaths::scheduledByName(match.captured(2).toLatin1().constData())) {
        return false;
    }
    const QDateTime when = QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd HH.mm.ss"));
    if (!when.isValid()) {
        return false;
    }
    *time = when;
    *frequency = match.captured(2);
    return true;
}

QString OVRestoreSources::diskName(const QString &destination)
{
    const QString root = volumeRoot(destination);
    return root.isEmpty() ? destination : root.section(QLatin1Char('/'), -1);
}

OVRestoreSources::Setup OVRestoreSources::installed()
{
    Setup setup;
    setup.items = OVItemArchive::load(QString::fromLatin1(OVFixedPaths::ItemsArchive)).value_or(QVector<OVBackupItem>());
    setup.settings = OVSettingsDomain::read().value_or(QVariantMap());
    setup.supportFolder = QString::fromLatin1(OVFixedPaths::SupportFolder);
    return setup;
}

OVRestoreSources OVRestoreSources::forPath(const QString &rawPath, const Setup &setup)
{
    OVRestoreSources result;
    const QString path = withoutTrailingSlash(QDir::cleanPath(rawPath));

    QVector<OVBackupItem> covering;
    for (const OVBackupItem &item : setup.items) {
        if (!item.isComplete() || item.frequencyColumn() == OVBackupItem::NoSchedule) {
            continue;
        }
        const QString source = withoutTrailingSlash(item.sourcePath());
        if (!result.allSources.contains(source)) {
            result.allSources.append(source);
        }
        if (contains(source, path)) {
            covering.append(item);
            if (source.size() > result.sourceRoot.size()) {
                result.sourceRoot = source;
            }
        }
    }
    if (covering.isEmpty()) {
        result.problems.append({OVRestoreProblem::NotInAnyItem, path, QString(), QString()});
        return result;
    }
    result.relativePath =
        path == result.sourceRoot ? QStringLiteral("") : path.mid(result.sourceRoot.size() + (result.sourceRoot == QLatin1String("/") ? 0 : 1));

    OVSettings settings;
    settings.setDomain(setup.settings);
    const QString safetyNet = withoutTrailingSlash(settings.safetyNetFolder());
    // Every archive counts, whatever frequency made it: an item that moved
    // from one frequency to another keeps its history.
    struct Archive {
        QDateTime time;
        QString name;
        QString frequency;
        qint64 made = 0; // the folder's change time, in nanoseconds
    };
    QVector<Archive> archives;
    const QStringList names = QDir(safetyNet).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &name : names) {
        Archive archive;
        if (parseArchiveName(name, &archive.time, &archive.frequency)) {
            archive.name = name;
            struct stat st;
            if (stat(QFile::encodeName(safetyNet + QLatin1Char('/') + name).constData(), &st) == 0) {
                archive.made = qint64(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
            }
            archives.append(archive);
        }
    }
    // Two runs in one second name their archives alike but for the
    // frequency: the one made later goes first, as the newer version.
    std::stable_sort(archives.begin(), archives.end(), [](const Archive &a, const Archive &b) {
        return a.time != b.time ? a.time > b.time : a.made > b.made;
    });
    if (names.isEmpty() && readable(safetyNet) == EACCES) {
        result.problems.append({OVRestoreProblem::Unreadable, safetyNet, QString(), QString()});
    }

    const QString remoteVolume = settings.remoteVolumeName();
    const QString remoteServer = settings.remoteServerAddress();
    // One chain per destination: the copy there and the archives of it,
    // whichever frequencies' runs wrote them.
    QStringList destinations;
    QVector<QStringList> writers;
    QVector<QString> inners;
    OVVersionIndex::ExclusionList exclusions;
    for (const OVBackupItem &item : covering) {
        const QString source = withoutTrailingSlash(item.sourcePath());
        // The part of this item's source that the chosen source folder is.
        const QString inner = result.sourceRoot == source ? QString() : result.sourceRoot.mid(source.size() + (source == QLatin1String("/") ? 0 : 1));
        exclusions.append({inner, QSharedPointer<const OVExclusions>::create(item.exclusions(), source)});
        if (item.toast() || item.destPath().isEmpty()) {
            result.problems.append({OVRestoreProblem::BurnedOnly, item.sourcePath(), QString(), QString()});
            continue;
        }
        const QString destination = withoutTrailingSlash(item.destPath());
        const QString frequency = frequencyName(item.frequencyColumn());
        const int at = destinations.indexOf(destination);
        if (at < 0) {
            destinations.append(destination);
            writers.append({frequency});
            inners.append(inner);
        } else if (!writers[at].contains(frequency)) {
            writers[at].append(frequency);
        }
    }

    QVector<OVSnapshot> snapshots;
    for (int chain = 0; chain < destinations.size(); ++chain) {
        const QString &destination = destinations.at(chain);
        const QString &inner = inners.at(chain);
        const QString destinationInArchive = destination == QLatin1String("/") ? QString() : destination.mid(1);
        QDateTime newestArchive;
        for (const Archive &archive : qAsConst(archives)) {
            const QString folder = safetyNet + QLatin1Char('/') + archive.name;
            const QString root = destinationInArchive.isEmpty() ? folder : folder + QLatin1Char('/') + destinationInArchive;
            struct stat st;
            if (lstat(QFile::encodeName(root).constData(), &st) != 0) {
                if (errno == EACCES) {
                    result.problems.append({OVRestoreProblem::Unreadable, folder, QString(), QString()});
                }
                continue;
            }
            if (readable(root) == EACCES) {
                result.problems.append({OVRestoreProblem::Unreadable, folder, QString(), QString()});
                continue;
            }
            OVSnapshot snapshot;
            snapshot.kind = OVSnapshot::Archive;
            snapshot.time = archive.time;
            snapshot.root = inner.isEmpty() ? root : root + QLatin1Char('/') + inner;
            snapshot.frequency = archive.frequency;
            snapshot.destination = destination;
            snapshot.chain = chain;
            snapshots.append(snapshot);
            if (!newestArchive.isValid() || archive.time > newestArchive) {
                newestArchive = archive.time;
            }
        }

        const QString volume = volumeRoot(destination);
        const bool remote = !remoteVolume.isEmpty() && volume == QStringLiteral("/Volumes/") + remoteVolume;
        const bool exists = QFileInfo::exists(destination);
        const bool shut = exists && readable(destination) == EACCES;
        // A disk that is not there leaves its bare mount point behind.
        const bool present = exists && (shut || !(isEmptyFolder(destination) && !volume.isEmpty() && !isMountPoint(volume)));
        if (!present) {
            if (remote) {
                result.problems.append({OVRestoreProblem::RemoteNotMounted, remoteVolume, remoteServer, remoteVolume});
            } else {
                result.problems.append({OVRestoreProblem::DiskMissing, diskName(destination), QString(), QString()});
            }
            continue;
        }
        if (shut) {
            result.problems.append({OVRestoreProblem::Unreadable, destination, QString(), QString()});
            continue;
        }
        // The copy is dated by the runs that write it now: the newest marker
        // of their frequencies, or a later archive of the destination that
        // another frequency's run made. Before any of them has run, no date
        // is known: earlier runs (of a frequency the item had) wrote it.
        OVSnapshot copy;
        copy.kind = OVSnapshot::Copy;
        for (const QString &frequency : writers.at(chain)) {
            QFile marker(setup.supportFolder + QStringLiteral("/.") + frequency.toLower() + QStringLiteral("/.lastbackup"));
            if (marker.open(QIODevice::ReadOnly)) {
                const std::optional<QDate> day = OVMarker::parse(marker.read(64));
                if (day && (!copy.time.isValid() || QDateTime(*day, QTime(0, 0)) > copy.time)) {
                    copy.time = QDateTime(*day, QTime(0, 0));
                }
            }
        }
        if (copy.time.isValid() && newestArchive.isValid() && newestArchive.date() > copy.time.date()) {
            copy.time = QDateTime(newestArchive.date(), QTime(0, 0));
        }
        copy.root = inner.isEmpty() ? destination : destination + QLatin1Char('/') + inner;
        copy.frequency = writers.at(chain).join(QLatin1Char('/'));
        copy.destination = destination;
        copy.chain = chain;
        snapshots.append(copy);
    }
    result.index = OVVersionIndex(result.sourceRoot, snapshots);
    result.index.setExclusionList(exclusions);
    // The Safety Net folder may lie inside the source (by default it lies
    // in ~/Documents); the backups never hold it, and it is no part of it.
    const auto inside = [&result](const QString &folder) {
        const QString root = withoutTrailingSlash(result.sourceRoot);
        const QString prefix = root == QLatin1String("/") ? root : root + QLatin1Char('/');
        return folder.startsWith(prefix) && folder.size() > prefix.size() ? folder.mid(prefix.size()) : QString();
    };
    QString leftOut = inside(safetyNet);
    if (leftOut.isEmpty()) {
        const QString real = QFileInfo(safetyNet).canonicalFilePath();
        const QString realRoot = QFileInfo(result.sourceRoot).canonicalFilePath();
        if (!real.isEmpty() && !realRoot.isEmpty() && real.startsWith(realRoot + QLatin1Char('/'))) {
            leftOut = real.mid(realRoot.size() + 1);
        }
    }
    result.index.setLeftOut(leftOut);
    return result;
}

QStringList OVRestoreSources::describeProblems() const
{
    QStringList lines;
    const auto say = [&lines](const char *key, const QString &argument) {
        const QString line = OVLocalized(key).arg(argument);
        if (!lines.contains(line)) {
            lines.append(line);
        }
    };
    for (const OVRestoreProblem &problem : problems) {
        switch (problem.kind) {
        case OVRestoreProblem::NotInAnyItem:
            say("RestoreNotInAnyItem", problem.subject);
            if (allSources.isEmpty()) {
                lines.append(OVLocalized("RestoreNoItems"));
            } else {
                say("RestoreBackedUpFolders", allSources.join(QStringLiteral(", ")));
            }
            break;
        case OVRestoreProblem::DiskMissing:
            say("RestoreDiskMissing", problem.subject);
            break;
        case OVRestoreProblem::RemoteNotMounted:
            say("RestoreRemoteNotMounted", problem.subject);
            break;
        case OVRestoreProblem::Unreadable:
            say("RestoreUnreadable", problem.subject);
            break;
        case OVRestoreProblem::BurnedOnly:
            say("RestoreBurnedOnly", problem.subject);
            break;
        }
    }
    const QSet<int> unreadable = index.unreadable();
    for (int snapshot : unreadable) {
        say("RestoreUnreadable", index.snapshot(snapshot).root);
    }
    return lines;
}
