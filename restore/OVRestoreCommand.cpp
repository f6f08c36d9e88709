// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVRestoreCommand.h"

#include "OVLocalizedStrings.h"
#include "OVRestoreJob.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>

namespace OVRestoreCommand
{
namespace
{
const char Usage[] =
    "Usage: orvane-restore [PATH]                 the Restore window\n"
    "       orvane-restore --list [--at DATE] PATH\n"
    "       orvane-restore --restore [--at DATE] [--to FOLDER] [--replace] PATH...\n"
    "DATE: 2026-11-25, 2026-11-25T14:30:00 or \"2026-11-25 14:30\", local time.";

QString absolute(const QString &path)
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

QString isoTime(const struct timespec &time)
{
    return QDateTime::fromSecsSinceEpoch(time.tv_sec).toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
}

void printVersion(const OVVersionIndex &index, const OVVersion &version, bool present, QTextStream &out)
{
    const OVSnapshot &snapshot = index.snapshot(version.snapshot);
    const QString source = version.relativePath.isEmpty() ? index.sourceRoot() : index.sourceRoot() + QLatin1Char('/') + version.relativePath;
    out << isoTime(version.mtime) << '\t' << (version.isDir ? QStringLiteral("-") : QString::number(version.size)) << '\t'
        << (snapshot.kind == OVSnapshot::Copy ? "backup" : "safety-net") << '\t' << (present ? "present" : "deleted") << '\t' << escaped(source) << '\t'
        << escaped(version.path) << '\n';
}

// Depth first, folders before files, as the window's tree shows them.
void printTree(const OVVersionIndex &index, const QString &relativePath, const QDateTime &asOf, QTextStream &out, int *printed)
{
    const QVector<OVEntry> entries = index.listFolder(relativePath, asOf);
    for (const OVEntry &entry : entries) {
        if (!entry.hasVersion) {
            continue;
        }
        printVersion(index, entry.version, entry.inSource, out);
        ++*printed;
        if (entry.version.isDir) {
            printTree(index, entry.version.relativePath, asOf, out, printed);
        }
    }
}

// The source folder holding the path, or the reason (in err) why none does.
bool sourcesFor(const OVRestoreSources::Setup &setup, const QString &path, OVRestoreSources *sources, QTextStream &err)
{
    *sources = OVRestoreSources::forPath(absolute(path), setup);
    const bool known = !sources->sourceRoot.isEmpty();
    for (const QString &line : sources->describeProblems()) {
        err << line << '\n';
    }
    return known;
}
}

bool wanted(const QStringList &arguments)
{
    for (const QString &argument : arguments.mid(1)) {
        if (argument == QLatin1String("--list") || argument == QLatin1String("--restore") || argument == QLatin1String("--help")
            || argument == QLatin1String("-h")) {
            return true;
        }
    }
    return false;
}

QDateTime parseDate(const QString &text)
{
    QString value = text.trimmed();
    if (value.size() > 10 && value.at(10) == QLatin1Char(' ')) {
        value[10] = QLatin1Char('T');
    }
    const QDate day = QDate::fromString(value, Qt::ISODate);
    if (value.size() == 10 && day.isValid()) {
        // A day stands for the state it ended with, as the window's date does.
        return QDateTime(day, QTime(23, 59, 59), Qt::LocalTime);
    }
    for (const QString &format : {QStringLiteral("yyyy-MM-ddTHH:mm:ss"), QStringLiteral("yyyy-MM-ddTHH:mm")}) {
        QDateTime time = QDateTime::fromString(value, format);
        if (time.isValid()) {
            time.setTimeSpec(Qt::LocalTime);
            return time;
        }
    }
    return QDateTime();
}

QString escaped(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (c == QLatin1Char('\\')) {
            out += QStringLiteral("\\\\");
        } else if (c == QLatin1Char('\t')) {
            out += QStringLiteral("\\t");
        } else if (c == QLatin1Char('\n')) {
            out += QStringLiteral("\\n");
        } else {
            out += c;
        }
    }
    return out;
}

