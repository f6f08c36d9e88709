// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What a run leaves out: the user's patterns and paths, turned into rsync
// filter rules and matched the same way by psync's own walk, so both agree
// on every name.
#pragma once

#include <string>
#include <vector>

namespace psync
{

// One rule as rsync sees it: a pattern relative to the source's top.
struct Rule {
    std::string pattern; // our syntax: "*", "?", "**" wild; "[" and "\" literal
    bool anchored = false; // matched against the whole relative path
    bool folderOnly = false;
    bool literal = false; // no wildcards at all
    bool drop = false; // also removed from the target
};

// "--exclude=PATTERN" / "--drop=PATTERN": a pattern without "/" names a name
// at any depth, one with "/" a path from the top, a trailing "/" folders only.
// A "**/" stands for any number of folders, none included, so one pattern can
// become several rules.
std::vector<Rule> patternRules(const std::string &pattern, bool drop);
// "--exclude-path=PATH" / "--drop-path=PATH": a literal path from the top.
Rule pathRule(const std::string &path, bool drop);

// Does the rule match this path (relative, no leading "/")?
bool matches(const Rule &rule, const std::string &path, bool folder);
// rsync's text for the rule (anchored with "/", wildcards escaped as rsync
// reads them), without its "- "/"H " prefix.
std::string rsyncPattern(const Rule &rule);

// rsync's wildcard matching: "*" and "?" stop at "/", "**" does not.
bool wildMatch(const char *pattern, const char *text);

}
