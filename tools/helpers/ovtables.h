// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Which edits of /etc/crontab and /etc/anacrontab install_crontab accepts:
// the proposed table may differ from the installed one in Orvane's own lines
// alone, and every Orvane line it holds must be in its exact format.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ovtables
{
enum class Table { Cron, Anacron };

// A line (without its line end) in the exact format the pane writes.
bool isOwnLine(std::string_view line, Table table);

// The pane takes a line for its own when it holds one of the script paths.
bool mentionsOwnScript(std::string_view line);

// True when proposed equals installed after removing some lines of the
// installed table that mention an Orvane script and adding only exact
// Orvane lines. The pane appends to an unterminated last line, so that
// line followed directly by an Orvane line counts as the two.
bool onlyOwnLinesDiffer(const std::string &installed, const std::string &proposed, Table table);

// The table to install for an accepted proposal, nothing for a refused one.
// Every line ends in a line end, and an Orvane line appended to the
// unterminated last line goes on a line of its own: cron never sees the
// two joined.
std::optional<std::string> tableToInstall(const std::string &installed, const std::string &proposed, Table table);
}
