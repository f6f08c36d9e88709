// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "rsync.h"

#include "fsops.h"

#include <ovfixedpaths.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace psync
{

int compareVersions(const std::string &a, const std::string &b)
{
    size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        unsigned long x = 0, y = 0;
        while (i < a.size() && a[i] >= '0' && a[i] <= '9')
            x = x * 10 + static_cast<unsigned long>(a[i++] - '0');
        while (j < b.size() && b[j] >= '0' && b[j] <= '9')
            y = y * 10 + static_cast<unsigned long>(b[j++] - '0');
        if (x != y)
            return x < y ? -1 : 1;
        // Past the dot; anything else ends the number ("3.5.0pre1").
        if (i < a.size() && a[i] != '.')
            i = a.size();
        if (j < b.size() && b[j] != '.')
            j = b.size();
        if (i < a.size())
            ++i;
        if (j < b.size())
            ++j;
    }
    return 0;
}

// rsync's environment without the variables that change how it reads its
// arguments.
static std::vector<char *> cleanEnvironment()
{
    std::vector<char *> out;
    for (char **e = environ; *e; ++e) {
        if (std::strncmp(*e, "RSYNC_", 6) != 0)
            out.push_back(*e);
    }
    out.push_back(nullptr);
    return out;
}

static pid_t start(const std::vector<std::string> &arguments, const std::vector<int> &inherit, int *errorPipe, int *outputPipe)
{
    int err[2] = {-1, -1}, out[2] = {-1, -1};
    if (::pipe2(err, O_CLOEXEC) != 0 || (outputPipe && ::pipe2(out, O_CLOEXEC) != 0))
        return -1;
    std::vector<char *> argv{const_cast<char *>(OVFixedPaths::RsyncPath)};
    for (const std::string &a : arguments)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<char *> env = cleanEnvironment();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(err[1], 2);
        if (outputPipe)
            ::dup2(out[1], 1);
        for (int fd : inherit)
            ::fcntl(fd, F_SETFD, 0);
        ::execve(argv[0], argv.data(), env.data());
        const char message[] = "psync: rsync could not be started\n";
        (void)!::write(2, message, sizeof message - 1);
        ::_exit(127);
    }
    ::close(err[1]);
    if (outputPipe)
        ::close(out[1]);
    *errorPipe = err[0];
    if (outputPipe)
        *outputPipe = out[0];
    return pid;
}

