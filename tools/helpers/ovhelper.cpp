// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "ovhelper.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <polkit/polkit.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "ovfixedpaths.h"

namespace ovhelper
{
static const char *s_toolName = "orvane-helper";
// The action of org.orvane.Orvane.policy, the one the pane's lock asks for.
static const char PolkitAction[] = "org.orvane.Orvane.unlock";
static uid_t s_uid = static_cast<uid_t>(-1);
static pid_t s_parent = 0;

void fail(const char *message, int errnum)
{
    // The system log first, as pkexec does: an administrator can read who
    // was refused even when the caller shows nothing.
    if (errnum) {
        syslog(LOG_WARNING, "uid %d, parent %d: %s: %s", static_cast<int>(s_uid), static_cast<int>(s_parent), message, std::strerror(errnum));
        std::fprintf(stderr, "%s: %s: %s\n", s_toolName, message, std::strerror(errnum));
    } else {
        syslog(LOG_WARNING, "uid %d, parent %d: %s", static_cast<int>(s_uid), static_cast<int>(s_parent), message);
        std::fprintf(stderr, "%s: %s\n", s_toolName, message);
    }
    std::exit(1);
}

void done(const char *format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    syslog(LOG_NOTICE, "uid %d, parent %d: %s", static_cast<int>(s_uid), static_cast<int>(s_parent), text);
}

static void cleanProcess()
{
    if (clearenv() != 0) {
        fail("cannot clear the environment");
    }
    if (setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1) != 0) {
        fail("cannot set PATH", errno);
    }
    umask(022);

    // 0, 1 and 2 must be open so that no file we open takes their place.
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            const int nul = open("/dev/null", O_RDWR);
            if (nul != fd) {
                std::exit(1);
            }
        }
    }
    if (close_range(3, ~0U, 0) != 0) {
        // Kernels before 5.9: one by one, up to the descriptor limit.
        const long maxFd = sysconf(_SC_OPEN_MAX);
        for (long fd = 3; fd < (maxFd > 0 ? maxFd : 1024); ++fd) {
            close(static_cast<int>(fd));
        }
    }
}

// Asks polkitd whether the parent (the pane that started us) holds the
// unlock. Being an administrator is not enough: only a process that was
// given an administrator's password, within polkit's keep time, is; after
// that the desktop's agent asks again.
static bool parentHoldsUnlock(pid_t parent, uid_t uid)
{
    GError *error = nullptr;
    PolkitAuthority *authority = polkit_authority_get_sync(nullptr, &error);
    if (!authority) {
        const std::string why = std::string("refused: cannot reach polkit: ") + (error ? error->message : "unknown error");
        g_clear_error(&error);
        fail(why.c_str());
    }
    // pid and uid as pkexec gives them; the start time polkit looks up
    // itself, and our parent cannot change while we still name it.
    PolkitSubject *subject = polkit_unix_process_new_for_owner(parent, 0, static_cast<gint>(uid));
    PolkitAuthorizationResult *result = polkit_authority_check_authorization_sync(authority,
                                                                                  subject,
                                                                                  PolkitAction,
                                                                                  nullptr,
                                                                                  POLKIT_CHECK_AUTHORIZATION_FLAGS_ALLOW_USER_INTERACTION,
                                                                                  nullptr,
                                                                                  &error);
    bool authorized = false;
    if (result) {
        authorized = polkit_authorization_result_get_is_authorized(result);
        g_object_unref(result);
    } else {
        const std::string why = std::string("refused: polkit did not answer: ") + (error ? error->message : "unknown error");
        g_clear_error(&error);
        g_object_unref(subject);
        g_object_unref(authority);
        fail(why.c_str());
    }
    g_object_unref(subject);
    g_object_unref(authority);
    return authorized;
}

Caller start(int argc, char **argv, const char *toolName)
{
    // Taken before anything else: the process that started us.
    s_parent = getppid();
    s_uid = getuid();
    s_toolName = toolName;
    openlog(toolName, LOG_PID, LOG_AUTHPRIV);
    if (argc != 2 || !argv[1] || std::strcmp(argv[1], OVFixedPaths::ToolArgument) != 0) {
        fail("expects exactly one argument, --Orvane");
    }
    cleanProcess();
    if (geteuid() != 0) {
        fail("must be installed set-user-ID root");
    }
    const Caller caller{getuid(), getgid(), s_parent};
    if (caller.uid != 0) {
        // The parent must be the caller's own process: polkit judges a
        // process by its owner, and a root parent (init, after our parent
        // left) would be authorized for anything.
        struct stat parentStat;
        const std::string proc = "/proc/" + std::to_string(caller.parent);
        if (caller.parent <= 1 || stat(proc.c_str(), &parentStat) != 0 || parentStat.st_uid != caller.uid) {
            fail("refused: the calling process is not the caller's own");
        }
        if (!parentHoldsUnlock(caller.parent, caller.uid)) {
            fail("refused: the calling process does not hold Orvane's unlock (an administrator's password is needed)");
        }
        // Re-parented while polkit was asked: the answer was about someone else.
        if (getppid() != caller.parent) {
            fail("refused: the calling process went away");
        }
    }
    return caller;
}

static bool readAll(int fd, size_t maxSize, std::string &contents)
{
    contents.clear();
    char buffer[65536];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (n == 0) {
            return true;
        }
        contents.append(buffer, static_cast<size_t>(n));
        if (contents.size() > maxSize) {
            errno = EFBIG;
            return false;
        }
    }
}

std::string readInput(size_t maxSize)
{
    std::string contents;
    if (!readAll(STDIN_FILENO, maxSize, contents)) {
        fail(errno == EFBIG ? "refused: the input is too large" : "cannot read the input", errno == EFBIG ? 0 : errno);
    }
    return contents;
}

