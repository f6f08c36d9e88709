// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "walk.h"

#include "fsops.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace psync
{

static const char CacheSignature[] = "Signature: 8a477f597d28d172789f06886806bc55";

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
// target gives itself.
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

    void folder(int fd, const std::string &prefix, int depth)
    {
        const int copy = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR *d = copy < 0 ? nullptr : ::fdopendir(copy);
        if (!d) {
            if (copy >= 0)
                ::close(copy);
            result.unreadable.push_back(source + "/" + prefix);
            return;
        }
        struct Entry {
            std::string name;
            unsigned char type;
        };
        std::vector<Entry> entries;
        while (dirent *e = ::readdir(d)) {
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                entries.push_back({e->d_name, e->d_type});
        }
        ::closedir(d);
        if (options.remote) {
            std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
                return a.name < b.name;
            });
        }
        if (options.metadata && ::fchdir(fd) != 0)
            return;
        std::map<std::string, std::string> seen;
        for (const Entry &entry : entries) {
            const std::string path = prefix.empty() ? entry.name : prefix + "/" + entry.name;
            if (depth == 0)
                top = entry.name;
            unsigned char type = entry.type;
            struct stat st {
            };
            const bool stated = (options.statAll || type == DT_UNKNOWN || type == DT_DIR) && ::fstatat(fd, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
            if (type == DT_UNKNOWN && stated)
                type = S_ISDIR(st.st_mode) ? DT_DIR
                    : S_ISLNK(st.st_mode)  ? DT_LNK
                    : S_ISREG(st.st_mode)  ? DT_REG
                    : S_ISCHR(st.st_mode)  ? DT_CHR
                    : S_ISBLK(st.st_mode)  ? DT_BLK
                                           : DT_FIFO;
            const bool isFolder = type == DT_DIR;
            if (excluded(path, isFolder))
                continue;
            if (depth == 0)
                result.topNames.insert(entry.name);
            if (options.remote) {
                auto [at, fresh] = seen.emplace(folded(entry.name), entry.name);
                if (!fresh) {
                    result.caseClashes.push_back(path);
                    result.warnings.push_back("psync: not copied: " + shown(source + "/" + path) + ": its name differs only in case from \"" + shown(at->second)
                                              + "\" beside it, and the volume cannot hold both");
                    continue;
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
                continue;
            }
            ++result.topWeights[top];
            Fd child(::openat(fd, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (::geteuid() == 0 ? O_NOATIME : 0)));
            struct stat opened {
            };
            if (!child || ::fstat(child.get(), &opened) != 0) {
                result.unreadable.push_back(source + "/" + path);
                continue;
            }
            if (opened.st_dev != device) {
                result.mounts.push_back(source + "/" + path);
                continue;
            }
            if (isCacheTag(child.get(), "CACHEDIR.TAG")) {
                result.cacheFolders.push_back(path);
                continue;
            }
            folder(child.get(), path, depth + 1);
            if (options.metadata && ::fchdir(fd) != 0)
                return;
        }
    }
};
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
    Walker walker{options, result, source, st.st_dev, {}};
    while (walker.source.size() > 1 && walker.source.back() == '/')
        walker.source.pop_back();
    // Attributes are listed by name in the folder being walked.
    Fd back(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (options.metadata) {
        bool acl = false;
        if (::fchdir(root.get()) == 0 && carriesMetadata(".", acl))
            result.withMetadata["."] = std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec);
    }
    walker.folder(root.get(), "", 0);
    if (options.metadata && (!back || ::fchdir(back.get()) != 0) && ::chdir("/") != 0)
        result.unreadable.push_back(".");
}

}
