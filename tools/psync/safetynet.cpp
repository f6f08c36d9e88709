// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "safetynet.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <map>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace psync
{

bool openSafetyNet(const std::string &folder, const std::string &user, SafetyNet &net, std::string &why)
{
    const passwd *pw = ::getpwnam(user.c_str());
    if (!pw) {
        why = "the Safety Net folder's owner " + user + " is not a user of this computer";
        return false;
    }
    net.uid = pw->pw_uid;
    net.gid = pw->pw_gid;
    int count = 64;
    net.groups.resize(static_cast<size_t>(count));
    if (::getgrouplist(pw->pw_name, pw->pw_gid, net.groups.data(), &count) < 0) {
        net.groups.resize(static_cast<size_t>(count));
        ::getgrouplist(pw->pw_name, pw->pw_gid, net.groups.data(), &count);
    }
    net.groups.resize(static_cast<size_t>(std::max(count, 0)));
    net.path = folder;
    net.folder = Fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st {
    };
    if (!net.folder || ::fstat(net.folder.get(), &st) != 0) {
        why = "the Safety Net folder " + folder + " cannot be used (" + reason(errno) + "; is its disk connected?)";
        return false;
    }
    if (st.st_uid != net.uid && holdsOwners(net.folder.get())) {
        why = "the Safety Net folder " + folder + " does not belong to " + user;
        return false;
    }
    return true;
}

namespace
{
// Visits every entry of KEPT with its place at the target (TARGET is -1
// where the target has no folder there). Deepest entries first.
template<typename Visit>
void visitKept(int kept, int target, const Visit &visit)
{
    for (const std::string &name : listFolder(kept)) {
        struct stat st {
        }, there{};
        if (::fstatat(kept, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const bool taken = target >= 0 && ::fstatat(target, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0;
        if (S_ISDIR(st.st_mode)) {
            Fd child(::openat(kept, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            Fd place =
                taken && S_ISDIR(there.st_mode) ? Fd(::openat(target, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) : Fd();
            if (child)
                visitKept(child.get(), place ? place.get() : -1, visit);
        }
        visit(kept, target, name, S_ISDIR(st.st_mode), taken);
    }
}

bool renameNoReplace(int fromDir, const std::string &from, int toDir, const std::string &to)
{
    if (::renameat2(fromDir, from.c_str(), toDir, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // A file system without the flag (a FUSE share): only where nothing is.
    struct stat st {
    };
    if (::fstatat(toDir, to.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::renameat(fromDir, from.c_str(), toDir, to.c_str()) == 0;
}

unsigned long countFiles(int dir)
{
    unsigned long count = 0;
    for (const std::string &name : listFolder(dir)) {
        struct stat st {
        };
        if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (!S_ISDIR(st.st_mode)) {
            ++count;
            continue;
        }
        Fd child(::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (child)
            count += countFiles(child.get());
    }
    return count;
}
}

KeptCount countKept(int kept, int target)
{
    KeptCount count;
    visitKept(kept, target, [&](int, int, const std::string &, bool folder, bool taken) {
        if (!folder)
            ++(taken ? count.replaced : count.deleted);
    });
    return count;
}

unsigned long putBack(int kept, int target, std::string &why)
{
    unsigned long back = 0;
    for (const std::string &name : listFolder(kept)) {
        struct stat st {
        }, there{};
        if (::fstatat(kept, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (::fstatat(target, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT)
                continue;
            Fd child(S_ISDIR(st.st_mode) ? ::openat(kept, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1);
            const unsigned long files = child ? countFiles(child.get()) : 1;
            if (renameNoReplace(kept, name, target, name))
                back += files;
            else if (errno != EEXIST)
                why = name + ": " + reason(errno);
            continue;
        }
        if (S_ISDIR(st.st_mode) && S_ISDIR(there.st_mode)) {
            Fd child(::openat(kept, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            Fd place(::openat(target, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
            if (child && place)
                back += putBack(child.get(), place.get(), why);
        }
    }
    return back;
}

namespace
{
// KEPT's folder for the target folder PARENT, made as the target's.
int keptFolder(int kept, int target, const std::string &parent, std::map<std::string, Fd> &made)
{
    if (parent.empty())
        return kept;
    const auto known = made.find(parent);
    if (known != made.end())
        return known->second.get();
    const size_t slash = parent.rfind('/');
    const std::string above = slash == std::string::npos ? std::string() : parent.substr(0, slash);
    const std::string name = slash == std::string::npos ? parent : parent.substr(slash + 1);
    const int into = keptFolder(kept, target, above, made);
    Fd there(into < 0 ? -1 : openBeneath(target, parent, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    struct stat st {
    };
    if (!there || ::fstat(there.get(), &st) != 0)
        return -1;
    const bool fresh = ::mkdirat(into, name.c_str(), 0700) == 0;
    Fd folder(::openat(into, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder || (fresh && (::fchown(folder.get(), st.st_uid, st.st_gid) != 0 || ::fchmod(folder.get(), st.st_mode & 07777) != 0)))
        return -1;
    return made.emplace(parent, std::move(folder)).first->second.get();
}
}

unsigned long
setAside(int source, int target, int kept, const std::vector<std::string> &entries, bool mirror, const std::function<bool(const std::string &)> &whole)
{
    std::map<std::string, Fd> made;
    unsigned long moved = 0;
    for (const std::string &path : entries) {
        Fd atTarget, atSource;
        std::string name;
        struct stat old {
        }, now{};
        if (path == "." || !(atTarget = openParent(target, path, name)) || ::fstatat(atTarget.get(), name.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const bool there = (atSource = openParent(source, path, name)) && ::fstatat(atSource.get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0;
        if (!there && errno != ENOENT && errno != ENOTDIR)
            continue; // unknown: rsync decides
        bool replaced;
        if (!there)
            replaced = mirror;
        else if ((old.st_mode & S_IFMT) != (now.st_mode & S_IFMT))
            replaced = true;
        else
            replaced =
                S_ISREG(old.st_mode) && (old.st_size != now.st_size || old.st_mtim.tv_sec != now.st_mtim.tv_sec || old.st_mtim.tv_nsec != now.st_mtim.tv_nsec);
        if (!replaced || (S_ISDIR(old.st_mode) && !whole(path)))
            continue;
        const size_t slash = path.rfind('/');
        const int into = keptFolder(kept, target, slash == std::string::npos ? std::string() : path.substr(0, slash), made);
        if (into >= 0 && renameNoReplace(atTarget.get(), name, into, name))
            ++moved;
    }
    return moved;
}

bool mayEnter(const SafetyNet &net, const struct stat &folder)
{
    if (net.uid == 0)
        return true;
    if (folder.st_uid == net.uid)
        return folder.st_mode & S_IXUSR;
    if (folder.st_gid == net.gid || std::find(net.groups.begin(), net.groups.end(), folder.st_gid) != net.groups.end())
        return folder.st_mode & S_IXGRP;
    return folder.st_mode & S_IXOTH;
}

bool mayReach(const SafetyNet &net, const std::string &path, int target)
{
    // Folder by folder from "/", never following a link, and the end must be
    // the target psync holds: a folder swapped on the way proves nothing.
    Fd at(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat st {
    };
    if (!at || ::fstat(at.get(), &st) != 0 || !mayEnter(net, st))
        return false;
    for (size_t from = 1; from < path.size();) {
        size_t end = path.find('/', from);
        if (end == std::string::npos)
            end = path.size();
        const std::string name = path.substr(from, end - from);
        from = end + 1;
        if (name.empty())
            continue;
        at = Fd(::openat(at.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!at || ::fstat(at.get(), &st) != 0 || !mayEnter(net, st))
            return false;
    }
    struct stat held {
    };
    return ::fstat(target, &held) == 0 && held.st_dev == st.st_dev && held.st_ino == st.st_ino;
}

namespace
{
struct Sorter {
    const SafetyNet &net;
    unsigned long left = 0;

    // REACHED: the owner could reach this folder's place in the target.
    void sort(int kept, int target, bool reached)
    {
        for (const std::string &name : listFolder(kept)) {
            struct stat st {
            }, there{};
            if (::fstatat(kept, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            const bool taken = target >= 0 && ::fstatat(target, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0;
            if (S_ISDIR(st.st_mode)) {
                Fd child(::openat(kept, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
                Fd place =
                    taken && S_ISDIR(there.st_mode) ? Fd(::openat(target, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) : Fd();
                if (child)
                    sort(child.get(), place ? place.get() : -1, reached && mayEnter(net, st));
                ::unlinkat(kept, name.c_str(), AT_REMOVEDIR); // only when empty
                continue;
            }
            // A place the target still has was replaced; a free one, deleted.
            if ((net.keep == "changed" && !taken) || (net.keep == "deleted" && taken)) {
                ::unlinkat(kept, name.c_str(), 0);
                continue;
            }
            ++left;
            if (!reached && st.st_uid != net.uid && !S_ISLNK(st.st_mode) && (st.st_mode & 077))
                ::fchmodat(kept, name.c_str(), st.st_mode & 07700, 0);
        }
    }
};
}

unsigned long sortKept(int kept, int target, const SafetyNet &net, bool topReached)
{
    Sorter sorter{net};
    sorter.sort(kept, target, topReached);
    return sorter.left;
}

bool unlinkKept(int kept, std::string &why)
{
    for (const std::string &name : listFolder(kept)) {
        struct stat st {
        };
        if (::fstatat(kept, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISDIR(st.st_mode)) {
            Fd child(::openat(kept, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (child && !unlinkKept(child.get(), why))
                return false;
            continue;
        }
        if (!S_ISREG(st.st_mode) || st.st_nlink < 2)
            continue;
        const std::string copy = ".psync-copy-" + randomTag();
        if (!copyTree(kept, name, kept, copy, CopyOwner{}, why)) {
            ::unlinkat(kept, copy.c_str(), 0);
            return false;
        }
        if (::renameat(kept, copy.c_str(), kept, name.c_str()) != 0) {
            why = name + ": " + reason(errno);
            ::unlinkat(kept, copy.c_str(), 0);
            return false;
        }
    }
    return true;
}

std::string archiveNameAfter(const std::string &name, int seconds)
{
    tm t{};
    const char *rest = ::strptime(name.c_str(), "%Y-%m-%d %H.%M.%S", &t);
    if (!rest)
        return name + " " + std::to_string(seconds + 1);
    time_t when = ::timegm(&t) + seconds;
    tm later{};
    ::gmtime_r(&when, &later);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H.%M.%S", &later);
    return text + std::string(rest);
}

// A folder of the archive: opened when it is there and the owner's (or a
// folder on a volume without owners), else made for him. MADE collects
// what this run made, deepest last.
static Fd archiveFolder(SafetyNet &net, int parent, const std::string &name, std::vector<std::pair<int, std::string>> *made, std::string &why)
{
    Fd fd = openFolder(parent, name);
    if (fd) {
        struct stat st {
        };
        if (::fstat(fd.get(), &st) == 0 && (st.st_uid == net.uid || !holdsOwners(fd.get())))
            return fd;
        why = name + " in the Safety Net folder is not " + "its owner's";
        return Fd();
    }
    if (errno != ENOENT) {
        why = name + ": " + reason(errno);
        return Fd();
    }
    fd = makeFolder(parent, name, why);
    if (!fd)
        return Fd();
    if ((::fchown(fd.get(), net.uid, net.gid) != 0 || ::fchmod(fd.get(), 0700) != 0) && holdsOwners(fd.get())) {
        why = name + ": " + reason(errno);
        return Fd();
    }
    if (made)
        made->emplace_back(parent, name);
    return fd;
}

// A remote volume's kept files get the owners and modes of its side store;
// its folders' records say whether the owner could reach them.
static void applyOwners(int dir, const std::string &prefix, const std::map<std::string, Attributes> &owners, const SafetyNet &net, bool reached)
{
    for (const std::string &name : listFolder(dir)) {
        struct stat st {
        };
        if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        const auto found = owners.find(path);
        if (S_ISDIR(st.st_mode)) {
            Fd child(::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            struct stat was {
            };
            if (found != owners.end()) {
                was.st_mode = found->second.mode;
                was.st_uid = found->second.uid;
                was.st_gid = found->second.gid;
            }
            if (child)
                applyOwners(child.get(), path, owners, net, reached && found != owners.end() && mayEnter(net, was));
            continue;
        }
        const Attributes a = found != owners.end() ? found->second : Attributes{0600, net.uid, net.gid};
        ::fchownat(dir, name.c_str(), a.uid, a.gid, AT_SYMLINK_NOFOLLOW);
        const mode_t mode = !reached && a.uid != net.uid ? a.mode & 07700 : a.mode & 07777;
        if (S_ISREG(st.st_mode))
            ::fchmodat(dir, name.c_str(), mode, 0);
    }
}

bool handOver(SafetyNet &net,
              int work,
              const std::string &targetPath,
              const std::map<std::string, Attributes> *owners,
              bool topReached,
              std::string &used,
              std::string &why)
{
    Fd kept(::openat(work, "kept", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!kept)
        return true;
    // Still root-only here: nobody else reaches in while the folders change hands.
    if (!giveFolders(kept.get(), net.uid, net.gid, why))
        return false;
    std::vector<std::string> parts;
    for (size_t at = 0; at < targetPath.size();) {
        const size_t slash = targetPath.find('/', at);
        const std::string part = targetPath.substr(at, slash == std::string::npos ? std::string::npos : slash - at);
        if (!part.empty() && part != ".")
            parts.push_back(part);
        at = slash == std::string::npos ? targetPath.size() : slash + 1;
    }
    const std::string last = parts.empty() ? "root" : parts.back();
    if (!parts.empty())
        parts.pop_back();
    for (int second = 0; second < 60; ++second) {
        const std::string name = second == 0 ? net.archive : archiveNameAfter(net.archive, second);
        std::vector<std::pair<int, std::string>> made;
        std::vector<Fd> chain;
        chain.push_back(archiveFolder(net, net.folder.get(), name, &made, why));
        for (const std::string &part : parts) {
            if (!chain.back())
                break;
            chain.push_back(archiveFolder(net, chain.back().get(), part, &made, why));
        }
        if (!chain.back())
            continue; // taken by something that is not the owner's folder
        const int parent = chain.back().get();
        struct stat there {
        };
        if (::fstatat(parent, last.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0)
            continue; // two pairs into one target in one run: the next second
        struct stat from {
        }, to{};
        ::fstat(kept.get(), &from);
        ::fstat(parent, &to);
        bool moved = false;
        if (from.st_dev == to.st_dev && !owners) {
            moved = renameNoReplace(work, "kept", parent, last);
            if (!moved)
                why = reason(errno);
        } else {
            // Another disk: a private copy first, renamed into place whole, so
            // a failure leaves no part of an archive behind.
            const std::string partial = ".psync-partial-" + randomTag();
            Fd scratch = makeFolder(net.folder.get(), partial, why);
            struct stat netStat {
            };
            ::fstat(net.folder.get(), &netStat);
            if (scratch && copyTree(work, "kept", scratch.get(), "kept", CopyOwner{true, net.uid, net.gid}, why)) {
                Fd copied(::openat(scratch.get(), "kept", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
                if (owners && copied)
                    applyOwners(copied.get(), "", *owners, net, topReached);
                moved = renameNoReplace(scratch.get(), "kept", parent, last);
                if (!moved)
                    why = reason(errno);
            }
            std::string ignored;
            if (scratch)
                removeTree(net.folder.get(), partial, netStat.st_dev, ignored);
            if (moved) {
                struct stat keptStat {
                };
                ::fstat(kept.get(), &keptStat);
                removeTree(work, "kept", keptStat.st_dev, ignored);
            }
        }
        if (moved) {
            used = name;
            return true;
        }
        // Nothing of a failed attempt stays in the Safety Net folder.
        for (auto it = made.rbegin(); it != made.rend(); ++it)
            ::unlinkat(it->first, it->second.c_str(), AT_REMOVEDIR);
        return false;
    }
    if (why.empty())
        why = "no free archive name in the minute after " + net.archive;
    return false;
}

bool pruneArchives(SafetyNet &net, const std::vector<std::string> &names)
{
    struct stat st {
    };
    ::fstat(net.folder.get(), &st);
    bool ok = true;
    for (const std::string &name : names) {
        std::string why;
        if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
            std::fprintf(stderr, "psync: %s is not the name of an archive in the Safety Net folder\n", name.c_str());
            ok = false;
            continue;
        }
        if (removeTree(net.folder.get(), name, st.st_dev, why)) {
            std::printf("psync: removed %s\n", name.c_str());
        } else {
            std::fprintf(stderr, "psync: the archive %s could not be removed (%s)\n", name.c_str(), why.c_str());
            ok = false;
        }
    }
    std::fflush(stdout);
    return ok;
}

}
