// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "rootfs.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ovjournal::rootfs
{
namespace
{
bool rootsOnly(const struct stat &st)
{
    return st.st_uid == 0 && (st.st_gid == 0 || !(st.st_mode & S_IWGRP)) && !(st.st_mode & S_IWOTH);
}

void keepErrno(int fd)
{
    const int saved = errno;
    close(fd);
    errno = saved;
}
}

int openRootFolder(const std::string &path, bool create, mode_t lastMode)
{
    if (path.empty() || path[0] != '/') {
        errno = EINVAL;
        return -1;
    }
    int fd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::size_t begin = 1;
    while (fd >= 0) {
        struct stat st;
        if (fstat(fd, &st) != 0) {
            keepErrno(fd);
            return -1;
        }
        if (!rootsOnly(st)) {
            close(fd);
            errno = EPERM;
            return -1;
        }
        if (begin >= path.size()) {
            return fd;
        }
        std::size_t end = path.find('/', begin);
        if (end == std::string::npos) {
            end = path.size();
        }
        const std::string name = path.substr(begin, end - begin);
        begin = end + 1;
        if (name.empty() || name == ".") {
            continue;
        }
        if (name == "..") {
            keepErrno(fd);
            errno = EINVAL;
            return -1;
        }
        int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && create) {
            const bool last = begin >= path.size();
            if (mkdirat(fd, name.c_str(), 0700) == 0) {
                next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                // Ours, just made: its mode on the descriptor.
                if (next >= 0 && fchmod(next, last ? lastMode : 0755) != 0) {
                    keepErrno(next);
                    next = -1;
                }
            } else if (errno == EEXIST) {
                next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            }
        }
        keepErrno(fd);
        fd = next;
    }
    return -1;
}

bool readFileAt(int dir, const char *name, std::size_t maxSize, std::string &contents)
{
    const int fd = openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || !rootsOnly(st) || static_cast<std::size_t>(st.st_size) > maxSize) {
        close(fd);
        errno = EPERM;
        return false;
    }
    contents.clear();
    char buffer[65536];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
        if (n > 0) {
            contents.append(buffer, n);
        }
        if (contents.size() > maxSize) {
            close(fd);
            errno = EFBIG;
            return false;
        }
    }
    keepErrno(fd);
    return n == 0;
}

bool replaceFileAt(int dir, const char *name, const std::string &contents)
{
    const std::string temporary = std::string(".") + name + ".new";
    // The folder is root's alone: what stands at the temporary name is a
    // leftover of our own.
    unlinkat(dir, temporary.c_str(), 0);
    const int fd = openat(dir, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    std::size_t done = 0;
    while (done < contents.size()) {
        const ssize_t n = write(fd, contents.data() + done, contents.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            keepErrno(fd);
            unlinkat(dir, temporary.c_str(), 0);
            return false;
        }
        done += n;
    }
    if (fsync(fd) != 0 || close(fd) != 0 || renameat(dir, temporary.c_str(), dir, name) != 0) {
        const int saved = errno;
        unlinkat(dir, temporary.c_str(), 0);
        errno = saved;
        return false;
    }
    return fsync(dir) == 0;
}

int openBeneath(int dir, const std::string &path, int flags)
{
    open_how how{};
    how.flags = static_cast<unsigned long long>(flags) | O_CLOEXEC | O_NOFOLLOW;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
    long fd;
    // A rename elsewhere on the file system makes the kernel ask again.
    for (int attempt = 0; attempt < 8; ++attempt) {
        fd = syscall(SYS_openat2, dir, path.c_str(), &how, sizeof how);
        if (fd >= 0 || errno != EAGAIN) {
            break;
        }
    }
    return static_cast<int>(fd);
}
}
