// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "walk.h"

#include "fsops.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

namespace psync
{

static const char CacheSignature[] = "Signature: 8a477f597d28d172789f06886806bc55";

bool isCache(int dir, const std::vector<FolderEntry> &entries)
{
    return std::any_of(entries.begin(),
                       entries.end(),
                       [](const FolderEntry &e) {
                           return e.name == "CACHEDIR.TAG";
                       })
        && isCacheTag(dir, "CACHEDIR.TAG");
}

bool isCacheTag(int dir, const char *name)
{
    Fd fd(::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st {
    };
    if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    char head[sizeof CacheSignature - 1];
    return ::pread(fd.get(), head, sizeof head, 0) == static_cast<ssize_t>(sizeof head) && std::memcmp(head, CacheSignature, sizeof head) == 0;
}

// The name as the server compares it: Unicode lower case where the name is
// UTF-8, ASCII lower case where it is not.
static std::string folded(const std::string &name)
{
    static const bool utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    std::string out;
    std::mbstate_t in{};
    const char *at = name.c_str();
    const char *end = at + name.size();
    while (at < end) {
        wchar_t wide = 0;
        const size_t used = utf8 ? std::mbrtowc(&wide, at, static_cast<size_t>(end - at), &in) : static_cast<size_t>(-1);
        if (used == static_cast<size_t>(-1) || used == static_cast<size_t>(-2) || used == 0) {
            std::string ascii = name;
            std::transform(ascii.begin(), ascii.end(), ascii.begin(), [](unsigned char c) {
                return c < 128 ? static_cast<char>(std::tolower(c)) : static_cast<char>(c);
            });
            return ascii;
        }
        char buffer[MB_LEN_MAX];
        std::mbstate_t state{};
        const size_t made = std::wcrtomb(buffer, static_cast<wchar_t>(std::towlower(static_cast<wint_t>(wide))), &state);
        out.append(buffer, made == static_cast<size_t>(-1) ? 0 : made);
        at += used;
    }
    return out;
}

std::string shown(const std::string &path)
{
    std::string out;
    for (char c : path) {
        if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

// Whether an entry's extended attributes are more than a security label the
// target gives itself. By its name in the current folder: a path through
// /proc/self/fd would cost as much again.
static bool carriesMetadata(const char *name, bool &acl)
{
    char list[4096];
    const ssize_t length = ::llistxattr(name, list, sizeof list);
    if (length == 0 || (length < 0 && errno != ERANGE))
        return false;
    if (length < 0)
        return true;
    bool any = false;
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(list + at)) + 1) {
        if (std::strncmp(list + at, "system.posix_acl_", 17) == 0)
            acl = true;
        if (std::strcmp(list + at, "security.selinux") != 0)
            any = true;
    }
    return any;
}

namespace
{
struct Walker {
    const WalkOptions &options;
    WalkResult &result;
    std::string source;
    dev_t device = 0;
    std::string top; // the top-level entry being walked

    bool excluded(const std::string &path, bool folder) const
    {
        if (!options.rules)
            return false;
        return std::any_of(options.rules->begin(), options.rules->end(), [&](const Rule &r) {
            return matches(r, path, folder);
        });
    }

    void note(const std::string &path, const struct stat &st)
    {
        if (options.statAll) {
            result.attributes[path] = Attributes{st.st_mode, st.st_uid, st.st_gid};
            if (!S_ISDIR(st.st_mode) && st.st_nlink > 1)
                ++result.multiLinked;
            if (S_ISREG(st.st_mode) && st.st_size > 0 && st.st_blocks * 512 < st.st_size)
                ++result.sparse;
        }
    }

    // FD's entries, or none (noted) when it cannot be read.
    std::vector<FolderEntry> list(int fd, const std::string &prefix)
    {
        std::vector<FolderEntry> entries;
        if (!readFolder(fd, entries)) {
            result.unreadable.push_back(source + "/" + prefix);
            entries.clear();
        }
        if (options.remote) {
            std::sort(entries.begin(), entries.end(), [](const FolderEntry &a, const FolderEntry &b) {
                return a.name < b.name;
            });
        }
        return entries;
    }

    // A folder below the top: left out whole when it is a cache.
    void folder(int fd, const std::string &prefix, int depth)
    {
        std::map<std::string, std::string> seen;
        const std::vector<FolderEntry> entries = list(fd, prefix);
        if (isCache(fd, entries)) {
            result.cacheFolders.push_back(prefix);
            return;
        }
        if (options.metadata && ::fchdir(fd) != 0)
            return;
        for (const FolderEntry &e : entries)
            entry(fd, prefix, depth, e, seen);
    }

    void entry(int fd, const std::string &prefix, int depth, const FolderEntry &entry, std::map<std::string, std::string> &seen)
    {
        const std::string path = prefix.empty() ? entry.name : prefix + "/" + entry.name;
        if (depth == 0)
            top = entry.name;
        unsigned char type = entry.type;
        struct stat st {
        };
        // A folder's own status comes from its descriptor below.
        const bool stated = (options.statAll || type == DT_UNKNOWN) && ::fstatat(fd, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
        if (type == DT_UNKNOWN && stated)
            type = S_ISDIR(st.st_mode) ? DT_DIR
                : S_ISLNK(st.st_mode)  ? DT_LNK
                : S_ISREG(st.st_mode)  ? DT_REG
                : S_ISCHR(st.st_mode)  ? DT_CHR
                : S_ISBLK(st.st_mode)  ? DT_BLK
                                       : DT_FIFO;
        const bool isFolder = type == DT_DIR;
        if (excluded(path, isFolder))
            return;
        if (depth == 0)
            result.topNames.insert(entry.name);
        if (options.remote) {
            auto [at, fresh] = seen.emplace(folded(entry.name), entry.name);
            if (!fresh) {
                result.caseClashes.push_back(path);
                result.warnings.push_back("psync: not copied: " + shown(source + "/" + path) + ": its name differs only in case from \"" + shown(at->second)
                                          + "\" beside it, and the volume cannot hold both");
                return;
            }
        }
        if (stated)
            note(path, st);
        if (options.metadata) {
            bool acl = false;
            if (carriesMetadata(entry.name.c_str(), acl)) {
                struct stat changed {
                };
                ::fstatat(fd, entry.name.c_str(), &changed, AT_SYMLINK_NOFOLLOW);
                result.withMetadata[path] = std::to_string(changed.st_ctim.tv_sec) + "." + std::to_string(changed.st_ctim.tv_nsec);
                ++result.attributed;
                result.acls += acl ? 1 : 0;
            }
        }
        if (!isFolder) {
            ++result.files;
            ++result.topWeights[top];
            if (type == DT_LNK)
                ++result.links;
            else if (type != DT_REG)
                ++result.specials;
            if (type == DT_REG && stated && st.st_mtim.tv_sec >= options.racyFrom && st.st_mtim.tv_sec <= options.racyUntil)
                result.racy.push_back(path);
            if (options.remote && type != DT_REG) {
                const char *kind = type == DT_LNK ? "a symbolic link" : type == DT_BLK || type == DT_CHR ? "a device" : "a special file";
                result.skipped.push_back("psync: skipped " + shown(source + "/" + path) + " (" + kind + "): the volume cannot hold it");
            }
            return;
        }
        ++result.topWeights[top];
        Fd child(::openat(fd, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (::geteuid() == 0 ? O_NOATIME : 0)));
        struct stat opened {
        };
        if (!child || ::fstat(child.get(), &opened) != 0) {
            result.unreadable.push_back(source + "/" + path);
            return;
        }
        if (opened.st_dev != device) {
            result.mounts.push_back(source + "/" + path);
            return;
        }
        folder(child.get(), path, depth + 1);
        if (options.metadata)
            (void)!::fchdir(fd);
    }
};
}

void mergeWalk(WalkResult &into, WalkResult &&part)
{
    auto append = [](std::vector<std::string> &to, std::vector<std::string> &from) {
        to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
    };
    append(into.cacheFolders, part.cacheFolders);
    append(into.mounts, part.mounts);
    append(into.unreadable, part.unreadable);
    append(into.caseClashes, part.caseClashes);
    append(into.warnings, part.warnings);
    append(into.skipped, part.skipped);
    append(into.racy, part.racy);
    into.withMetadata.merge(part.withMetadata);
    into.attributes.merge(part.attributes);
    for (const auto &[name, weight] : part.topWeights)
        into.topWeights[name] += weight;
    into.topNames.merge(part.topNames);
    into.files += part.files;
    into.multiLinked += part.multiLinked;
    into.links += part.links;
    into.specials += part.specials;
    into.sparse += part.sparse;
    into.attributed += part.attributed;
    into.acls += part.acls;
}

void walkSource(const std::string &source, const WalkOptions &options, WalkResult &result)
{
    Fd root(::open(source.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    struct stat st {
    };
    if (!root || ::fstat(root.get(), &st) != 0) {
        result.unreadable.push_back(source);
        return;
    }
    std::string top = source;
    while (top.size() > 1 && top.back() == '/')
        top.pop_back();
    // Attributes are listed by name in the folder being walked: each walker
    // has a current folder of its own.
    Fd back(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (options.metadata) {
        bool acl = false;
        if (::fchdir(root.get()) == 0 && carriesMetadata(".", acl))
            result.withMetadata["."] = std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec);
    }
    Walker first{options, result, top, st.st_dev, {}};
    const std::vector<FolderEntry> entries = first.list(root.get(), "");
    // Two walkers share the top-level entries: a walk is one system call
    // after another, and the machine has a core to spare before rsync
    // starts. On a remote volume, names are compared across one folder.
    std::atomic<size_t> next{0};
    auto walk = [&](Walker &walker) {
        std::map<std::string, std::string> seen;
        for (size_t i; (i = next++) < entries.size();) {
            if (options.metadata && ::fchdir(root.get()) != 0)
                continue;
            walker.entry(root.get(), "", 0, entries[i], seen);
        }
    };
    WalkResult other;
    Walker second{options, other, top, st.st_dev, {}};
    std::thread helper;
    if (!options.remote && entries.size() > 1) {
        helper = std::thread([&] {
            if (::unshare(CLONE_FS) == 0)
                walk(second);
        });
    }
    walk(first);
    if (helper.joinable()) {
        helper.join();
        mergeWalk(result, std::move(other));
    }
    if (options.metadata && (!back || ::fchdir(back.get()) != 0) && ::chdir("/") != 0)
        result.unreadable.push_back(".");
}

MetadataWalk::MetadataWalk(const std::vector<std::string> &sources, const std::vector<Rule> *rules)
    : m_sources(sources)
{
    m_options.rules = rules;
    m_options.metadata = true;
    // Attributes are read by name from the folder being walked: the thread
    // needs a current folder of its own, or the rsync started meanwhile
    // would start in the walk's folder. Without one it walks in finish().
    m_thread = std::thread([this] {
        if (::unshare(CLONE_FS) == 0)
            walk();
    });
}

MetadataWalk::~MetadataWalk()
{
    if (m_thread.joinable())
        m_thread.join();
}

void MetadataWalk::walk()
{
    for (const std::string &source : m_sources)
        walkSource(source, m_options, m_found);
    m_walked = true;
}

void MetadataWalk::finish(WalkResult &into)
{
    if (m_thread.joinable())
        m_thread.join();
    if (!m_walked)
        walk();
    into.withMetadata.merge(m_found.withMetadata);
    into.attributed += m_found.attributed;
    into.acls += m_found.acls;
    m_found = WalkResult();
}

}
