// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The files a run replaces or deletes: rsync moves them into "kept" in the
// run's root-only work folder at the target; from there they go back to
// the target (deletions held, or a killed run's), into the Safety Net
// folder's dated archive, or away.
#pragma once

#include "fsops.h"
#include "walk.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace psync
{

struct SafetyNet {
    Fd folder;
    std::string path;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups; // all of the owner's groups
    std::string archive; // "YYYY-MM-DD HH.MM.SS Frequency"
    std::string keep = "everything"; // or "changed", "deleted"
};

// Opens FOLDER, which must be a folder of USER's. WHY on failure.
bool openSafetyNet(const std::string &folder, const std::string &user, SafetyNet &net, std::string &why);

// Files (not folders) in KEPT whose place at the target is free (deleted)
// and taken (replaced).
struct KeptCount {
    unsigned long deleted = 0, replaced = 0;
};
KeptCount countKept(int kept, int target);

// Puts back at the target every entry of KEPT whose place there is free
// (renameat2 RENAME_NOREPLACE); returns how many files went back.
unsigned long putBack(int kept, int target, std::string &why);

// Before a journal run's rsync: moves into KEPT each target entry of
// ENTRIES (paths from the top) that the copy will replace (a file of
// another size or time, an entry of another kind) or, in a MIRROR, delete
// (gone from SOURCE), each with one rename, where rsync's own backup goes
// file by file. A folder goes whole only where WHOLE says nothing below it
// is left out; else rsync keeps its files as usual. Folders made in KEPT
// carry the target folders' owners and modes, as rsync makes them.
// Returns how many entries went.
unsigned long
setAside(int source, int target, int kept, const std::vector<std::string> &entries, bool mirror, const std::function<bool(const std::string &)> &whole);

// Whether the Safety Net's owner may pass through a folder of this owner
// and mode (its x bit for him as owner, group or other).
bool mayEnter(const SafetyNet &net, const struct stat &folder);
// Whether he may pass through every folder from "/" down to PATH (absolute),
// which must still be the folder TARGET.
bool mayReach(const SafetyNet &net, const std::string &path, int target);

// Removes from KEPT what the Safety Net's choice does not keep, and empty
// folders; returns the files left. A kept file that is not the owner's and
// that he could not reach at its place in the target (KEPT's folders carry
// the target folders' owners and modes; TOPREACHED: he could reach the
// target itself) loses its group and other bits, so the archive shows him
// nothing he could not read before.
unsigned long sortKept(int kept, int target, const SafetyNet &net, bool topReached);

// Every file in KEPT that shares its data with another (a hard link into
// the target) becomes a copy of its own, so that a later change of the
// target's file in place (a chmod, an attribute) leaves the kept version as
// it was. False with WHY if a copy could not be made.
bool unlinkKept(int kept, std::string &why);

// Moves WORK's "kept" into the archive under TARGETPATH (the target's
// absolute path without its leading "/"): renamed when on one file system,
// else copied with all metadata first. USED is the archive name it went to.
// OWNERS, when given, are the owners and modes a remote volume could not
// hold, by path relative to the target (TOPREACHED as for sortKept).
bool handOver(SafetyNet &net,
              int work,
              const std::string &targetPath,
              const std::map<std::string, Attributes> *owners,
              bool topReached,
              std::string &used,
              std::string &why);

// Removes the archives NAMES from the Safety Net folder, printing
// "psync: removed NAME" for each. False if any could not go.
bool pruneArchives(SafetyNet &net, const std::vector<std::string> &names);

// "NAME's time plus SECONDS", for the next free archive name.
std::string archiveNameAfter(const std::string &name, int seconds);

}