std::map<std::string, std::string> readParts(const std::set<std::string> &names, size_t maxSize)
{
    const std::string input = readInput(names.size() * (maxSize + 64));
    std::map<std::string, std::string> parts;
    size_t at = 0;
    while (at < input.size()) {
        const size_t end = input.find('\n', at);
        if (end == std::string::npos || end - at > 64) {
            fail("refused: the input is not in parts");
        }
        const std::string header = input.substr(at, end - at);
        const size_t space = header.find(' ');
        if (space == std::string::npos) {
            fail("refused: the input is not in parts");
        }
        const std::string name = header.substr(0, space);
        const std::string length = header.substr(space + 1);
        if (!names.count(name) || parts.count(name)) {
            fail("refused: the input has an unknown or repeated part");
        }
        if (length.empty() || length.size() > 10 || length.find_first_not_of("0123456789") != std::string::npos || (length.size() > 1 && length[0] == '0')) {
            fail("refused: the input is not in parts");
        }
        const unsigned long long size = std::strtoull(length.c_str(), nullptr, 10);
        if (size > maxSize) {
            fail("refused: a part of the input is too large");
        }
        at = end + 1;
        if (input.size() - at < size) {
            fail("refused: the input ends inside a part");
        }
        parts[name] = input.substr(at, static_cast<size_t>(size));
        at += static_cast<size_t>(size);
    }
    return parts;
}

static bool onlyRootMayChange(const struct stat &st, bool last)
{
    if (st.st_uid != 0) {
        return false;
    }
    if ((st.st_mode & S_IWGRP) && st.st_gid != 0 && (last || !(st.st_mode & S_ISVTX))) {
        return false;
    }
    if ((st.st_mode & S_IWOTH) && (last || !(st.st_mode & S_ISVTX))) {
        return false;
    }
    return true;
}

int openRootFolder(const char *path, bool create)
{
    if (path[0] != '/') {
        fail("not an absolute path");
    }
    int fd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        fail("/", errno);
    }
    const std::string whole = path;
    size_t begin = 1;
    while (begin < whole.size()) {
        size_t end = whole.find('/', begin);
        if (end == std::string::npos) {
            end = whole.size();
        }
        const std::string component = whole.substr(begin, end - begin);
        const bool last = end >= whole.size();
        begin = end + 1;
        if (component.empty()) {
            continue;
        }
        int next = openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && create) {
            if (mkdirat(fd, component.c_str(), 0700) != 0 && errno != EEXIST) {
                fail(path, errno);
            }
            next = openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            struct stat made;
            if (next >= 0 && fstat(next, &made) == 0 && made.st_uid == 0 && (made.st_mode & 07777) == 0700) {
                // Ours, just made: give it its owner and mode on the descriptor.
                if (fchown(next, 0, 0) != 0 || fchmod(next, 0775) != 0) {
                    fail(path, errno);
                }
                done("created %s", whole.substr(0, end).c_str());
            }
        }
        if (next < 0) {
            fail(path, errno);
        }
        struct stat st;
        if (fstat(next, &st) != 0) {
            fail(path, errno);
        }
        if (!onlyRootMayChange(st, last)) {
            const std::string why = "refused: " + whole.substr(0, end) + " may be changed by someone other than root";
            fail(why.c_str());
        }
        close(fd);
        fd = next;
    }
    return fd;
}

bool readFileAt(int dirfd, const char *name, size_t maxSize, std::string &contents)
{
    const int fd = openat(dirfd, name, O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) {
            return false;
        }
        fail(name, errno);
    }
    struct stat st;
    if (fstat(fd, &st) != 0) {
        fail(name, errno);
    }
    if (!S_ISREG(st.st_mode)) {
        fail("refused: an installed file is not a regular file");
    }
    if (!readAll(fd, maxSize, contents)) {
        fail(name, errno);
    }
    close(fd);
    return true;
}

static void writeAll(int fd, const std::string &contents, const char *name)
{
    size_t done = 0;
    while (done < contents.size()) {
        const ssize_t n = write(fd, contents.data() + done, contents.size() - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(name, errno);
        }
        done += static_cast<size_t>(n);
    }
}

void replaceFileAt(int dirfd, const char *name, const std::string &contents, mode_t mode)
{
    const std::string temporary = std::string(".") + name + ".orvane-new";
    if (unlinkat(dirfd, temporary.c_str(), 0) != 0 && errno != ENOENT) {
        fail(temporary.c_str(), errno);
    }
    const int fd = openat(dirfd, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        fail(temporary.c_str(), errno);
    }
    if (fchown(fd, 0, 0) != 0) {
        fail(temporary.c_str(), errno);
    }
    if (fchmod(fd, mode) != 0) {
        fail(temporary.c_str(), errno);
    }
    writeAll(fd, contents, temporary.c_str());
    if (fsync(fd) != 0) {
        fail(temporary.c_str(), errno);
    }
    if (close(fd) != 0) {
        fail(temporary.c_str(), errno);
    }
    if (renameat(dirfd, temporary.c_str(), dirfd, name) != 0) {
        const int error = errno;
        unlinkat(dirfd, temporary.c_str(), 0);
        fail(name, error);
    }
    if (fsync(dirfd) != 0) {
        fail(name, errno);
    }
}

void removeFileAt(int dirfd, const char *name)
{
    if (unlinkat(dirfd, name, 0) != 0 && errno != ENOENT) {
        fail(name, errno);
    }
    if (fsync(dirfd) != 0) {
        fail(name, errno);
    }
}
}
