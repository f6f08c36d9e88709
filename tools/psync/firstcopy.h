// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The first copy into an empty target on a local disk: a walk of the
// source by two threads that copies as it goes (contents, holes, owners, modes, times to
// the nanosecond, extended attributes, ACLs, hard links), by descriptor,
// into a work folder nobody else can enter. It costs about half of what
// rsync's three processes cost for the same tree, and leaves the walk's
// findings as walkSource would.
#pragma once

#include "walk.h"

namespace psync
{

enum class FirstCopy {
    Done,
    Warnings, // some entries could not be read or vanished (named in WalkResult::warnings)
    Full, // the target's disk filled up
    Failed, // writing into the work folder failed otherwise (WHY)
};

// Copies the contents of SOURCE into the empty folder INTO, moves each
// top-level entry from there into TOP, then gives TOP the source's own
// owner, mode, attributes and times. PROGRESS prints rsync's progress
// lines on stdout.
FirstCopy copyFirst(const std::string &source, int into, int top, const std::vector<Rule> &rules, bool progress, WalkResult &result, std::string &why);

// A journal run's new entry PATH (from the top) of SOURCE: a file or a
// folder with all below it, made whole in a folder of TMP (the work
// folder's) and renamed into its place below TARGET. False, with nothing
// changed at the target, where it is left to rsync: not a plain file or
// folder, already at the target, a hard-linked file, or anything it could
// not copy exactly (DEVICE: the source's disk).
bool copyEntry(int source, dev_t device, int target, int tmp, const std::string &path, const std::vector<Rule> &rules, WalkResult &result);

}
