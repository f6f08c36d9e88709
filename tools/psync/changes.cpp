// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "changes.h"

namespace psync
{

ChangeDecision decideChanges(const std::vector<std::string> &sources, const std::string &target, const PairState &state)
{
    (void)sources;
    (void)target;
    ChangeDecision decision;
    decision.fullWalk = true;
    decision.reason = state.found ? "no journal running" : "first run to this destination";
    return decision;
}

std::string describe(const ChangeDecision &decision)
{
    if (decision.fullWalk)
        return "psync: full walk (" + decision.reason + ")";
    return "psync: journal (" + std::to_string(decision.entries.size()) + " entries)";
}

}
