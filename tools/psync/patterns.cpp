// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "patterns.h"

#include <cstring>
#include <functional>

namespace psync
{

bool wildMatch(const char *p, const char *t)
{
    for (; *p; ++p, ++t) {
        if (*p == '*') {
            const bool across = p[1] == '*';
            while (*p == '*')
                ++p;
            if (!*p)
                return across || !std::strchr(t, '/');
            for (;; ++t) {
                if (wildMatch(p, t))
                    return true;
                if (!*t || (!across && *t == '/'))
                    return false;
            }
        }
        if (!*t)
            return false;
        if (*p == '?') {
            if (*t == '/')
                return false;
        } else if (*p != *t) {
            return false;
        }
    }
    return !*t;
}

static std::string trimmedSlashes(std::string text, bool &trailing)
{
    trailing = text.size() > 1 && text.back() == '/';
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    size_t start = 0;
    while (start < text.size() && text[start] == '/')
        ++start;
    return text.substr(start);
}

std::vector<Rule> patternRules(const std::string &text, bool drop)
{
    bool trailing = false;
    const bool leadingSlash = !text.empty() && text[0] == '/';
    const std::string body = trimmedSlashes(text, trailing);
    // Each "**/" at a folder's start may also stand for no folder at all.
    std::vector<std::string> variants;
    std::function<void(const std::string &, size_t)> expand = [&](const std::string &text, size_t from) {
        size_t at = from;
        while ((at = text.find("**/", at)) != std::string::npos && at != 0 && text[at - 1] != '/')
            ++at;
        if (at == std::string::npos || variants.size() >= 16) {
            variants.push_back(text);
            return;
        }
        expand(text, at + 3);
        expand(text.substr(0, at) + text.substr(at + 3), at);
    };
    expand(body, 0);
    std::vector<Rule> rules;
    for (const std::string &variant : variants) {
        if (variant.empty())
            continue;
        Rule rule;
        rule.drop = drop;
        rule.folderOnly = trailing;
        rule.anchored = leadingSlash || variant.find('/') != std::string::npos;
        rule.pattern = variant;
        if (!rule.anchored) {
            // A name holds no "/": "**" in it is just "*".
            std::string name;
            for (size_t i = 0; i < variant.size(); ++i) {
                name += variant[i];
                while (variant[i] == '*' && i + 1 < variant.size() && variant[i + 1] == '*')
                    ++i;
            }
            rule.pattern = name;
        }
        rule.literal = rule.pattern.find_first_of("*?") == std::string::npos;
        rules.push_back(rule);
    }
    return rules;
}

Rule pathRule(const std::string &path, bool drop)
{
    bool trailing = false;
    Rule rule;
    rule.pattern = trimmedSlashes(path, trailing);
    rule.anchored = true;
    rule.literal = true;
    rule.drop = drop;
    return rule;
}

bool matches(const Rule &rule, const std::string &path, bool folder)
{
    if (rule.folderOnly && !folder)
        return false;
    if (!rule.anchored) {
        const size_t slash = path.rfind('/');
        const char *name = path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
        return rule.literal ? rule.pattern == name : wildMatch(rule.pattern.c_str(), name);
    }
    return rule.literal ? rule.pattern == path : wildMatch(rule.pattern.c_str(), path.c_str());
}

std::string rsyncPattern(const Rule &rule)
{
    std::string out = rule.anchored ? "/" : "";
    // rsync takes "\" as an escape only in a pattern with "*", "?" or "[".
    const bool escaping = rule.pattern.find_first_of("*?[") != std::string::npos;
    for (char c : rule.pattern) {
        if (escaping && (c == '[' || c == '\\' || (rule.literal && (c == '*' || c == '?'))))
            out += '\\';
        out += c;
    }
    if (rule.folderOnly)
        out += '/';
    return out;
}

}
