// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "firstcopy.h"

#include "fsops.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

namespace psync
{

namespace
{

using Inode = std::pair<dev_t, ino_t>;

// What the copiers of one copy share.
struct Shared {
    std::mutex lock;
    std::condition_variable copied;
    std::map<Inode, std::string> linked; // first copy of each hard-linked inode, below INTO
    std::set<Inode> copying; // first copies under way
    std::atomic<unsigned long> seen{0}, done{0};
    std::atomic<unsigned long long> bytes{0};
    std::atomic<bool> stop{false}; // one copier failed: the others stop too
    std::atomic<size_t> next{0}; // the next top-level entry to take
};

struct Copier {
    Copier(const std::vector<Rule> &rules, WalkResult &result, Shared &shared)
        : rules(rules)
        , result(result)
        , shared(shared)
    {
    }

    const std::vector<Rule> &rules;
    WalkResult &result;
    Shared &shared;
    std::string source;
    dev_t device = 0;
    int into = -1;
    bool progress = false;
    int noAtime = ::geteuid() == 0 ? O_NOATIME : 0;
    size_t linkSkip = 0; // what of a path is not below INTO
    bool alone = false; // one entry of a journal run: no hard links
    std::vector<char> names = std::vector<char>(65536), value = std::vector<char>(65536);
    bool full = false;
    std::string failure; // why writing into the work folder failed
    time_t shownAt = 0;

    bool failed() const
    {
        return full || !failure.empty() || shared.stop;
    }

    // The work folder could not take what it was given: the copy stops.
    void lost(const std::string &path, int error)
    {
        if (error == ENOSPC || error == EDQUOT)
            full = true;
        else if (failure.empty())
            failure = shown(path) + ": " + reason(error);
        shared.stop = true;
    }

    // A source entry that could not be read: named, and the run goes on.
    void unread(const std::string &path, int error)
    {
        skipped(path, error == ENOENT ? "vanished while it was being copied" : "could not be read (" + reason(error) + ")");
    }
    void skipped(const std::string &path, const std::string &why)
    {
        result.warnings.push_back("psync: not copied: " + shown(source + "/" + path) + " " + why);
    }

    // NAME's value into the buffer, however long.
    ssize_t valueOf(int fd, const char *path, const char *name)
    {
        for (;;) {
            const ssize_t size = fd >= 0 ? ::fgetxattr(fd, name, value.data(), value.size()) : ::lgetxattr(path, name, value.data(), value.size());
            if (size >= 0 || errno != ERANGE)
                return size;
            const ssize_t needed = fd >= 0 ? ::fgetxattr(fd, name, nullptr, 0) : ::lgetxattr(path, name, nullptr, 0);
            if (needed < 0)
                return needed;
            value.resize(static_cast<size_t>(needed) + 1);
        }
    }

    bool excluded(const std::string &path, bool folder) const
    {
        return std::any_of(rules.begin(), rules.end(), [&](const Rule &r) {
            return matches(r, path, folder);
        });
    }

    void shownProgress(bool last)
    {
        const time_t now = std::time(nullptr);
        if (!progress || (!last && now == shownAt))
            return;
        shownAt = now;
        // rsync's --info=progress2 line, which the backup script reads.
        const unsigned long seen = shared.seen, done = std::min<unsigned long>(shared.done, seen);
        std::printf("%15llu %3lu%%    0.00kB/s    0:00:00 (xfr#%lu, ir-chk=%lu/%lu)%c",
                    shared.bytes.load(),
                    seen ? done * 100 / seen : 0,
                    done,
                    seen - done,
                    seen,
                    last ? '\n' : '\r');
        std::fflush(stdout);
    }

