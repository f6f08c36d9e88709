// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "fsops.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>

namespace psync
{

Fd &Fd::operator=(Fd &&other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = other.release();
    }
    return *this;
}

Fd::~Fd()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::string reason(int error)
{
    switch (error) {
    case ENOENT:
        return "it does not exist";
    case EACCES:
    case EPERM:
        return "permission denied";
    case ELOOP:
        return "it is a symbolic link";
    case ENOTDIR:
        return "it is not a folder";
    case EXDEV:
        return "it leads out of the folder or onto another disk";
    case ENOSPC:
        return "the disk is full";
    case EDQUOT:
        return "the disk quota is used up";
    case EROFS:
        return "the disk is read-only";
    case EIO:
        return "the disk reported an input/output error";
    case EEXIST:
        return "the name is already taken";
    case ENOTEMPTY:
        return "the folder is not empty";
    case EMFILE:
    case ENFILE:
        return "too many files are open";
    case ENOTCONN:
    case ENODEV:
    case ESTALE:
        return "its disk or network volume is no longer connected";
    case ETIMEDOUT:
        return "its disk or network volume stopped answering";
    case EOPNOTSUPP:
        return "the disk does not support it";
    default:
        return std::strerror(error);
    }
}

int openBeneath(int dir, const std::string &path, int flags, mode_t mode)
{
    open_how how{};
    how.flags = static_cast<unsigned long long>(flags | O_CLOEXEC);
    how.mode = (flags & O_CREAT) ? mode : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    for (;;) {
        const long fd = ::syscall(SYS_openat2, dir, path.c_str(), &how, sizeof how);
        if (fd >= 0)
            return static_cast<int>(fd);
        if (errno == EAGAIN)
            continue; // a rename raced the lookup: look again
        if (errno != ENOSYS)
            return -1;
        break;
    }
    // No openat2: one component at a time, none of them a link.
    if (path.empty() || path[0] == '/') {
        errno = EXDEV;
        return -1;
    }
    int current = ::fcntl(dir, F_DUPFD_CLOEXEC, 0);
    size_t start = 0;
    while (current >= 0) {
        const size_t slash = path.find('/', start);
        const std::string part = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (part == "..") {
            ::close(current);
            errno = EXDEV;
            return -1;
        }
        const bool last = slash == std::string::npos;
        const int next = part.empty() || part == "." ? ::fcntl(current, F_DUPFD_CLOEXEC, 0)
                                                     : ::openat(current, part.c_str(), (last ? flags : O_RDONLY | O_DIRECTORY) | O_NOFOLLOW | O_CLOEXEC, mode);
        const int saved = errno;
        ::close(current);
        errno = saved;
        current = next;
        if (last)
            return current;
        start = slash + 1;
    }
    return -1;
}

Fd openFolder(int dir, const std::string &path)
{
    return Fd(openBeneath(dir, path, O_RDONLY | O_DIRECTORY | O_NONBLOCK));
}