std::vector<RsyncResult> runRsync(const std::vector<RsyncCommand> &commands)
{
    std::vector<RsyncResult> results(commands.size());
    std::vector<pid_t> pids;
    std::vector<pollfd> pipes;
    std::vector<std::string> pending(commands.size());
    for (size_t i = 0; i < commands.size(); ++i) {
        int err = -1;
        const pid_t pid = start(commands[i].arguments, commands[i].inherit, &err, nullptr);
        pids.push_back(pid);
        pipes.push_back({pid < 0 ? -1 : err, POLLIN, 0});
        if (pid < 0)
            results[i].status = -1;
    }
    auto passOn = [&](size_t i, bool all) {
        std::string &text = pending[i];
        size_t end;
        while ((end = text.find('\n')) != std::string::npos || (all && !text.empty())) {
            const std::string line = text.substr(0, end == std::string::npos ? text.size() : end + 1);
            text.erase(0, line.size());
            if (line.find("No space left on device") != std::string::npos || line.find("Disk quota exceeded") != std::string::npos)
                results[i].full = true;
            (void)!::write(2, line.data(), line.size());
        }
    };
    for (;;) {
        bool open = false;
        for (const pollfd &p : pipes)
            open = open || p.fd >= 0;
        if (!open)
            break;
        if (::poll(pipes.data(), pipes.size(), -1) < 0 && errno != EINTR)
            break;
        for (size_t i = 0; i < pipes.size(); ++i) {
            if (pipes[i].fd < 0 || !(pipes[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            char buffer[8192];
            const ssize_t got = ::read(pipes[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                pending[i].append(buffer, static_cast<size_t>(got));
                passOn(i, false);
            } else if (got == 0 || errno != EINTR) {
                passOn(i, true);
                ::close(pipes[i].fd);
                pipes[i].fd = -1;
            }
        }
    }
    for (size_t i = 0; i < pids.size(); ++i) {
        if (pids[i] < 0)
            continue;
        int status = 0;
        while (::waitpid(pids[i], &status, 0) < 0 && errno == EINTR) { }
        results[i].status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return results;
}

std::string rsyncFailure(int status)
{
    switch (status) {
    case -1:
    case 127:
        return std::string("the copy tool ") + OVFixedPaths::RsyncPath + " could not be started";
    case 3:
        return "a folder of the source or the destination could not be opened";
    case 11:
        return "reading or writing a file failed (the disk reported an error)";
    case 10:
    case 12:
    case 13:
    case 14:
        return "the copy stopped half-way (its processes lost each other; the disk or the connection may have gone)";
    case 20:
        return "the copy was stopped";
    case 22:
        return "the computer ran out of memory";
    case 30:
    case 35:
        return "the destination stopped answering";
    default:
        if (status > 128)
            return "the copy tool was stopped (rsync ended by signal " + std::to_string(status - 128) + ")";
        return "the copy tool failed (rsync status " + std::to_string(status) + ")";
    }
}

// The version found, remembered by the program file's identity: starting
// rsync only to ask costs a run with nothing to copy some 3 %.
static std::string identity()
{
    struct stat st {
    };
    if (::stat(OVFixedPaths::RsyncPath, &st) != 0)
        return {};
    return std::to_string(st.st_dev) + " " + std::to_string(st.st_ino) + " " + std::to_string(st.st_size) + " " + std::to_string(st.st_mtim.tv_sec) + "."
        + std::to_string(st.st_mtim.tv_nsec) + " " + std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec);
}

bool rsyncIsRecentEnough(std::string &why)
{
    const std::string self = identity();
    if (::geteuid() == 0 && !self.empty()) {
        Fd folder(::open(OVFixedPaths::PsyncStateFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat st {
        };
        std::string known;
        if (folder && ::fstat(folder.get(), &st) == 0 && st.st_uid == 0 && (st.st_mode & 022) == 0 && readFile(folder.get(), "rsync-version", known)
            && known == self + " ok")
            return true;
    }
    int err = -1, out = -1;
    const pid_t pid = start({"--version"}, {}, &err, &out);
    if (pid < 0) {
        why = std::string("rsync could not be started (") + OVFixedPaths::RsyncPath + ")";
        return false;
    }
    ::close(err);
    std::string text;
    char buffer[4096];
    ssize_t got;
    while ((got = ::read(out, buffer, sizeof buffer)) > 0 || (got < 0 && errno == EINTR))
        text.append(buffer, static_cast<size_t>(got > 0 ? got : 0));
    ::close(out);
    int status = 0;
    ::waitpid(pid, &status, 0);
    const size_t at = text.find("version ");
    std::string version;
    if (at != std::string::npos) {
        for (size_t i = at + 8; i < text.size() && (std::isdigit(static_cast<unsigned char>(text[i])) || text[i] == '.'); ++i)
            version += text[i];
    }
    if (version.empty()) {
        why = std::string("the copy tool ") + OVFixedPaths::RsyncPath + " is missing or not rsync; install rsync " + OVFixedPaths::RsyncVersionNeeded
            + " or newer";
        return false;
    }
    if (compareVersions(version, OVFixedPaths::RsyncVersionNeeded) < 0) {
        why = "rsync " + version + " is too old: backups need rsync " + OVFixedPaths::RsyncVersionNeeded
            + " or newer (on Debian 12, from bookworm-security); nothing was copied";
        return false;
    }
    if (::geteuid() == 0 && !self.empty()) {
        Fd folder(::open(OVFixedPaths::PsyncStateFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat st {
        };
        std::string ignored;
        if (folder && ::fstat(folder.get(), &st) == 0 && st.st_uid == 0 && (st.st_mode & 022) == 0)
            replaceFile(folder.get(), "rsync-version", self + " ok", 0600, ignored);
    }
    return true;
}

}
