// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "state.h"

#include "fsops.h"

#include <ovfixedpaths.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace psync
{

static const char Version[] = "psync-state 2";

StateStore::StateStore(const std::vector<std::string> &sources, const std::string &target)
{
    // Length-prefixed, so that the pair is one field of the NUL-separated file.
    m_pair = std::to_string(target.size()) + ":" + target;
    for (const std::string &source : sources)
        m_pair += " " + std::to_string(source.size()) + ":" + source;
    unsigned long long hash = 14695981039346656037ULL;
    for (unsigned char c : m_pair)
        hash = (hash ^ c) * 1099511628211ULL;
    char name[17];
    std::snprintf(name, sizeof name, "%016llx", hash);
    m_key = name;
}

// The state folder, made root-only if missing; refused when anyone but root
// could write it.
static Fd stateFolder(bool make)
{
    const std::string folder = OVFixedPaths::PsyncStateFolder;
    if (make) {
        for (size_t at = 1; at != std::string::npos; at = folder.find('/', at + 1))
            ::mkdir(folder.substr(0, at).c_str(), 0700);
        ::mkdir(folder.c_str(), 0700);
    }
    Fd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {
    };
    if (!fd || ::fstat(fd.get(), &st) != 0 || st.st_uid != 0 || (st.st_mode & 022) != 0)
        return Fd();
    return fd;
}

PairState StateStore::load() const
{
    PairState state;
    if (::geteuid() != 0)
        return state;
    Fd folder = stateFolder(false);
    std::string data;
    if (!folder || !readFile(folder.get(), m_key, data))
        return state;
    std::vector<std::string> fields;
    for (size_t at = 0; at < data.size();) {
        const size_t end = data.find('\0', at);
        if (end == std::string::npos)
            break;
        fields.push_back(data.substr(at, end - at));
        at = end + 1;
    }
    if (fields.size() < 2 || fields[0] != Version || fields[1] != m_pair)
        return state;
    state.found = true;
    for (size_t i = 2; i + 1 < fields.size(); i += 2) {
        const std::string &kind = fields[i];
        const std::string &value = fields[i + 1];
        if (kind == "cache")
            state.cacheFolders.insert(value);
        else if (kind == "meta") {
            const size_t space = value.find(' ');
            if (space != std::string::npos)
                state.withMetadata[value.substr(space + 1)] = value.substr(0, space);
        } else if (kind == "metaknown")
            state.metadataKnown = value == "1";
        else if (kind == "racy")
            std::sscanf(value.c_str(), "%lld %lld", &state.racyFrom, &state.racyUntil);
        else if (kind == "files") {
            state.files = std::strtoul(value.c_str(), nullptr, 10);
            state.filesKnown = true;
        }
    }
    return state;
}

bool StateStore::save(const PairState &state, std::string &why) const
{
    if (::geteuid() != 0)
        return true;
    Fd folder = stateFolder(true);
    if (!folder) {
        why = std::string(OVFixedPaths::PsyncStateFolder) + " is not root's own";
        return false;
    }
    std::string data = std::string(Version) + '\0' + m_pair + '\0';
    auto add = [&data](const char *kind, const std::string &value) {
        data += kind;
        data += '\0';
        data += value;
        data += '\0';
    };
    if (state.racyUntil >= state.racyFrom)
        add("racy", std::to_string(state.racyFrom) + " " + std::to_string(state.racyUntil));
    for (const std::string &path : state.cacheFolders)
        add("cache", path);
    for (const auto &[path, changed] : state.withMetadata)
        add("meta", changed + " " + path);
    add("metaknown", state.metadataKnown ? "1" : "0");
    add("files", std::to_string(state.files));
    return replaceFile(folder.get(), m_key, data, 0600, why);
}

}