bool stillConnected(int fd)
{
    struct stat st {
    };
    Fd again(::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    return ::fstat(fd, &st) == 0 && again;
}

bool isLocalDisk(int fd)
{
    struct statfs fs {
    };
    if (::fstatfs(fd, &fs) != 0)
        return false;
    switch (static_cast<unsigned long>(fs.f_type)) {
    case NFS_SUPER_MAGIC:
    case V9FS_MAGIC:
    case CEPH_SUPER_MAGIC:
    case AFS_SUPER_MAGIC:
    case CODA_SUPER_MAGIC:
        return false;
    default:
        return holdsOwners(fd);
    }
}

bool holdsOwners(int fd)
{
    struct statfs fs {
    };
    if (::fstatfs(fd, &fs) != 0)
        return true;
    switch (static_cast<unsigned long>(fs.f_type)) {
    case 0x65735546UL: // FUSE (rclone, ntfs-3g, exFAT through FUSE)
    case 0xFF534D42UL: // CIFS
    case 0xFE534D42UL: // SMB2
    case SMB_SUPER_MAGIC:
    case MSDOS_SUPER_MAGIC:
    case 0x2011BAB0UL: // exFAT
    case 0x7366746EUL: // NTFS
        return false;
    default:
        return true;
    }
}

Fd makeFolder(int parent, const std::string &name, std::string &why, bool *existed)
{
    if (existed)
        *existed = false;
    if (::mkdirat(parent, name.c_str(), 0700) != 0) {
        if (errno == EEXIST && existed)
            *existed = true;
        why = reason(errno);
        return Fd();
    }
    Fd fd(openBeneath(parent, name, O_RDONLY | O_DIRECTORY | O_NONBLOCK));
    struct stat made {
    }, named{}, above{};
    if (!fd || ::fstat(fd.get(), &made) != 0 || ::fstatat(parent, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 || ::fstat(parent, &above) != 0) {
        why = fd ? reason(errno) : "it was replaced as it was made (" + reason(errno) + ")";
        return Fd();
    }
    const bool same = S_ISDIR(made.st_mode) && made.st_ino == named.st_ino && made.st_dev == named.st_dev && made.st_dev == above.st_dev;
    // Where owners are held, only root could have made a root-only folder.
    const bool ours = !holdsOwners(fd.get()) || (made.st_uid == 0 && (made.st_mode & 077) == 0);
    if (!same || !ours) {
        why = "it is not the folder this run made";
        return Fd();
    }
    return fd;
}

Fd openParent(int dir, const std::string &path, std::string &name)
{
    const size_t slash = path.rfind('/');
    name = slash == std::string::npos ? path : path.substr(slash + 1);
    return Fd(slash == std::string::npos ? ::fcntl(dir, F_DUPFD_CLOEXEC, 0) : openBeneath(dir, path.substr(0, slash), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
}

bool readFolder(int dir, std::vector<FolderEntry> &entries)
{
    if (::lseek(dir, 0, SEEK_SET) != 0)
        return false;
    alignas(dirent64) char buffer[32768];
    for (;;) {
        const ssize_t got = ::getdents64(dir, buffer, sizeof buffer);
        if (got < 0)
            return false;
        if (got == 0)
            return true;
        for (ssize_t at = 0; at < got;) {
            const auto *e = reinterpret_cast<const dirent64 *>(buffer + at);
            at += e->d_reclen;
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                entries.push_back({e->d_name, e->d_type});
        }
    }
}

std::vector<std::string> listFolder(int dir)
{
    // A descriptor of its own: DIR may be one opened only as a path, or one
    // a caller reads from too.
    std::vector<std::string> names;
    std::vector<FolderEntry> entries;
    Fd own(::openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (own)
        readFolder(own.get(), entries); // what it read before any failure, as readdir gave
    for (FolderEntry &e : entries)
        names.push_back(std::move(e.name));
    std::sort(names.begin(), names.end());
    return names;
}

bool removeContents(int dir, dev_t device, std::string &why)
{
    // Deep trees without deep recursion: a stack of open folders.
    struct Level {
        Fd fd;
        std::vector<std::string> names;
        size_t next = 0;
    };
    std::vector<Level> stack;
    Level top;
    top.fd = Fd(::fcntl(dir, F_DUPFD_CLOEXEC, 0));
    top.names = listFolder(dir);
    stack.push_back(std::move(top));
    bool ok = true;
    while (!stack.empty()) {
        Level &level = stack.back();
        if (level.next >= level.names.size()) {
            stack.pop_back();
            if (!stack.empty()) {
                Level &parent = stack.back();
                const std::string &name = parent.names[parent.next - 1];
                if (::unlinkat(parent.fd.get(), name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
                    why = name + ": " + reason(errno);
                    ok = false;
                }
            }
            continue;
        }
        const std::string &name = level.names[level.next++];
        struct stat st {
        };
        if (::fstatat(level.fd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) {
                why = name + ": " + reason(errno);
                ok = false;
            }
            continue;
        }
        if (!S_ISDIR(st.st_mode)) {
            if (::unlinkat(level.fd.get(), name.c_str(), 0) != 0 && errno != ENOENT) {
                why = name + ": " + reason(errno);
                ok = false;
            }
            continue;
        }
        if (st.st_dev != device) {
            why = name + " is another disk mounted there";
            ok = false;
            continue;
        }
        Level child;
        child.fd = Fd(::openat(level.fd.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat opened {
        };
        if (!child.fd || ::fstat(child.fd.get(), &opened) != 0 || opened.st_ino != st.st_ino || opened.st_dev != device) {
            why = name + ": " + (child.fd ? "it changed while it was removed" : reason(errno));
            ok = false;
            continue;
        }
        child.names = listFolder(child.fd.get());
        stack.push_back(std::move(child));
    }
    return ok;
}

bool removeTree(int parent, const std::string &name, dev_t device, std::string &why)
{
    struct stat st {
    };
    if (::fstatat(parent, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT)
            return true;
        why = name + ": " + reason(errno);
        return false;
    }
    if (!S_ISDIR(st.st_mode)) {
        if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT)
            return true;
        why = name + ": " + reason(errno);
        return false;
    }
    if (st.st_dev != device) {
        why = name + " is another disk mounted there";
        return false;
    }
    Fd fd(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat opened {
    };
    if (!fd || ::fstat(fd.get(), &opened) != 0 || opened.st_ino != st.st_ino) {
        why = name + ": " + (fd ? "it changed while it was removed" : reason(errno));
        return false;
    }
    if (!removeContents(fd.get(), device, why))
        return false;
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT)
        return true;
    why = name + ": " + reason(errno);
    return false;
}

static bool copyAttributes(int from, int to, std::string &why)
{
    std::vector<char> names(65536);
    const ssize_t length = ::flistxattr(from, names.data(), names.size());
    if (length < 0)
        return true; // a volume without extended attributes (a share) has none to copy
    std::vector<char> value(65536);
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(names.data() + at)) + 1) {
        const char *attribute = names.data() + at;
        const ssize_t size = ::fgetxattr(from, attribute, value.data(), value.size());
        if (size < 0)
            continue;
        if (::fsetxattr(to, attribute, value.data(), static_cast<size_t>(size), 0) != 0) {
            why = std::string("extended attribute ") + attribute + ": " + reason(errno);
            return false;
        }
    }
    return true;
}

bool copyData(int from, int to, off_t size, std::string &why)
{
    off_t at = 0;
    while (at < size) {
        off_t data = ::lseek(from, at, SEEK_DATA);
        if (data < 0) {
            if (errno == ENXIO)
                break; // a hole to the end
            data = at;
        }
        off_t hole = ::lseek(from, data, SEEK_HOLE);
        if (hole < 0)
            hole = size;
        off_t in = data, out = data;
        while (in < hole) {
            ssize_t done = ::copy_file_range(from, &in, to, &out, static_cast<size_t>(hole - in), 0);
            if (done < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                // Between two file systems the kernel may not copy: by hand.
                char buffer[1 << 16];
                done = ::pread(from, buffer, static_cast<size_t>(std::min<off_t>(hole - in, sizeof buffer)), in);
                if (done > 0 && ::pwrite(to, buffer, static_cast<size_t>(done), out) != done)
                    done = -1;
                if (done > 0) {
                    in += done;
                    out += done;
                }
            }
            if (done < 0) {
                why = reason(errno);
                return false;
            }
            if (done == 0)
                break;
        }
        at = hole;
    }
    if (::ftruncate(to, size) != 0) {
        why = reason(errno);
        return false;
    }
    return true;
}

bool copyTree(int from, const std::string &name, int to, const std::string &newName, const CopyOwner &folders, std::string &why)
{
    struct stat st {
    };
    if (::fstatat(from, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        why = name + ": " + reason(errno);
        return false;
    }
    const timespec times[2] = {st.st_atim, st.st_mtim};
    if (S_ISDIR(st.st_mode)) {
        Fd source(::openat(from, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        Fd made = source ? makeFolder(to, newName, why) : Fd();
        if (!source || !made) {
            why = name + ": " + (source ? why : reason(errno));
            return false;
        }
        for (const std::string &child : listFolder(source.get())) {
            if (!copyTree(source.get(), child, made.get(), child, folders, why))
                return false;
        }
        if (folders.set && (::fchown(made.get(), folders.uid, folders.gid) != 0 || ::fchmod(made.get(), ownersFolderMode(st.st_mode)) != 0)
            && holdsOwners(made.get())) {
            why = name + ": " + reason(errno);
            return false;
        }
        ::futimens(made.get(), times);
        return true;
    }
    if (S_ISLNK(st.st_mode)) {
        std::vector<char> target(static_cast<size_t>(st.st_size) + 1);
        const ssize_t length = ::readlinkat(from, name.c_str(), target.data(), target.size());
        if (length < 0 || static_cast<size_t>(length) >= target.size()) {
            why = name + ": " + reason(errno);
            return false;
        }
        target[static_cast<size_t>(length)] = 0;
        if (::symlinkat(target.data(), to, newName.c_str()) != 0) {
            why = name + ": " + reason(errno);
            return false;
        }
        ::fchownat(to, newName.c_str(), st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW);
        ::utimensat(to, newName.c_str(), times, AT_SYMLINK_NOFOLLOW);
        return true;
    }
    if (!S_ISREG(st.st_mode)) {
        if (::mknodat(to, newName.c_str(), st.st_mode & (S_IFMT | 07777), st.st_rdev) != 0) {
            why = name + ": " + reason(errno);
            return false;
        }
        ::fchownat(to, newName.c_str(), st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW);
        ::fchmodat(to, newName.c_str(), st.st_mode & 07777, 0);
        ::utimensat(to, newName.c_str(), times, AT_SYMLINK_NOFOLLOW);
        return true;
    }
    // Root reads any file, a file of mode 000 too.
    Fd in(::openat(from, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    Fd out(::openat(to, newName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!in || !out) {
        why = name + ": " + reason(errno);
        return false;
    }
    std::string problem;
    if (!copyData(in.get(), out.get(), st.st_size, problem) || !copyAttributes(in.get(), out.get(), problem)) {
        why = name + ": " + problem;
        return false;
    }
    if ((::fchown(out.get(), st.st_uid, st.st_gid) != 0 || ::fchmod(out.get(), st.st_mode & 07777) != 0) && holdsOwners(out.get())) {
        why = name + ": " + reason(errno);
        return false;
    }
    // Setting the owner clears set-user-ID bits and ACL masks may differ:
    // the mode goes last, then the ACLs again.
    copyAttributes(in.get(), out.get(), problem);
    ::futimens(out.get(), times);
    if (::fsync(out.get()) != 0) {
        why = name + ": " + reason(errno);
        return false;
    }
    return true;
}

mode_t ownersFolderMode(mode_t mode)
{
    return (mode & 07777) | 0700;
}

bool giveFolders(int dir, uid_t uid, gid_t gid, std::string &why)
{
    struct stat was {
    };
    if (::fstat(dir, &was) != 0) {
        why = reason(errno);
        return false;
    }
    if ((::fchown(dir, uid, gid) != 0 || ::fchmod(dir, ownersFolderMode(was.st_mode)) != 0) && holdsOwners(dir)) {
        why = reason(errno);
        return false;
    }
    for (const std::string &name : listFolder(dir)) {
        struct stat st {
        };
        if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode))
            continue;
        Fd child(::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!child || !giveFolders(child.get(), uid, gid, why))
            return false;
    }
    return true;
}

bool replaceFile(int dir, const std::string &name, const std::string &data, mode_t mode, std::string &why, bool durable)
{
    const std::string temporary = "." + name + "." + randomTag();
    Fd out(::openat(dir, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!out) {
        why = reason(errno);
        return false;
    }
    size_t written = 0;
    while (written < data.size()) {
        const ssize_t done = ::write(out.get(), data.data() + written, data.size() - written);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0) {
            why = reason(errno);
            ::unlinkat(dir, temporary.c_str(), 0);
            return false;
        }
        written += static_cast<size_t>(done);
    }
    ::fchmod(out.get(), mode);
    if ((durable && ::fsync(out.get()) != 0) || ::renameat(dir, temporary.c_str(), dir, name.c_str()) != 0) {
        why = reason(errno);
        ::unlinkat(dir, temporary.c_str(), 0);
        return false;
    }
    if (durable)
        ::fsync(dir);
    return true;
}

bool readFile(int dir, const std::string &name, std::string &data)
{
    Fd in(::openat(dir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st {
    };
    if (!in || ::fstat(in.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    data.clear();
    char buffer[65536];
    for (;;) {
        const ssize_t done = ::read(in.get(), buffer, sizeof buffer);
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0)
            return false;
        if (done == 0)
            return true;
        data.append(buffer, static_cast<size_t>(done));
    }
}

std::string randomTag()
{
    unsigned char bytes[6];
    if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        const unsigned long mix = static_cast<unsigned long>(::getpid()) * 2654435761UL ^ static_cast<unsigned long>(::time(nullptr));
        std::memcpy(bytes, &mix, sizeof bytes);
    }
    static const char digits[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string tag;
    for (unsigned char b : bytes)
        tag += digits[b % 36];
    return tag;
}

}
