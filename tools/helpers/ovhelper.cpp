#include "ovhelper.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "ovfixedpaths.h"

namespace ovhelper
{
static const char *s_toolName = "orvane-helper";

void fail(const char *message, int errnum)
{
    if (errnum) {
        std::fprintf(stderr, "%s: %s: %s\n", s_toolName, message, std::strerror(errnum));
    } else {
        std::fprintf(stderr, "%s: %s\n", s_toolName, message);
    }
    std::exit(1);
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

bool isAdministrator(uid_t uid)
{
    if (uid == 0) {
        return true;
    }
    const passwd *pw = getpwuid(uid);
    if (!pw) {
        return false;
    }
    const std::string name = pw->pw_name;
    const gid_t primary = pw->pw_gid;

    int count = 32;
    std::vector<gid_t> groups;
    for (;;) {
        groups.resize(static_cast<size_t>(count));
        const int wanted = count;
        if (getgrouplist(name.c_str(), primary, groups.data(), &count) != -1) {
            groups.resize(static_cast<size_t>(count));
            break;
        }
        if (count <= wanted) {
            count = wanted * 2;
        }
        if (count > 65536) {
            return false;
        }
    }
    for (const gid_t gid : groups) {
        const group *gr = getgrgid(gid);
        if (!gr) {
            continue;
        }
        if (!std::strcmp(gr->gr_name, "admin") || !std::strcmp(gr->gr_name, "sudo") || !std::strcmp(gr->gr_name, "wheel")) {
            return true;
        }
    }
    return false;
}

Caller start(int argc, char **argv, const char *toolName)
{
    s_toolName = toolName;
    if (argc != 2 || !argv[1] || std::strcmp(argv[1], OVFixedPaths::ToolArgument) != 0) {
        fail("expects exactly one argument, --Orvane");
    }
    cleanProcess();
    if (geteuid() != 0) {
        fail("must be installed set-user-ID root");
    }
    const Caller caller{getuid(), getgid()};
    if (!isAdministrator(caller.uid)) {
        fail("refused: the calling user is not an administrator");
    }
    return caller;
}

// Runs the following file-system calls with the caller's rights.
class AsCaller
{
public:
    explicit AsCaller(const Caller &caller)
    {
        if (setegid(caller.gid) != 0 || seteuid(caller.uid) != 0) {
            fail("cannot take the caller's rights", errno);
        }
    }
    ~AsCaller()
    {
        if (seteuid(0) != 0 || setegid(0) != 0) {
            fail("cannot return to root", errno);
        }
    }
    AsCaller(const AsCaller &) = delete;
    AsCaller &operator=(const AsCaller &) = delete;
};

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

bool readCallerFile(const Caller &caller, const char *path, size_t maxSize, std::string &contents)
{
    int fd;
    {
        AsCaller asCaller(caller);
        fd = open(path, O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    }
    if (fd < 0) {
        if (errno == ENOENT) {
            return false;
        }
        fail(path, errno);
    }
    struct stat st;
    if (fstat(fd, &st) != 0) {
        fail(path, errno);
    }
    if (!S_ISREG(st.st_mode)) {
        fail("refused: the input is not a regular file");
    }
    if (st.st_uid != caller.uid) {
        fail("refused: the input is not owned by the calling user");
    }
    if (st.st_nlink != 1) {
        fail("refused: the input has more than one link");
    }
    if (st.st_mode & (S_IWGRP | S_IWOTH)) {
        fail("refused: the input is writable by others");
    }
    if (static_cast<unsigned long long>(st.st_size) > maxSize) {
        fail("refused: the input is too large");
    }
    if (!readAll(fd, maxSize, contents)) {
        fail(path, errno);
    }
    close(fd);
    return true;
}

void removeCallerFile(const Caller &caller, const char *path)
{
    AsCaller asCaller(caller);
    if (unlink(path) != 0 && errno != ENOENT) {
        fail(path, errno);
    }
}

int openDirectory(const char *path)
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
        begin = end + 1;
        if (component.empty()) {
            continue;
        }
        const int next = openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0) {
            fail(path, errno);
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

bool looksLikeScript(const std::string &contents)
{
    return contents.compare(0, 2, "#!") == 0;
}
}
