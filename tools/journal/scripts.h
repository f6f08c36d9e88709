// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Which folders the installed backup scripts copy: the journal watches
// their file systems from the start. (A source that only a manual backup
// copies is learnt when its first run asks for a cut.)
#pragma once

#include <set>
#include <string>
#include <vector>

namespace ovjournal::scripts
{
// The source folders of a filled backup script: its last
// `sourceFolders = [ "...", ... ]` before the script's code. A string
// written otherwise than the pane writes it is left out.
std::vector<std::string> sourcesOf(const std::string &script);

// The sources of every installed scheduled script, read from root's
// folders only; what could not be read goes to problems.
std::set<std::string> installedSources(std::vector<std::string> &problems);

// The folders whose changes may change the installed scripts, outermost
// first.
std::vector<std::string> watchedFolders();
}
