// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// psync's command line:
//   psync [-c][-d][-f][-n][-q|-v][-r] [OPTION]... source... target
//   psync --prune-archives --safety-net=FOLDER --safety-net-owner=USER NAME...
#pragma once

#include <string>
#include <vector>

namespace psync
{

struct Options {
    bool checksum = false, mirror = false, force = false, dryRun = false, quiet = false, verbose = false, remote = false;
    bool preview = false, progress = false, holdDeletions = false, prune = false;
    std::vector<std::string> excludes, excludePaths, drops, dropPaths;
    std::string safetyNet, safetyNetOwner, archive, keep = "everything";
    std::string backupDir; // the older scripts' own staging, inside the target
    std::vector<std::string> operands; // sources then target, or archive names
};

// False with WHY (for "psync: WHY") when the command line is wrong.
bool parseOptions(int argc, char **argv, Options &options, std::string &why);

extern const char Usage[];

}
