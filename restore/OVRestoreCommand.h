// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVRestoreSources.h"

#include <QDateTime>
#include <QStringList>

class QTextStream;

// orvane-restore's command line, for scripts and the terminal, on the
// window's own index and restore:
//   --list [--at DATE] PATH: the versions of PATH, or with --at the tree
//     under PATH as it was then; one per line, fields split by a tab: the
//     version's modification time (ISO 8601, local), its size in bytes ("-"
//     for a folder), "backup" or "safety-net", "present" or "deleted", the
//     path in the source folder, and where the version is kept.
//   --restore [--at DATE] [--to FOLDER] [--replace] PATH...: puts back the
//     newest version of each (or the one of DATE), beside what is there
//     unless --replace; prints each path written.
// Exit status: 0 done, 1 nothing matched (or not for every PATH), 2 an
// error, with the reason on standard error.
namespace OVRestoreCommand
{
enum Status {
    Done = 0,
    NothingMatched = 1,
    Failed = 2,
};

// Whether the arguments ask for the command line rather than the window.
bool wanted(const QStringList &arguments);

// "2026-11-25" (the end of that day), "2026-11-25T14:30:00" or
// "2026-11-25 14:30" (local time); invalid when it is none of these.
QDateTime parseDate(const QString &text);

// A path or a name on one line: backslash, tab and newline escaped.
QString escaped(const QString &text);

int list(const OVRestoreSources::Setup &setup, const QString &path, const QDateTime &asOf, QTextStream &out, QTextStream &err);
int restore(const OVRestoreSources::Setup &setup,
            const QStringList &paths,
            const QDateTime &asOf,
            const QString &otherFolder,
            bool replace,
            QTextStream &out,
            QTextStream &err);

// The whole command line (the program's name first).
int run(const QStringList &arguments, const OVRestoreSources::Setup &setup, QTextStream &out, QTextStream &err);
}
