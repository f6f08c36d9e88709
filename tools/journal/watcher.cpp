// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "watcher.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <unistd.h>

#ifndef STATX_MNT_ID_UNIQUE
#define STATX_MNT_ID_UNIQUE 0x00004000U
#endif

namespace ovjournal
{
namespace
{
constexpr std::uint64_t Events = FAN_CREATE | FAN_DELETE | FAN_MOVED_FROM | FAN_MOVED_TO | FAN_MODIFY | FAN_CLOSE_WRITE | FAN_ATTRIB | FAN_ONDIR;
constexpr std::uint64_t NameEvents = FAN_CREATE | FAN_DELETE | FAN_MOVED_FROM | FAN_MOVED_TO;

constexpr char Overflow[] = "more changes at once than the journal could follow";
constexpr char Unresolved[] = "the journal could not tell where a change happened";
constexpr char Moved[] = "the folder, or a folder holding it, was moved, renamed or replaced";
constexpr char Remounted[] = "the folder's disk was disconnected or mounted again";
constexpr char NotYet[] = "the journal was not watching this folder yet";
constexpr char BoundInside[] = "a folder of the same disk is mounted inside it";
constexpr char MountsChanged[] = "a disk was mounted or unmounted inside the folder";

// File systems whose every change passes through this kernel and whose
// files have lasting handles. Anything else is walked.
struct Kind {
    unsigned long magic;
    const char *words; // nullptr: watched
};
constexpr Kind Kinds[] = {
    {0xEF53, nullptr}, // ext2, ext3, ext4
    {0x58465342, nullptr}, // xfs
    {0x9123683E, nullptr}, // btrfs
    {0x01021994, nullptr}, // tmpfs
    {0xF2F52010, nullptr}, // f2fs
    {0xCA451A4E, nullptr}, // bcachefs
    {0x3153464A, nullptr}, // jfs
    {0x52654973, nullptr}, // reiserfs
    {0x6969, "a network disk (NFS)"},
    {0x517B, "a network disk (SMB)"},
    {0xFE534D42, "a network disk (SMB)"},
    {0xFF534D42, "a network disk (SMB)"},
    {0x65735546, "a FUSE file system"},
    {0x794C7630, "an overlay file system"},
};

std::string kindWords(unsigned long magic)
{
    for (const Kind &kind : Kinds) {
        if (kind.magic == magic) {
            return kind.words ? kind.words : std::string();
        }
    }
    char hex[32];
    std::snprintf(hex, sizeof hex, "%lx", magic);
    return std::string("a kind of disk the journal does not watch (file system type ") + hex + ")";
}

std::uint64_t fsidOf(const void *fsid)
{
    std::uint64_t value;
    std::memcpy(&value, fsid, sizeof value);
    return value;
}

std::string linkOf(int fd)
{
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    std::string path(4096, '\0');
    const ssize_t n = readlink(link, path.data(), path.size());
    if (n <= 0 || static_cast<std::size_t>(n) >= path.size()) {
        return std::string();
    }
    path.resize(n);
    return path;
}

bool startsWith(const std::string &text, const std::string &prefix)
{
    return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

std::size_t maxQueued()
{
    std::FILE *f = std::fopen("/proc/sys/fs/fanotify/max_queued_events", "re");
    unsigned long n = 16384;
    if (f) {
        if (std::fscanf(f, "%lu", &n) != 1) {
            n = 16384;
        }
        std::fclose(f);
    }
    return n;
}
}

Watcher::~Watcher()
{
    if (m_fd >= 0) {
        close(m_fd);
    }
}

std::string Watcher::open()
{
    m_fd = fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DFID_NAME, O_RDONLY | O_LARGEFILE | O_CLOEXEC);
    if (m_fd < 0) {
        return errno == EPERM ? "the journal must run as root" : "this kernel cannot report changes by name (it needs Linux 5.9 or later)";
    }
    struct statx sx;
    m_uniqueMounts = statx(AT_FDCWD, "/", 0, STATX_MNT_ID_UNIQUE, &sx) == 0 && (sx.stx_mask & STATX_MNT_ID_UNIQUE);
    return std::string();
}

std::string Watcher::mark(const std::string &key, Source &source)
{
    source = Source();
    const int fd = ::open(key.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return source.whyNot = "the folder cannot be opened (is its disk connected?)";
    }
    struct statfs fs;
    struct statx sx;
    if (fstatfs(fd, &fs) != 0 || statx(fd, "", AT_EMPTY_PATH, STATX_INO | (m_uniqueMounts ? STATX_MNT_ID_UNIQUE : STATX_MNT_ID), &sx) != 0) {
        close(fd);
        return source.whyNot = "the folder cannot be opened (is its disk connected?)";
    }
    const std::string kind = kindWords(static_cast<unsigned long>(fs.f_type));
    if (!kind.empty()) {
        close(fd);
        return source.whyNot = "the folder is on " + kind + ", where the journal cannot see every change";
    }
    source.canonical = linkOf(fd);
    source.device = makedev(sx.stx_dev_major, sx.stx_dev_minor);
    source.inode = sx.stx_ino;
    source.mount = sx.stx_mnt_id;
    source.fsid = fsidOf(&fs.f_fsid);
    if (source.canonical.empty() || source.canonical[0] != '/') {
        close(fd);
        return source.whyNot = "the folder cannot be opened (is its disk connected?)";
    }
    if (fanotify_mark(m_fd, FAN_MARK_ADD | FAN_MARK_FILESYSTEM, Events, fd, nullptr) != 0) {
        const int error = errno;
        close(fd);
        if (error == ENOSPC) {
            return source.whyNot = "the journal watches as many disks as the system allows";
        }
        return source.whyNot = "the folder's file system cannot report changes by handle";
    }
    close(fd);
    source.marked = true;
    bool sameDisk;
    source.mounts = mountsInside(source, sameDisk);
    return std::string();
}

std::string Watcher::watch(const std::string &key)
{
    return mark(key, m_sources[key]);
}

void Watcher::unwatch(const std::string &key)
{
    const auto it = m_sources.find(key);
    if (it == m_sources.end()) {
        return;
    }
    const Source gone = it->second;
    m_sources.erase(it);
    if (!gone.marked) {
        return;
    }
    for (const auto &other : m_sources) {
        if (other.second.marked && other.second.fsid == gone.fsid) {
            return;
        }
    }
    // Best effort: a disk that went took its mark with it.
    const int fd = openVerified(key, gone);
    if (fd >= 0) {
        fanotify_mark(m_fd, FAN_MARK_REMOVE | FAN_MARK_FILESYSTEM, Events, fd, nullptr);
        close(fd);
    }
}

std::map<std::string, std::string> Watcher::sources() const
{
    std::map<std::string, std::string> all;
    for (const auto &source : m_sources) {
        all[source.first] = source.second.whyNot;
    }
    return all;
}

// The folder at key, if it is still the one marked: the same inode on the
// same mount. Opening a user's folder only to look is harmless; what
// matters is that a folder swapped for another is noticed.
int Watcher::openVerified(const std::string &key, const Source &source) const
{
    const int fd = ::open(key.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    struct statx sx;
    if (statx(fd, "", AT_EMPTY_PATH, STATX_INO | (m_uniqueMounts ? STATX_MNT_ID_UNIQUE : STATX_MNT_ID), &sx) != 0
        || makedev(sx.stx_dev_major, sx.stx_dev_minor) != source.device || sx.stx_ino != source.inode || sx.stx_mnt_id != source.mount) {
        close(fd);
        return -1;
    }
    return fd;
}

int Watcher::openSource(const std::string &key) const
{
    const auto it = m_sources.find(key);
    return it == m_sources.end() || !it->second.marked ? -1 : openVerified(key, it->second);
}

// A mount that still exists keeps its file system, and so the mark, alive;
// only without mount ids that are never reused must the mark be looked up.
bool Watcher::stillMarked(const Source &source) const
{
    if (m_uniqueMounts) {
        return true;
    }
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fdinfo/%d", m_fd);
    std::FILE *f = std::fopen(path, "re");
    if (!f) {
        return false;
    }
    const unsigned long wanted = (static_cast<unsigned long>(major(source.device)) << 20) | minor(source.device);
    char line[256];
    bool found = false;
    while (!found && std::fgets(line, sizeof line, f)) {
        unsigned long sdev;
        found = std::sscanf(line, "fanotify sdev:%lx", &sdev) == 1 && sdev == wanted;
    }
    std::fclose(f);
    return found;
}

// The mounts inside the source, as one text to compare: one appearing or
// going changes what the copy sees there without an event. sameDisk: one of
// them shows a folder of the source's own file system (a bind mount),
// whose changes show under its other path only.
std::string Watcher::mountsInside(const Source &source, bool &sameDisk) const
{
    sameDisk = false;
    std::FILE *f = std::fopen("/proc/self/mountinfo", "re");
    if (!f) {
        sameDisk = true;
        return std::string();
    }
    const std::string below = source.canonical == "/" ? source.canonical : source.canonical + "/";
    std::string mounts;
    char *line = nullptr;
    std::size_t size = 0;
    while (getline(&line, &size, f) > 0) {
        unsigned id = 0, major = 0, minor = 0;
        char point[4096];
        if (std::sscanf(line, "%u %*u %u:%u %*s %4095s", &id, &major, &minor, point) != 4) {
            continue;
        }
        std::string unescaped;
        for (const char *p = point; *p; ++p) {
            if (p[0] == '\\' && p[1] >= '0' && p[1] <= '3' && p[2] && p[3]) {
                unescaped += static_cast<char>((p[1] - '0') * 64 + (p[2] - '0') * 8 + (p[3] - '0'));
                p += 3;
            } else {
                unescaped += *p;
            }
        }
        if (startsWith(unescaped, below)) {
            mounts += std::to_string(id) + ' ' + unescaped + '\0';
            sameDisk = sameDisk || makedev(major, minor) == source.device;
        }
    }
    std::free(line);
    std::fclose(f);
    return mounts;
}

std::string Watcher::check(const std::string &key, Book &book)
{
    const auto it = m_sources.find(key);
    if (it == m_sources.end()) {
        // Learnt from the cut itself: changes until now were not seen.
        const std::string why = watch(key);
        book.lose(key, NotYet);
        return why;
    }
    Source &source = it->second;
    if (source.marked) {
        const int fd = openVerified(key, source);
        if (fd >= 0) {
            close(fd);
            bool sameDisk = false;
            const std::string mounts = mountsInside(source, sameDisk);
            if (!stillMarked(source)) {
                book.lose(key, Remounted);
            } else if (mounts != source.mounts) {
                book.lose(key, MountsChanged);
                source.mounts = mounts;
                return sameDisk ? BoundInside : std::string();
            } else {
                return sameDisk ? BoundInside : std::string();
            }
        } else {
            book.lose(key, Moved);
        }
    } else {
        book.lose(key, NotYet);
    }
    return mark(key, source);
}

Watcher::Found Watcher::resolve(int mountFd, std::uint64_t mount, const void *handle, std::string &path)
{
    file_handle head;
    std::memcpy(&head, handle, sizeof head);
    if (head.handle_bytes > MAX_HANDLE_SZ) {
        return Found::Lost;
    }
    std::string key(reinterpret_cast<const char *>(&mount), sizeof mount);
    key.append(static_cast<const char *>(handle), sizeof head + head.handle_bytes);
    const auto cached = m_paths.find(key);
    if (cached != m_paths.end()) {
        path = cached->second;
        return path.empty() ? Found::Gone : Found::Path;
    }
    alignas(file_handle) char copy[sizeof(file_handle) + MAX_HANDLE_SZ];
    std::memcpy(copy, handle, sizeof head + head.handle_bytes);
    int fd = open_by_handle_at(mountFd, reinterpret_cast<file_handle *>(copy), O_PATH | O_CLOEXEC);
    // A folder being deleted at this moment can make the kernel answer "no
    // memory"; a moment later it says "gone" (or the folder is there).
    for (int attempt = 0; fd < 0 && errno == ENOMEM && attempt < 3; ++attempt) {
        const timespec pause{0, 1000000};
        nanosleep(&pause, nullptr);
        fd = open_by_handle_at(mountFd, reinterpret_cast<file_handle *>(copy), O_PATH | O_CLOEXEC);
    }
    if (fd < 0) {
        // The folder is gone: its parent got the event of its going.
        if (errno == ESTALE || errno == ENOENT) {
            return Found::Gone;
        }
        syslog(LOG_NOTICE, "cannot turn a folder's handle into a path (%s)", std::strerror(errno));
        return Found::Lost;
    }
    struct stat st;
    const bool alive = fstat(fd, &st) == 0 && st.st_nlink > 0;
    path = alive ? linkOf(fd) : std::string();
    close(fd);
    // Not reachable from this mount: not below any of its sources.
    if (!path.empty() && path[0] != '/') {
        path.clear();
    }
    if (m_paths.size() > 16384) {
        m_paths.clear();
    }
    m_paths[key] = path;
    return path.empty() ? Found::Gone : Found::Path;
}

void Watcher::place(Book &book, const std::string &key, const Source &source, const std::string &path, std::uint64_t mask, bool named)
{
    const std::string &top = source.canonical;
    const bool nameChanged = named && (mask & NameEvents);
    if (path == top) {
        if (nameChanged) {
            book.lose(key, Moved);
        } else {
            book.note(key, ".", false);
        }
        return;
    }
    const std::string prefix = top == "/" ? top : top + "/";
    if (startsWith(path, prefix)) {
        book.note(key, path.substr(prefix.size()), (mask & FAN_ONDIR) && (mask & (FAN_CREATE | FAN_MOVED_TO)));
    } else if (nameChanged && startsWith(top, path == "/" ? path : path + "/")) {
        book.lose(key, Moved);
    }
}

void Watcher::event(Book &book, std::uint64_t mask, std::uint64_t fsid, const void *handle, const char *name, std::map<std::uint64_t, int> &mounts)
{
    const bool named = name && std::strcmp(name, ".") != 0 && name[0] != '\0';
    std::map<std::uint64_t, std::string> paths; // per mount
    for (auto &entry : m_sources) {
        Source &source = entry.second;
        if (!source.marked || source.fsid != fsid || !book.wants(entry.first)) {
            continue;
        }
        auto found = paths.find(source.mount);
        if (found == paths.end()) {
            auto opened = mounts.find(source.mount);
            if (opened == mounts.end()) {
                opened = mounts.emplace(source.mount, openVerified(entry.first, source)).first;
            }
            if (opened->second < 0) {
                // Another sharing this mount may still lead to it.
                mounts.erase(opened);
                source.marked = false;
                book.lose(entry.first, Moved);
                continue;
            }
            std::string path;
            const Found what = resolve(opened->second, source.mount, handle, path);
            if (what == Found::Lost) {
                book.lose(Unresolved);
                return;
            }
            if (what == Found::Path && named) {
                path += path == "/" ? name : std::string("/") + name;
            }
            found = paths.emplace(source.mount, what == Found::Path ? path : std::string()).first;
        }
        if (!found->second.empty()) {
            place(book, entry.first, source, found->second, mask, named);
        }
    }
}

void Watcher::read(Book &book)
{
    alignas(fanotify_event_metadata) static char buffer[256 * 1024];
    // Everything queued before now is read once this many have been.
    const std::size_t enough = 4 * maxQueued();
    std::size_t events = 0;
    std::map<std::uint64_t, int> mounts;
    while (events < enough) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n < 0 && errno != EAGAIN) {
                book.lose(Unresolved);
            }
            break;
        }
        ssize_t left = n;
        for (auto *m = reinterpret_cast<fanotify_event_metadata *>(buffer); FAN_EVENT_OK(m, left); m = FAN_EVENT_NEXT(m, left)) {
            ++events;
            if (m->fd >= 0) {
                close(m->fd);
            }
            if (m->mask & FAN_Q_OVERFLOW) {
                m_paths.clear();
                book.lose(Overflow);
                continue;
            }
            if (m->vers != FANOTIFY_METADATA_VERSION) {
                book.lose(Unresolved);
                continue;
            }
            const char *at = reinterpret_cast<const char *>(m) + m->metadata_len;
            const char *end = reinterpret_cast<const char *>(m) + m->event_len;
            const fanotify_event_info_fid *fid = nullptr;
            const char *name = nullptr;
            while (at + sizeof(fanotify_event_info_header) <= end) {
                fanotify_event_info_header header;
                std::memcpy(&header, at, sizeof header);
                if (header.len < sizeof header || at + header.len > end) {
                    break;
                }
                if (!fid
                    && (header.info_type == FAN_EVENT_INFO_TYPE_DFID_NAME || header.info_type == FAN_EVENT_INFO_TYPE_DFID
                        || header.info_type == FAN_EVENT_INFO_TYPE_FID)
                    && header.len >= sizeof(fanotify_event_info_fid) + sizeof(file_handle)) {
                    fid = reinterpret_cast<const fanotify_event_info_fid *>(at);
                    if (header.info_type == FAN_EVENT_INFO_TYPE_DFID_NAME) {
                        file_handle head;
                        std::memcpy(&head, fid->handle, sizeof head);
                        const char *named = reinterpret_cast<const char *>(fid->handle) + sizeof head + head.handle_bytes;
                        name = named < at + header.len && std::memchr(named, '\0', at + header.len - named) ? named : nullptr;
                        if (!name) {
                            fid = nullptr;
                        }
                    }
                }
                at += header.len;
            }
            if (!fid) {
                syslog(LOG_NOTICE, "an event without a folder handle (mask %llx)", static_cast<unsigned long long>(m->mask));
                book.lose(Unresolved);
                continue;
            }
            event(book, m->mask, fsidOf(&fid->fsid), fid->handle, name, mounts);
            if ((m->mask & FAN_ONDIR) && (m->mask & (FAN_MOVED_FROM | FAN_MOVED_TO | FAN_DELETE))) {
                m_paths.clear();
            }
        }
    }
    for (const auto &mount : mounts) {
        close(mount.second);
    }
}
}
