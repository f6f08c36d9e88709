// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What changed under a source since the last successful copy to a
// destination, asked of the change journal (orvane-journal). Root only. No
// answer, or any doubt, means a full walk: never wrong, only slower.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ovjournal
{
struct Cut {
    // Empty: copy only the entries below. Otherwise why the copy has to walk
    // both trees fully, in the user's words.
    std::string fullWalk;
    // For commitCut; 0 when no journal answered (nothing to commit).
    std::uint64_t number = 0;
    // Relative to the source, raw bytes, for two passes of rsync (a hard
    // link's names are all in the first). entries: files, what is gone,
    // and folders made or moved in, each with everything below it
    // (`-r --delete --delete-missing-args`). foldersAlone: folders whose
    // own metadata changed, without what is inside them ("." is the source
    // folder itself; `--delete-missing-args`, no -r), after the entries.
    std::vector<std::string> entries;
    std::vector<std::string> foldersAlone;
};

// Takes a cut for this source and destination. settings: everything that
// decides what a copy takes (the copy's options, exclusions); when they
// differ from the last successful copy's, the answer is a full walk.
Cut takeCut(const std::string &source, const std::string &destination, const std::vector<std::string> &settings);

// Once the copy of a cut (list or full walk) has succeeded: the journal
// stops holding what it brought over. Call it for no other copy: what a
// failed copy missed is in the next cut. Returns an empty string, or why
// the journal did not take it (the next run then walks fully).
std::string commitCut(const std::string &source, const std::string &destination, const Cut &cut);

// What the journal watches and why not, for people; false (and why) when
// no journal answers.
bool status(std::string &text);

// Asks the journal to stop (as the uninstall does without systemd).
bool stop();
}
