// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "options.h"

#include <cstring>

namespace psync
{

const char Usage[] =
    "usage: psync [-c][-d][-f][-n][-q|-v][-r] [--exclude=PATTERN]... [--exclude-path=PATH]... [--drop=PATTERN]...\n"
    "             [--drop-path=PATH]... [--safety-net=FOLDER --safety-net-owner=USER --archive=NAME\n"
    "             [--keep=everything|changed|deleted]] [--hold-deletions] [--preview] [--progress] source... target\n"
    "       psync --prune-archives --safety-net=FOLDER --safety-net-owner=USER NAME...\n";

static bool valueOf(const char *argument, const char *option, std::string &value)
{
    const size_t length = std::strlen(option);
    if (std::strncmp(argument, option, length) != 0 || argument[length] != '=')
        return false;
    value = argument + length + 1;
    return true;
}

bool parseOptions(int argc, char **argv, Options &o, std::string &why)
{
    int i = 1;
    for (; i < argc; ++i) {
        const char *a = argv[i];
        std::string value;
        if (std::strcmp(a, "--") == 0) {
            ++i;
            break;
        }
        if (a[0] != '-' || a[1] == '\0')
            break;
        if (a[1] == '-') {
            if (valueOf(a, "--exclude", value))
                o.excludes.push_back(value);
            else if (valueOf(a, "--exclude-path", value))
                o.excludePaths.push_back(value);
            else if (valueOf(a, "--drop", value))
                o.drops.push_back(value);
            else if (valueOf(a, "--drop-path", value))
                o.dropPaths.push_back(value);
            else if (valueOf(a, "--safety-net", value))
                o.safetyNet = value;
            else if (valueOf(a, "--safety-net-owner", value))
                o.safetyNetOwner = value;
            else if (valueOf(a, "--archive", value))
                o.archive = value;
            else if (valueOf(a, "--backup-dir", value))
                o.backupDir = value;
            else if (valueOf(a, "--keep", value))
                o.keep = value;
            else if (std::strcmp(a, "--preview") == 0)
                o.preview = true;
            else if (std::strcmp(a, "--progress") == 0)
                o.progress = true;
            else if (std::strcmp(a, "--hold-deletions") == 0)
                o.holdDeletions = true;
            else if (std::strcmp(a, "--prune-archives") == 0)
                o.prune = true;
            else {
                why = std::string("unknown option ") + a;
                return false;
            }
            if (!value.empty() || std::strchr(a, '=') == nullptr)
                continue;
            why = std::string("the option ") + a + " needs a value";
            return false;
        }
        for (const char *f = a + 1; *f; ++f) {
            switch (*f) {
            case 'c':
                o.checksum = true;
                break;
            case 'd':
                o.mirror = true;
                break;
            case 'f':
                o.force = true;
                break;
            case 'n':
                o.dryRun = true;
                break;
            case 'q':
                o.quiet = true;
                break;
            case 'v':
                o.verbose = true;
                break;
            case 'r':
                o.remote = true;
                break;
            case 'm': // "-rm" has always meant -r
                break;
            default:
                why = std::string("unknown option -") + *f;
                return false;
            }
        }
    }
    for (; i < argc; ++i)
        o.operands.emplace_back(argv[i]);
    if (o.quiet && o.verbose) {
        why = "-q and -v exclude each other";
        return false;
    }
    if (o.keep != "everything" && o.keep != "changed" && o.keep != "deleted") {
        why = "--keep takes everything, changed or deleted";
        return false;
    }
    if (o.prune) {
        if (o.safetyNet.empty() || o.safetyNetOwner.empty() || o.operands.empty()) {
            why = "--prune-archives needs --safety-net, --safety-net-owner and the names of the archives";
            return false;
        }
        return true;
    }
    if (!o.safetyNet.empty()
        && (o.safetyNetOwner.empty() || o.archive.empty() || o.archive.find('/') != std::string::npos || o.archive == "." || o.archive == "..")) {
        why = "--safety-net needs --safety-net-owner and --archive (a bare name)";
        return false;
    }
    if (!o.backupDir.empty()
        && (o.backupDir[0] == '/' || o.backupDir == "." || o.backupDir == ".." || o.backupDir.compare(0, 3, "../") == 0
            || o.backupDir.find("/../") != std::string::npos || o.backupDir.compare(0, 2, "./") == 0)) {
        why = "the backup folder " + o.backupDir + " must lie inside the target";
        return false;
    }
    if (o.preview && !o.dryRun) {
        why = "--preview goes with -n";
        return false;
    }
    if (o.operands.size() < 2) {
        why = "needs a source and a target";
        return false;
    }
    return true;
}

}
