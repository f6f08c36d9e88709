// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Turns a cut's changed paths into what a copy hands rsync, looking at the
// source as it is now (by descriptor, below the source, following nothing).
#pragma once

#include "book.h"

#include <string>
#include <vector>

namespace ovjournal
{
// What a copy hands rsync, in two lists so that one pass may recurse and
// the other not: a hard link's names are all in the first.
struct CutList {
    // Files, what is gone, and folders made or moved in: each with
    // everything below it (deleted at the destination when gone).
    std::vector<std::string> entries;
    // Folders whose own metadata changed, without what is inside them
    // ("." is the source folder).
    std::vector<std::string> foldersAlone;
    std::string fullWalk; // not empty: the list cannot be trusted
};

// Drops what lies below a folder that is copied whole or below a folder
// that is gone (its own entry covers it), sorts each entry by what it is
// now, and adds "." (the source's own times) when anything at its top
// changed. A file with other names outside the list (hard links) means a
// full walk: a copy of part of its names would split them.
CutList settle(int source, std::vector<Entry> entries);

// The byte order in which a folder's contents follow it directly.
bool pathBefore(const std::string &a, const std::string &b);
}
