// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// psync's own walk of a source: what rsync must leave out (cache folders,
// other disks, the user's exclusions), which entries carry extended
// attributes or ACLs, and, for a remote volume, what it cannot hold.
#pragma once

#include "fsops.h"
#include "patterns.h"

#include <map>
#include <set>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace psync
{

struct WalkOptions {
    const std::vector<Rule> *rules = nullptr;
    bool metadata = false; // note entries with extended attributes or ACLs
    bool statAll = false; // owners, modes, links and holes of every entry
    bool remote = false; // the target cannot hold case-different names, links...
    // Files last modified within these seconds go to WalkResult::racy.
    long long racyFrom = 0, racyUntil = -1;
};

struct Attributes {
    mode_t mode = 0;
    uid_t uid = 0;
    gid_t gid = 0;
};

struct WalkResult {
    std::vector<std::string> cacheFolders; // tagged with CACHEDIR.TAG
    std::vector<std::string> mounts; // other file systems (full paths)
    std::vector<std::string> unreadable; // folders it could not read (full paths)
    // Entries with metadata ("." for the top itself) and their change time:
    // a change of metadata or contents changes it.
    std::map<std::string, std::string> withMetadata;
    std::vector<std::string> caseClashes; // left out on a remote volume
    std::vector<std::string> warnings; // lines for stderr that make the run end with warnings
    std::vector<std::string> skipped; // lines for stderr alone: what a remote volume cannot hold
    std::vector<std::string> racy; // files to compare by contents (see WalkOptions)
    std::map<std::string, Attributes> attributes; // with statAll, every entry
    std::map<std::string, unsigned long> topWeights; // files below each top-level entry
    std::set<std::string> topNames;
    unsigned long files = 0; // entries that are not folders
    unsigned long multiLinked = 0, links = 0, specials = 0, sparse = 0, attributed = 0, acls = 0;
};

// Walks SOURCE (its contents), adding to RESULT.
void walkSource(const std::string &source, const WalkOptions &options, WalkResult &result);

// Which entries of SOURCES carry metadata, read in a thread of its own while
// the copy runs: on a rerun rsync leaves much of the second core idle, and
// these reads are most of a walk's cost. Only withMetadata, attributed and
// acls are taken from it; the rest is the first walk's.
class MetadataWalk
{
public:
    MetadataWalk(const std::vector<std::string> &sources, const std::vector<Rule> *rules);
    ~MetadataWalk();
    // Waits for the walk and adds what it found to INTO.
    void finish(WalkResult &into);

private:
    void walk();

    std::vector<std::string> m_sources;
    WalkOptions m_options;
    WalkResult m_found;
    bool m_walked = false;
    std::thread m_thread;
};

// Adds what another walker found to INTO.
void mergeWalk(WalkResult &into, WalkResult &&part);

// A path on one line of the log.
std::string shown(const std::string &path);

// Whether a folder holding this file is a cache (a CACHEDIR.TAG that
// starts with the cache-directory tag's signature, as borg and restic read it).
bool isCacheTag(int dir, const char *name);
// The same, for a folder whose entries are listed: only where one is named so.
bool isCache(int dir, const std::vector<FolderEntry> &entries);

}
