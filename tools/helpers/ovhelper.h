// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Shared rules of the set-user-ID helpers: who may run them, how they take
// their input and how they put files into place as root.
#pragma once

#include <map>
#include <set>
#include <string>
#include <sys/types.h>

namespace ovhelper
{
struct Caller {
    uid_t uid;
    gid_t gid;
    pid_t parent;
};

// Logs the refusal to the system log (authpriv), prints one line
// "tool: message" on standard error and exits 1.
[[noreturn]] void fail(const char *message, int errnum = 0);

// Logs what was done to the system log (authpriv).
void done(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Checks the argument list, cleans the process (environment, umask,
// descriptors), and works only for a parent process that polkit says holds
// Orvane's unlock (a root caller needs none). Returns the caller.
Caller start(int argc, char **argv, const char *toolName);

// All of standard input, at most maxSize bytes.
std::string readInput(size_t maxSize);

// Standard input as named parts, each "NAME LENGTH\n" followed by exactly
// LENGTH bytes, one after the other to the end. Only the given names, each
// at most once, each at most maxSize bytes.
std::map<std::string, std::string> readParts(const std::set<std::string> &names, size_t maxSize);

// Opens a folder that root runs or reads from, refusing a symbolic link in
// any component and any component that someone but root could change: not
// owned by root, or writable by a group other than root's or by others
// (a sticky ancestor only lets its owners' entries be renamed, so it is
// allowed above the last component). With create, missing components are
// made, owned by root, mode 0775.
int openRootFolder(const char *path, bool create);

// Reads a root-side file inside dirfd. Returns false when it does not exist.
bool readFileAt(int dirfd, const char *name, size_t maxSize, std::string &contents);

// Replaces dirfd/name atomically: a new file beside it, owned by root with
// the given mode, synced, renamed into place, and the folder synced.
void replaceFileAt(int dirfd, const char *name, const std::string &contents, mode_t mode);

// Removes dirfd/name; a missing file is fine.
void removeFileAt(int dirfd, const char *name);
}