int list(const OVRestoreSources::Setup &setup, const QString &path, const QDateTime &asOf, QTextStream &out, QTextStream &err)
{
    OVRestoreSources sources;
    if (!sourcesFor(setup, path, &sources, err)) {
        return Failed;
    }
    const OVVersionIndex &index = sources.index;
    const QString relative = sources.relativePath;
    int printed = 0;
    if (!asOf.isValid()) {
        const bool present = index.inSource(relative);
        for (const OVVersion &version : index.versionsOf(relative)) {
            printVersion(index,
                         version,
                         version.snapshot >= 0 && index.snapshot(version.snapshot).kind == OVSnapshot::Copy ? present : !index.wasDeletedBy(version),
                         out);
            ++printed;
        }
    } else {
        OVVersion version;
        if (index.versionAt(relative, asOf, &version)) {
            printVersion(index, version, index.inSource(relative), out);
            ++printed;
            if (version.isDir) {
                printTree(index, relative, asOf, out, &printed);
            }
        }
    }
    out.flush();
    if (printed > 0) {
        return Done;
    }
    if (index.snapshots().isEmpty() && !sources.problems.isEmpty()) {
        return Failed;
    }
    const QString name = absolute(path);
    if (index.isExcluded(relative, QFileInfo(name).isDir())) {
        err << OVLocalized("RestoreExcluded").arg(name) << '\n';
    } else {
        err << OVLocalized(asOf.isValid() ? "RestoreNotBackedUpThen" : "RestoreNeverBackedUp").arg(name) << '\n';
    }
    return NothingMatched;
}

int restore(const OVRestoreSources::Setup &setup,
            const QStringList &paths,
            const QDateTime &asOf,
            const QString &otherFolder,
            bool replace,
            QTextStream &out,
            QTextStream &err)
{
    if (!otherFolder.isEmpty() && !QFileInfo(otherFolder).isDir()) {
        err << OVLocalized("RestoreNoSuchFolder").arg(otherFolder) << '\n';
        return Failed;
    }
    int status = Done;
    for (const QString &path : paths) {
        OVRestoreSources sources;
        if (!sourcesFor(setup, path, &sources, err)) {
            status = Failed;
            continue;
        }
        QStringList missing;
        const QVector<OVVersion> chosen = OVRestoreJob::choose(sources.index, {sources.relativePath}, asOf, &missing);
        if (chosen.isEmpty()) {
            const bool blocked = sources.index.snapshots().isEmpty() && !sources.problems.isEmpty();
            if (!blocked) {
                err << OVLocalized(asOf.isValid() ? "RestoreNotBackedUpThen" : "RestoreNeverBackedUp").arg(absolute(path)) << '\n';
            }
            status = qMax(status, int(blocked ? Failed : NothingMatched));
            continue;
        }
        OVRestoreJob job(sources.index,
                         OVRestoreJob::plan(sources.index, chosen, otherFolder.isEmpty() ? QString() : absolute(otherFolder)),
                         replace ? OVRestoreJob::Replace : OVRestoreJob::KeepBoth);
        const bool ok = job.run();
        for (const QString &placed : job.restored()) {
            out << escaped(placed) << '\n';
        }
        // The count is what stdout shows; the rest is for the user.
        const QStringList summary = job.summary().mid(1);
        for (const QString &line : summary) {
            err << line << '\n';
        }
        if (!ok) {
            status = Failed;
        }
    }
    out.flush();
    err.flush();
    return status;
}

int run(const QStringList &arguments, const OVRestoreSources::Setup &setup, QTextStream &out, QTextStream &err)
{
    QCommandLineParser parser;
    const QCommandLineOption listOption(QStringLiteral("list"));
    const QCommandLineOption restoreOption(QStringLiteral("restore"));
    const QCommandLineOption atOption(QStringLiteral("at"), QString(), QStringLiteral("DATE"));
    const QCommandLineOption toOption(QStringLiteral("to"), QString(), QStringLiteral("FOLDER"));
    const QCommandLineOption replaceOption(QStringLiteral("replace"));
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    parser.addOptions({listOption, restoreOption, atOption, toOption, replaceOption, helpOption});
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const auto usage = [&err](const QString &why) {
        err << why << '\n' << Usage << '\n';
        err.flush();
        return int(Failed);
    };
    if (!parser.parse(arguments)) {
        return usage(parser.errorText());
    }
    if (parser.isSet(helpOption)) {
        out << Usage << '\n';
        out.flush();
        return Done;
    }
    const bool listing = parser.isSet(listOption);
    const QStringList paths = parser.positionalArguments();
    if (listing == parser.isSet(restoreOption)) {
        return usage(OVLocalized("RestoreUsageOneMode"));
    }
    if (paths.isEmpty() || (listing && paths.size() > 1)) {
        return usage(OVLocalized(listing ? "RestoreUsageOnePath" : "RestoreUsagePaths"));
    }
    if (listing && (parser.isSet(toOption) || parser.isSet(replaceOption))) {
        return usage(OVLocalized("RestoreUsageRestoreOnly"));
    }
    QDateTime asOf;
    if (parser.isSet(atOption)) {
        asOf = parseDate(parser.value(atOption));
        if (!asOf.isValid()) {
            return usage(OVLocalized("RestoreBadDate").arg(parser.value(atOption)));
        }
    }
    return listing ? list(setup, paths.first(), asOf, out, err) : restore(setup, paths, asOf, parser.value(toOption), parser.isSet(replaceOption), out, err);
}
}
