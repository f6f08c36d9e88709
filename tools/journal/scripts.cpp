// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "scripts.h"

#include "journalwire.h"
#include "ovfixedpaths.h"
#include "rootfs.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace ovjournal::scripts
{
namespace
{
// A Ruby string as the pane writes it: "\" escapes only "\", '"' and "#".
bool rubyString(const std::string &text, std::size_t &at, std::string &value, bool &plain)
{
    if (at >= text.size() || text[at] != '"') {
        return false;
    }
    value.clear();
    plain = true;
    for (++at; at < text.size(); ++at) {
        char c = text[at];
        if (c == '"') {
            ++at;
            return true;
        }
        if (c == '\\') {
            if (++at >= text.size()) {
                return false;
            }
            c = text[at];
            if (c != '\\' && c != '"' && c != '#') {
                plain = false;
            }
        }
        value += c;
    }
    return false;
}

void skipSpaces(const std::string &text, std::size_t &at)
{
    while (at < text.size() && text[at] == ' ') {
        ++at;
    }
}

bool list(const std::string &text, std::size_t at, std::vector<std::string> &values)
{
    values.clear();
    if (at >= text.size() || text[at++] != '[') {
        return false;
    }
    skipSpaces(text, at);
    if (at < text.size() && text[at] == ']') {
        return true;
    }
    for (;;) {
        std::string value;
        bool plain;
        if (!rubyString(text, at, value, plain)) {
            return false;
        }
        if (plain && !value.empty()) {
            values.push_back(wire::key(value));
        }
        skipSpaces(text, at);
        if (at < text.size() && text[at] == ']') {
            return true;
        }
        if (at >= text.size() || text[at++] != ',') {
            return false;
        }
        skipSpaces(text, at);
    }
}
}

std::vector<std::string> sourcesOf(const std::string &script)
{
    const std::string assignment = "\nsourceFolders = ";
    const std::size_t code = script.find("\nclass OrvaneBackup\n");
    std::vector<std::string> sources;
    std::vector<std::string> found;
    for (std::size_t at = script.find(assignment); at != std::string::npos && at < code; at = script.find(assignment, at + 1)) {
        if (list(script, at + assignment.size(), found)) {
            sources = found;
        }
    }
    return sources;
}

std::set<std::string> installedSources(std::vector<std::string> &problems)
{
    std::set<std::string> sources;
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        const int folder = rootfs::openRootFolder(files.folder, false);
        if (folder < 0) {
            if (errno != ENOENT) {
                problems.push_back(std::string(files.folder) + " is not a folder only root may change");
            }
            continue;
        }
        std::string script;
        if (rootfs::readFileAt(folder, files.scriptName, 4 << 20, script)) {
            for (const std::string &source : sourcesOf(script)) {
                sources.insert(source);
            }
        } else if (errno != ENOENT) {
            problems.push_back(std::string(files.script) + " could not be read: " + std::strerror(errno));
        }
        close(folder);
    }
    return sources;
}

std::vector<std::string> watchedFolders()
{
    std::vector<std::string> folders = {OVFixedPaths::LibraryFolder, OVFixedPaths::ApplicationSupportFolder, OVFixedPaths::SupportFolder};
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        folders.push_back(files.folder);
    }
    return folders;
}
}
