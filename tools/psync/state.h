// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What psync remembers of a source/target pair between runs, under
// OVFixedPaths::PsyncStateFolder: the cache folders it left out, the
// entries that carried metadata, the work folder a run made. Losing it
// costs a full walk, never a file.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace psync
{

struct PairState {
    bool found = false; // an earlier run left it
    std::set<std::string> cacheFolders;
    std::map<std::string, std::string> withMetadata; // path -> change time
    bool metadataKnown = false; // withMetadata is complete
    unsigned long files = 0; // entries that are not folders, at the last full walk
    bool filesKnown = false;
    // The seconds during which the last copy onto a volume that keeps whole
    // seconds ran: a file rewritten within one of them, at the same size,
    // looks unchanged to rsync afterwards.
    long long racyFrom = 0, racyUntil = -1;
};

class StateStore
{
public:
    StateStore(const std::vector<std::string> &sources, const std::string &target);
    PairState load() const;
    // Only root keeps state; a user's preview keeps none.
    bool save(const PairState &state, std::string &why) const;

private:
    std::string m_key;
    std::string m_pair;
};

}
