// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The first copy into an empty target on a local disk: one walk of the
// source that copies as it goes (contents, holes, owners, modes, times to
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

}
