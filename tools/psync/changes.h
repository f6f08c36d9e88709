// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Which way a run goes: a full walk of both trees, or only the entries the
// change journal (orvane-journal) saw change since the last successful run
// to this target. The journal's client plugs in here, and only here.
#pragma once

#include "options.h"
#include "patterns.h"
#include "state.h"

#include <ovjournal.h>

#include <set>
#include <string>
#include <vector>

namespace psync
{

struct ChangeDecision {
    bool fullWalk = true;
    std::string reason; // in words, for "psync: full walk (REASON)"
    // When not a full walk, relative to the source's top: entries each with
    // all below it (rsync -r), then folders whose own metadata changed,
    // without what is inside them ("." the top). What the run leaves out
    // is not in them.
    std::vector<std::string> entries;
    std::vector<std::string> foldersAlone;
    ovjournal::Cut cut; // committed when the copy succeeded, full walk or not
};

// SOURCES onto the open TARGET (TARGETPATH its real path), with the run's
// options and left-out RULES, knowing what the pair's state holds.
ChangeDecision decideChanges(const Options &options,
                             const std::vector<std::string> &sources,
                             const std::string &targetPath,
                             int target,
                             const std::vector<Rule> &rules,
                             const PairState &state);

// After a copy that succeeded (nothing failed, nothing held): the journal
// no longer keeps what this run brought over. Says on stderr when it did
// not take it (the next run then walks fully).
void commitChanges(const ChangeDecision &decision, const std::vector<std::string> &sources, const std::string &targetPath);

// Other file systems mounted inside SOURCE where a walk would meet them
// (not inside what RULES or CACHEFOLDERS leave out): a journal run names
// them as a full walk does.
std::vector<std::string> mountsInside(const std::string &source, const std::vector<Rule> &rules, const std::set<std::string> &cacheFolders);

// The log line for the decision.
std::string describe(const ChangeDecision &decision);

}