    // Extended attributes and ACLs of FROM onto TO; NOTED records the entry
    // as carrying metadata, with its change time.
    bool attributes(int from, int to, const std::string &path, const struct stat &st)
    {
        const ssize_t length = ::flistxattr(from, names.data(), names.size());
        if (length <= 0)
            return true;
        bool any = false;
        for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(names.data() + at)) + 1) {
            const char *name = names.data() + at;
            // A label the target's file system gives its own files.
            if (std::strcmp(name, "security.selinux") == 0)
                continue;
            any = true;
            const ssize_t size = valueOf(from, nullptr, name);
            if (size < 0)
                continue;
            if (::fsetxattr(to, name, value.data(), static_cast<size_t>(size), 0) != 0) {
                lost(path, errno);
                return false;
            }
        }
        if (any) {
            result.withMetadata[path.empty() ? "." : path] = std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec);
            ++result.attributed;
        }
        return true;
    }

    // Owner, then mode (setting the owner clears set-user-ID bits), then times.
    bool owned(int fd, const std::string &path, const struct stat &st)
    {
        const timespec times[2] = {st.st_atim, st.st_mtim};
        if (::fchown(fd, st.st_uid, st.st_gid) != 0 || ::fchmod(fd, st.st_mode & 07777) != 0 || ::futimens(fd, times) != 0) {
            lost(path, errno);
            return false;
        }
        return true;
    }

    bool contents(int from, int to, const std::string &path, const struct stat &st)
    {
        if (st.st_size > 0 && st.st_blocks * 512 < st.st_size) {
            ++result.sparse;
            std::string why;
            if (!copyData(from, to, st.st_size, why)) {
                lost(path, errno);
                return false;
            }
            shared.bytes += static_cast<unsigned long long>(st.st_size);
            return true;
        }
        off_t left = st.st_size;
        while (left > 0) {
            // In pieces, so that progress shows within a large file.
            ssize_t n = ::copy_file_range(from, nullptr, to, nullptr, static_cast<size_t>(std::min<off_t>(left, 1 << 26)), 0);
            if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                n = ::read(from, value.data(), std::min<size_t>(value.size(), static_cast<size_t>(left)));
                if (n > 0 && ::write(to, value.data(), static_cast<size_t>(n)) != n) {
                    lost(path, errno);
                    return false;
                }
            }
            if (n < 0) {
                // A read error is the source's; a write error the work folder's.
                const int error = errno;
                if (error == ENOSPC || error == EDQUOT || error == EROFS)
                    lost(path, error);
                else
                    unread(path, error);
                return false;
            }
            if (n == 0)
                break; // shorter than when it was looked at: copied as it is now
            left -= n;
            shared.bytes += static_cast<unsigned long long>(n);
            shownProgress(false);
        }
        return true;
    }

    void file(int from, int to, const std::string &name, const std::string &path)
    {
        Fd in(::openat(from, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | noAtime));
        struct stat st {
        };
        if (!in || ::fstat(in.get(), &st) != 0) {
            // Replaced by a link or a special file since it was listed.
            if (errno == ELOOP)
                return other(from, to, name, path);
            return unread(path, errno);
        }
        if (!S_ISREG(st.st_mode))
            return other(from, to, name, path);
        ++result.files;
        const bool claimed = st.st_nlink > 1;
        if (claimed && hardLinked(to, name, path, st))
            return;
        Fd out(::openat(to, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        const bool made = out ? contents(in.get(), out.get(), path, st) && attributes(in.get(), out.get(), path, st) && owned(out.get(), path, st)
                              : (lost(path, errno), false);
        if (made)
            ++shared.done;
        if (claimed)
            firstCopied(st, path, made);
    }

    // The first copy of a hard-linked inode is in (or failed): later names
    // may link to it (or copy it themselves).
    void firstCopied(const struct stat &st, const std::string &path, bool made)
    {
        std::lock_guard<std::mutex> hold(shared.lock);
        shared.copying.erase({st.st_dev, st.st_ino});
        if (made)
            shared.linked[{st.st_dev, st.st_ino}] = path.substr(linkSkip);
        shared.copied.notify_all();
    }

    // A later name of an inode copied before becomes a link to that copy.
    bool hardLinked(int to, const std::string &name, const std::string &path, const struct stat &st)
    {
        if (alone) {
            // Its other names may lie outside what is copied: rsync links them.
            failure = shown(path) + ": a hard link";
            return true;
        }
        ++result.multiLinked;
        const Inode inode{st.st_dev, st.st_ino};
        std::unique_lock<std::mutex> hold(shared.lock);
        shared.copied.wait(hold, [&] {
            return !shared.copying.count(inode);
        });
        const auto at = shared.linked.find(inode);
        if (at == shared.linked.end()) {
            shared.copying.insert(inode); // this name makes the first copy
            return false;
        }
        const std::string first = at->second;
        hold.unlock();
        if (::linkat(into, first.c_str(), to, name.c_str(), 0) != 0)
            lost(path, errno);
        else
            ++shared.done;
        return true;
    }

    // Links, devices, pipes and sockets, by name in their folder.
    void other(int from, int to, const std::string &name, const std::string &path)
    {
        struct stat st {
        };
        if (::fstatat(from, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            return unread(path, errno);
        // Replaced while it was being copied: the next run copies what is there.
        if (S_ISDIR(st.st_mode) || S_ISREG(st.st_mode))
            return skipped(path, "changed while it was being copied");
        ++result.files;
        const bool claimed = st.st_nlink > 1 && !S_ISLNK(st.st_mode);
        if (claimed && hardLinked(to, name, path, st))
            return;
        const bool made = special(from, to, name, path, st);
        if (made)
            ++shared.done;
        if (claimed)
            firstCopied(st, path, made);
    }

    bool special(int from, int to, const std::string &name, const std::string &path, const struct stat &st)
    {
        if (S_ISLNK(st.st_mode)) {
            ++result.links;
            std::vector<char> target(static_cast<size_t>(st.st_size) + 2);
            const ssize_t length = ::readlinkat(from, name.c_str(), target.data(), target.size() - 1);
            if (length < 0) {
                unread(path, errno);
                return false;
            }
            target[static_cast<size_t>(length)] = 0;
            if (::symlinkat(target.data(), to, name.c_str()) != 0)
                return lost(path, errno), false;
        } else {
            ++result.specials;
            if (::mknodat(to, name.c_str(), (st.st_mode & S_IFMT) | 0600, st.st_rdev) != 0)
                return lost(path, errno), false;
        }
        // Attributes by the entry's name below its open folder, never through the entry.
        const std::string fromPath = "/proc/self/fd/" + std::to_string(from) + "/" + name;
        const std::string toPath = "/proc/self/fd/" + std::to_string(to) + "/" + name;
        const ssize_t length = ::llistxattr(fromPath.c_str(), names.data(), names.size());
        bool any = false;
        for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(names.data() + at)) + 1) {
            const char *attribute = names.data() + at;
            const ssize_t size = valueOf(-1, fromPath.c_str(), attribute);
            any = any || std::strcmp(attribute, "security.selinux") != 0;
            if (size >= 0 && std::strcmp(attribute, "security.selinux") != 0
                && ::lsetxattr(toPath.c_str(), attribute, value.data(), static_cast<size_t>(size), 0) != 0)
                return lost(path, errno), false;
        }
        if (any) {
            result.withMetadata[path] = std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec);
            ++result.attributed;
        }
        const timespec times[2] = {st.st_atim, st.st_mtim};
        if (::fchownat(to, name.c_str(), st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW) != 0
            || (!S_ISLNK(st.st_mode) && ::fchmodat(to, name.c_str(), st.st_mode & 07777, 0) != 0)
            || ::utimensat(to, name.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
            return lost(path, errno), false;
        return true;
    }

    // FROM's entries; none (named) when it cannot be read.
    std::vector<FolderEntry> list(int from, const std::string &prefix)
    {
        std::vector<FolderEntry> entries;
        if (!readFolder(from, entries)) {
            unread(prefix.empty() ? "." : prefix, errno);
            entries.clear();
        }
        shared.seen += entries.size();
        return entries;
    }

    void entry(int from, int to, const std::string &prefix, const std::string &name, unsigned char type)
    {
        shownProgress(false);
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        struct stat st {
        };
        const bool isFolder = type == DT_DIR || (type == DT_UNKNOWN && ::fstatat(from, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode));
        const bool isFile = type == DT_REG || (type == DT_UNKNOWN && S_ISREG(st.st_mode));
        if (excluded(path, isFolder))
            ++shared.done;
        else if (isFolder)
            subfolder(from, to, name, path);
        else if (isFile)
            file(from, to, name, path);
        else
            other(from, to, name, path);
    }

    void subfolder(int from, int to, const std::string &name, const std::string &path)
    {
        Fd child(::openat(from, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | noAtime));
        struct stat st {
        };
        if (!child || ::fstat(child.get(), &st) != 0) {
            if (errno == ENOTDIR || errno == ELOOP)
                return other(from, to, name, path); // no longer a folder
            return unread(path, errno);
        }
        if (st.st_dev != device) {
            result.mounts.push_back(source + "/" + path);
            ++shared.done;
            return;
        }
        const std::vector<FolderEntry> entries = list(child.get(), path);
        if (isCache(child.get(), entries)) {
            result.cacheFolders.push_back(path);
            ++shared.done;
            return;
        }
        if (::mkdirat(to, name.c_str(), 0700) != 0)
            return lost(path, errno);
        Fd made(::openat(to, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!made)
            return lost(path, errno);
        // Its contents; its own owner, mode and times once they are in.
        for (const FolderEntry &e : entries) {
            if (failed())
                return;
            entry(child.get(), made.get(), path, e.name, e.type);
        }
        if (!failed() && attributes(child.get(), made.get(), path, st) && owned(made.get(), path, st))
            ++shared.done;
    }
};

}

FirstCopy copyFirst(const std::string &source, int into, int top, const std::vector<Rule> &rules, bool progress, WalkResult &result, std::string &why)
{
    Fd root(::open(source.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    struct stat st {
    };
    if (!root || ::fstat(root.get(), &st) != 0) {
        why = "the source " + source + " cannot be read (" + reason(errno) + ")";
        return FirstCopy::Failed;
    }
    // Two descriptors for each level of folders: a deep tree needs more than
    // the default limit.
    struct rlimit limit {
    };
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    // Two copiers share the top-level entries, as the walk's walkers do.
    Shared shared;
    WalkResult other;
    Copier copier(rules, result, shared), second(rules, other, shared);
    for (Copier *c : {&copier, &second}) {
        c->source = source;
        c->device = st.st_dev;
        c->into = into;
        while (c->source.size() > 1 && c->source.back() == '/')
            c->source.pop_back();
    }
    copier.progress = progress;
    const std::vector<FolderEntry> entries = copier.list(root.get(), "");
    auto copy = [&](Copier &c) {
        for (size_t i; !c.failed() && (i = shared.next++) < entries.size();)
            c.entry(root.get(), into, "", entries[i].name, entries[i].type);
    };
    std::thread helper(copy, std::ref(second));
    copy(copier);
    helper.join();
    mergeWalk(result, std::move(other));
    copier.full = copier.full || second.full;
    if (copier.failure.empty())
        copier.failure = second.failure;
    if (!copier.full && copier.failure.empty()) {
        for (const std::string &name : listFolder(into)) {
            if (::renameat2(into, name.c_str(), top, name.c_str(), RENAME_NOREPLACE) != 0
                && !(errno == EINVAL && ::renameat(into, name.c_str(), top, name.c_str()) == 0)) {
                why = "the first copy could not be moved into place (" + reason(errno) + ")";
                return FirstCopy::Failed;
            }
        }
        if (copier.attributes(root.get(), top, "", st))
            copier.owned(top, ".", st);
    }
    copier.shownProgress(true);
    if (copier.full)
        return FirstCopy::Full;
    if (!copier.failure.empty()) {
        why = copier.failure;
        return FirstCopy::Failed;
    }
    return result.warnings.empty() ? FirstCopy::Done : FirstCopy::Warnings;
}

bool copyEntry(int source, dev_t device, int target, int tmp, const std::string &path, const std::vector<Rule> &rules, WalkResult &result)
{
    const size_t slash = path.rfind('/');
    std::string name;
    Fd from = openParent(source, path, name), to = openParent(target, path, name);
    struct stat st {
    }, there{};
    if (!from || !to || ::fstatat(from.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0
        || !(S_ISDIR(st.st_mode) || (S_ISREG(st.st_mode) && st.st_nlink == 1)) || ::fstatat(to.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0
        || errno != ENOENT)
        return false;
    // Made whole in a private folder of the work folder, then renamed into place.
    static unsigned long made = 0;
    const std::string own = "own-" + std::to_string(++made);
    std::string why;
    Fd into = makeFolder(tmp, own, why);
    if (!into)
        return false;
    WalkResult found;
    Shared shared;
    Copier copier(rules, found, shared);
    copier.device = device;
    copier.into = into.get();
    copier.linkSkip = slash == std::string::npos ? 0 : slash + 1;
    copier.alone = true;
    if (S_ISDIR(st.st_mode))
        copier.subfolder(from.get(), into.get(), name, path);
    else
        copier.file(from.get(), into.get(), name, path);
    const bool copied = !copier.failed() && found.warnings.empty() && found.mounts.empty() && found.cacheFolders.empty()
        && ::renameat2(into.get(), name.c_str(), to.get(), name.c_str(), RENAME_NOREPLACE) == 0;
    if (copied)
        result.files += found.files;
    into = Fd();
    removeTree(tmp, own, device, why);
    return copied;
}

}
