// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "cutlist.h"

#include "rootfs.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace ovjournal
{
namespace
{
constexpr char HardLinks[] = "a file with more than one name (hard links) changed";
constexpr char Unreadable[] = "the journal could not look at what changed";

// Inodes with more than one name, and how many of their names the copy takes.
using Links = std::map<std::pair<dev_t, ino_t>, std::pair<nlink_t, nlink_t>>;

void count(Links &links, const struct stat &st)
{
    if (S_ISREG(st.st_mode) && st.st_nlink > 1) {
        auto &seen = links[{st.st_dev, st.st_ino}];
        seen.first = st.st_nlink;
        ++seen.second;
    }
}

// Every name below folder, on the source's file system.
bool walk(int folder, dev_t device, Links &links)
{
    DIR *dir = fdopendir(folder);
    if (!dir) {
        close(folder);
        return false;
    }
    bool ok = true;
    errno = 0;
    while (const dirent *e = readdir(dir)) {
        if (e->d_name[0] == '.' && (e->d_name[1] == '\0' || (e->d_name[1] == '.' && e->d_name[2] == '\0'))) {
            continue;
        }
        struct stat st;
        if (fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) {
                continue;
            }
            ok = false;
            break;
        }
        if (S_ISDIR(st.st_mode) && st.st_dev == device) {
            const int child = openat(dirfd(dir), e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child >= 0 ? !walk(child, device, links) : errno != ENOENT && errno != ENOTDIR && errno != ELOOP) {
                ok = false;
                break;
            }
        } else {
            count(links, st);
        }
        errno = 0;
    }
    if (ok && errno != 0) {
        ok = false;
    }
    closedir(dir);
    return ok;
}
}

bool pathBefore(const std::string &a, const std::string &b)
{
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) {
            const unsigned char x = a[i] == '/' ? 0 : static_cast<unsigned char>(a[i]);
            const unsigned char y = b[i] == '/' ? 0 : static_cast<unsigned char>(b[i]);
            return x < y;
        }
    }
    return a.size() < b.size();
}

CutList settle(int source, std::vector<Entry> entries)
{
    CutList list;
    std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        return pathBefore(a.path, b.path);
    });
    struct stat top;
    if (fstat(source, &top) != 0) {
        list.fullWalk = Unreadable;
        return list;
    }
    Links links;
    bool atTop = false;
    std::string below; // the last folder copied whole, plus "/"
    std::string parentPath(1, '\0'); // no path
    int parent = -1;
    auto fail = [&](const char *why) {
        if (parent >= 0) {
            close(parent);
        }
        list = CutList();
        list.fullWalk = why;
        return list;
    };
    for (const Entry &entry : entries) {
        if (!below.empty() && entry.path.compare(0, below.size(), below) == 0) {
            continue;
        }
        if (entry.path == ".") {
            atTop = true;
            continue;
        }
        const std::size_t slash = entry.path.rfind('/');
        const std::string folder = slash == std::string::npos ? std::string(".") : entry.path.substr(0, slash);
        const std::string name = slash == std::string::npos ? entry.path : entry.path.substr(slash + 1);
        if (folder != parentPath) {
            if (parent >= 0) {
                close(parent);
            }
            parentPath = folder;
            parent = folder == "." ? fcntl(source, F_DUPFD_CLOEXEC, 0) : rootfs::openBeneath(source, folder, O_PATH | O_DIRECTORY);
            // Gone, no longer a folder, a link or another disk: the entry of
            // that change itself covers what was below it.
            if (parent < 0 && errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != EXDEV) {
                return fail(Unreadable);
            }
        }
        if (parent < 0) {
            continue;
        }
        struct stat st;
        const bool exists = fstatat(parent, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
        if (!exists && errno != ENOENT) {
            return fail(Unreadable);
        }
        atTop = atTop || slash == std::string::npos;
        if (exists && !entry.folder && S_ISDIR(st.st_mode)) {
            list.foldersAlone.push_back(entry.path);
        } else if (exists && S_ISDIR(st.st_mode)) {
            list.entries.push_back(entry.path);
            below = entry.path + "/";
            if (st.st_dev == top.st_dev) {
                const int inside = openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (inside >= 0 ? !walk(inside, top.st_dev, links) : errno != ENOENT && errno != ENOTDIR && errno != ELOOP) {
                    return fail(Unreadable);
                }
            }
        } else {
            list.entries.push_back(entry.path);
            if (exists) {
                count(links, st);
            }
        }
    }
    if (parent >= 0) {
        close(parent);
    }
    for (const auto &inode : links) {
        if (inode.second.second < inode.second.first) {
            list = CutList();
            list.fullWalk = HardLinks;
            return list;
        }
    }
    if (atTop) {
        list.foldersAlone.push_back(".");
    }
    return list;
}
}
