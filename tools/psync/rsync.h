// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Running rsync: the version the install needs, a run (or several at once)
// with its errors passed on, and the argument forms for a list of entries.
#pragma once

#include <string>
#include <vector>

namespace psync
{

// Whether the installed rsync is at least the version needed; WHY says
// what is wrong in user words.
bool rsyncIsRecentEnough(std::string &why);
// "3.5.0" -> {3,5,0}; compares two such versions.
int compareVersions(const std::string &a, const std::string &b);

struct RsyncCommand {
    std::vector<std::string> arguments; // after the program's name
    std::vector<int> inherit; // descriptors rsync keeps (/proc/self/fd/N paths)
};

struct RsyncResult {
    int status = 0; // rsync's exit status, or -1 if it could not start
    bool full = false; // a write failed for lack of room
};

// rsync's exit status in a user's words.
std::string rsyncFailure(int status);

// Runs the commands at once, passing their error lines on to stderr.
std::vector<RsyncResult> runRsync(const std::vector<RsyncCommand> &commands);

}
