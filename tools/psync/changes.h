// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Which way a run goes: a full walk of both trees, or only the entries a
// change journal saw change since the last successful run to this target.
// The journal's client plugs in here, and only here.
#pragma once

#include "state.h"

#include <string>
#include <vector>

namespace psync
{

struct ChangedEntry {
    std::string path; // relative to the source's top
    bool recursive = false; // a folder made or moved in: all below it
};

struct ChangeDecision {
    bool fullWalk = true;
    std::string reason; // in words, for "psync: full walk (REASON)"
    std::vector<ChangedEntry> entries; // when not a full walk
    std::string cut; // the journal's cut to remember when the run succeeds
};

// SOURCES onto TARGET, knowing what the pair's state holds.
ChangeDecision decideChanges(const std::vector<std::string> &sources, const std::string &target, const PairState &state);

// The log line for the decision.
std::string describe(const ChangeDecision &decision);

}
