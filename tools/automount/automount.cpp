// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// automount: mounts the remote volume at "/Volumes/<volume>".
//
//   automount --user USER smb://SERVER ACCOUNT VOLUME   as root, from a backup script
//   automount smb://SERVER ACCOUNT VOLUME               as the user, from Connect
//   automount --unmount VOLUME                          as root: unmounts what this
//                                                        caller's mount call mounted
//   automount --lookup smb://SERVER ACCOUNT VOLUME      internal: run as the user, prints
//                                                        the stored password on stdout
//
// The password comes from the user's Secret Service, looked up as the user on
// the user's own session bus and never unlocked (a locked keyring is an error,
// not a prompt at 3 a.m.). It travels only through pipes and an unlinked 0600
// file: never on a command line, in an environment or in a file others read.
// With a kernel that has CIFS the volume is mounted with mount.cifs, else with
// rclone's SMB client through FUSE. Exit status 0 when the volume is mounted
// (or was already), 1 otherwise, with one line on standard error.

#include <libsecret/secret.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{
const char *const VolumesDir = "/Volumes";
// Root's records of the mounts it made, one file per volume: the mount's id
// and the process ids of the scripts that use it.
const char *const RecordDir = "/run/orvane-automount";
const char *const Rclone = "/usr/bin/rclone";
const char *const MountCifs = "/sbin/mount.cifs";
const char *const Runuser = "/usr/sbin/runuser";
const int LookupSeconds = 20;
const int MountSeconds = 30;

// Lookup exit codes.
enum { LookupFound = 0, LookupNone = 3, LookupLocked = 4, LookupNoService = 5 };

// A mount point made by this run, removed again when the mount fails.
std::string madeMountPoint;

[[noreturn]] void fail(const std::string &message)
{
    if (!madeMountPoint.empty()) {
        rmdir(madeMountPoint.c_str());
    }
    std::fprintf(stderr, "automount: %s\n", message.c_str());
    std::exit(1);
}

struct Server {
    std::string address; // as the user typed it: "smb://host"
    std::string scheme;
    std::string host; // what the keyring item calls the server: all after "smb://"
    std::string mountHost; // the host alone, without a path
    std::string port;
    std::string account;
    std::string volume;
};

bool hasControl(const std::string &text)
{
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7f) {
            return true;
        }
    }
    return false;
}

Server parseServer(const std::string &address, const std::string &account, const std::string &volume)
{
    Server s;
    s.address = address;
    s.account = account;
    s.volume = volume;
    const auto scheme = address.find("://");
    if (scheme == std::string::npos) {
        fail("the server address \"" + address + "\" has no scheme: write it as smb://server");
    }
    s.scheme = address.substr(0, scheme);
    if (s.scheme == "afp") {
        fail(address + ": this system has no AFP client; give the server's SMB address (smb://...) instead");
    }
    if (s.scheme != "smb" || address.size() <= 6) {
        fail("the server address \"" + address + "\" is not an smb:// address");
    }
    s.host = address.substr(6);
    s.mountHost = s.host.substr(0, s.host.find('/'));
    const auto colon = s.mountHost.rfind(':');
    if (colon != std::string::npos && s.mountHost.find(']') == std::string::npos) {
        s.port = s.mountHost.substr(colon + 1);
        s.mountHost.resize(colon);
        if (s.port.empty() || s.port.find_first_not_of("0123456789") != std::string::npos) {
            fail("the server address \"" + address + "\" has a bad port");
        }
    }
    if (s.mountHost.empty() || hasControl(s.host) || s.mountHost.find_first_of(" ,=\\") != std::string::npos) {
        fail("the server address \"" + address + "\" names no usable host");
    }
    if (account.empty() || hasControl(account) || account.find(',') != std::string::npos) {
        fail("the user name \"" + account + "\" cannot be used");
    }
    if (volume.empty() || volume == "." || volume == ".." || volume.find('/') != std::string::npos || hasControl(volume)
        || volume.find(',') != std::string::npos) {
        fail("the volume name \"" + volume + "\" cannot be used (one folder name, no \"/\")");
    }
    return s;
}

std::string who(const Server &s)
{
    return s.account + "@" + s.mountHost;
}

// --- the lookup, run as the user -------------------------------------------

int lookup(const Server &s)
{
    GError *error = nullptr;
    // No SECRET_SERVICE_OPEN_SESSION prompt, no unlock: the search returns
    // locked items without their secrets, at once.
    SecretService *service = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &error);
    if (!service) {
        std::fprintf(stderr, "%s\n", error ? error->message : "no Secret Service");
        g_clear_error(&error);
        return LookupNoService;
    }
    GHashTable *attributes = g_hash_table_new(g_str_hash, g_str_equal);
    g_hash_table_insert(attributes, const_cast<char *>("user"), const_cast<char *>(s.account.c_str()));
    g_hash_table_insert(attributes, const_cast<char *>("server"), const_cast<char *>(s.host.c_str()));
    g_hash_table_insert(attributes, const_cast<char *>("object"), const_cast<char *>(s.volume.c_str()));
    GList *items = secret_service_search_sync(service,
                                              SECRET_SCHEMA_COMPAT_NETWORK,
                                              attributes,
                                              static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS),
                                              nullptr,
                                              &error);
    g_hash_table_unref(attributes);
    int result = LookupNone;
    if (error) {
        std::fprintf(stderr, "%s\n", error->message);
        g_clear_error(&error);
        result = LookupNoService;
    }
    for (GList *l = items; l && result != LookupFound; l = l->next) {
        auto *item = SECRET_ITEM(l->data);
        SecretValue *value = secret_item_get_secret(item);
        if (!value) {
            if (secret_item_get_locked(item)) {
                result = LookupLocked;
            }
            continue;
        }
        gsize length = 0;
        const gchar *secret = secret_value_get(value, &length);
        size_t written = 0;
        while (written < length) {
            const ssize_t n = write(STDOUT_FILENO, secret + written, length - written);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                break;
            }
            written += static_cast<size_t>(n);
        }
        secret_value_unref(value);
        result = written == length ? LookupFound : LookupNoService;
    }
    g_list_free_full(items, g_object_unref);
    g_object_unref(service);
    return result;
}

// --- small process helpers -------------------------------------------------

void closeFrom(int first, const std::set<int> &keep = {})
{
    for (int fd = first; fd < 1024; ++fd) {
        if (!keep.count(fd)) {
            close(fd);
        }
    }
}

// Puts fd at target for the program about to run (dup2 to itself would keep
// the close-on-exec flag).
void passOn(int fd, int target)
{
    if (fd == target) {
        fcntl(fd, F_SETFD, 0);
    } else {
        dup2(fd, target);
    }
}

void writeAll(int fd, const std::string &data)
{
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            fail(std::string("cannot write: ") + std::strerror(errno));
        }
        done += static_cast<size_t>(n);
    }
}

struct Result {
    int status = -1; // exit status, or -1 when killed or timed out
    bool timedOut = false;
    std::string out;
    std::string err;
};

// Runs argv with the environment env; input goes to its stdin, extra is
// dup'ed to descriptor 3 when not -1. Waits at most seconds.
Result run(const std::vector<std::string> &argv, const std::vector<std::string> &env, const std::string &input, int extra, int seconds)
{
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) {
        fail(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    const pid_t pid = fork();
    if (pid < 0) {
        fail(std::string("cannot start ") + argv[0] + ": " + std::strerror(errno));
    }
    if (pid == 0) {
        setsid();
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        if (extra >= 0) {
            passOn(extra, 3);
        }
        closeFrom(extra >= 0 ? 4 : 3);
        std::vector<char *> a, e;
        for (const auto &s : argv) {
            a.push_back(const_cast<char *>(s.c_str()));
        }
        a.push_back(nullptr);
        for (const auto &s : env) {
            e.push_back(const_cast<char *>(s.c_str()));
        }
        e.push_back(nullptr);
        execve(a[0], a.data(), e.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    signal(SIGPIPE, SIG_IGN);
    if (!input.empty()) {
        (void)!write(in[1], input.data(), input.size()); // a pipe's buffer holds a password
    }
    close(in[1]);
    Result r;
    struct pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    const time_t end = time(nullptr) + seconds;
    while (open > 0) {
        const int left = static_cast<int>(end - time(nullptr));
        if (left <= 0) {
            r.timedOut = true;
            kill(-pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, left * 1000) < 0 && errno != EINTR) {
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && fds[i].revents) {
                char buffer[4096];
                const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
                if (n > 0) {
                    (i ? r.err : r.out).append(buffer, static_cast<size_t>(n));
                } else if (n == 0 || errno != EINTR) {
                    close(fds[i].fd);
                    fds[i].fd = -1;
                    --open;
                }
            }
        }
    }
    for (auto &f : fds) {
        if (f.fd >= 0) {
            close(f.fd);
        }
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
    if (!r.timedOut && WIFEXITED(status)) {
        r.status = WEXITSTATUS(status);
    }
    return r;
}

std::string firstLine(const std::string &text)
{
    // The last non-empty line says most; strip rclone's time stamps.
    std::istringstream in(text);
    std::string line, last;
    while (std::getline(in, line)) {
        if (!line.empty()) {
            last = line;
        }
    }
    const auto mark = last.find(": ");
    if (last.rfind("20", 0) == 0 && mark != std::string::npos) {
        last = last.substr(mark + 2);
    }
    return last;
}

// --- the user's session ------------------------------------------------------

// The address of the user's session bus: the standard socket, else what one
// of the user's processes was given. Empty when the user has no session.
std::string sessionBus(const passwd &user)
{
    const std::string socket = "/run/user/" + std::to_string(user.pw_uid) + "/bus";
    struct stat st;
    if (lstat(socket.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) && st.st_uid == user.pw_uid) {
        return "unix:path=" + socket;
    }
    // /proc/PID/environ of the user's processes.
    if (DIR *proc = opendir("/proc")) {
        std::string found;
        while (dirent *entry = readdir(proc)) {
            if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) {
                continue;
            }
            const std::string dir = std::string("/proc/") + entry->d_name;
            if (stat(dir.c_str(), &st) != 0 || st.st_uid != user.pw_uid) {
                continue;
            }
            std::ifstream environ(dir + "/environ", std::ios::binary);
            std::string variable;
            while (std::getline(environ, variable, '\0')) {
                if (variable.rfind("DBUS_SESSION_BUS_ADDRESS=", 0) == 0) {
                    found = variable.substr(25);
                    break;
                }
            }
            if (!found.empty()) {
                break;
            }
        }
        closedir(proc);
        return found;
    }
    return {};
}

std::string lockedLine(const passwd &user, const Server &s)
{
    return std::string("the keyring of ") + user.pw_name + " is locked, so the password for " + who(s) + " cannot be read";
}

// The password from the user's Secret Service, read as the user.
std::string passwordOf(const passwd &user, const Server &s, const std::string &self)
{
    Result r;
    if (getuid() == 0) {
        const std::string bus = sessionBus(user);
        if (bus.empty()) {
            fail(lockedLine(user, s) + " (" + user.pw_name + " is not logged in)");
        }
        const std::string runtime = "/run/user/" + std::to_string(user.pw_uid);
        r = run({Runuser, "-u", user.pw_name, "--", self, "--lookup", s.address, s.account, s.volume},
                {"DBUS_SESSION_BUS_ADDRESS=" + bus, "XDG_RUNTIME_DIR=" + runtime, std::string("HOME=") + user.pw_dir, "PATH=/usr/bin:/bin", "LC_ALL=C"},
                {},
                -1,
                LookupSeconds);
    } else {
        std::vector<std::string> env;
        for (const char *name : {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR", "HOME"}) {
            if (const char *value = getenv(name)) {
                env.push_back(std::string(name) + "=" + value);
            }
        }
        env.push_back("PATH=/usr/bin:/bin");
        r = run({self, "--lookup", s.address, s.account, s.volume}, env, {}, -1, LookupSeconds);
    }
    if (r.timedOut) {
        fail(std::string("the Secret Service of ") + user.pw_name + " did not answer, so the password for " + who(s) + " cannot be read");
    }
    switch (r.status) {
    case LookupFound:
        return r.out;
    case LookupLocked:
        fail(lockedLine(user, s));
    case LookupNone:
        fail(std::string("the keyring of ") + user.pw_name + " holds no password for " + who(s) + " (volume " + s.volume
             + "): store it with Connect in Orvane's options");
    default:
        fail(lockedLine(user, s) + " (no Secret Service answers in " + user.pw_name + "'s session: " + firstLine(r.err) + ")");
    }
}

// --- mounts ----------------------------------------------------------------

// The mount id of what is mounted at path, or -1.
long mountIdAt(const std::string &path)
{
    std::ifstream info("/proc/self/mountinfo");
    std::string line;
    long id = -1;
    while (std::getline(info, line)) {
        std::istringstream fields(line);
        long mountId;
        std::string parent, devices, root, point;
        fields >> mountId >> parent >> devices >> root >> point;
        // Octal escapes for blanks and the like.
        std::string decoded;
        for (size_t i = 0; i < point.size(); ++i) {
            if (point[i] == '\\' && i + 3 < point.size()) {
                decoded += static_cast<char>(std::stoi(point.substr(i + 1, 3), nullptr, 8));
                i += 3;
            } else {
                decoded += point[i];
            }
        }
        if (decoded == path) {
            id = mountId; // the last one is on top
        }
    }
    return id;
}

bool kernelHasCifs()
{
    if (getuid() == 0) {
        run({"/sbin/modprobe", "-q", "cifs"}, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}, -1, 20);
    }
    std::ifstream filesystems("/proc/filesystems");
    std::string line;
    while (std::getline(filesystems, line)) {
        if (line.size() >= 4 && line.compare(line.size() - 4, 4, "cifs") == 0
            && (line.size() == 4 || std::isspace(static_cast<unsigned char>(line[line.size() - 5])))) {
            return true;
        }
    }
    return false;
}

// An unlinked file only its owner can read, holding data; its descriptor.
int privateFile(const std::string &data)
{
    const char *runtime = getuid() == 0 ? "/run" : getenv("XDG_RUNTIME_DIR");
    int fd = open(runtime && *runtime ? runtime : "/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {
        fail(std::string("cannot make a private file: ") + std::strerror(errno));
    }
    fchmod(fd, 0600);
    writeAll(fd, data);
    lseek(fd, 0, SEEK_SET);
    return fd;
}

std::string explainRclone(const Server &s, const std::string &err)
{
    if (err.find("LOGON_FAILURE") != std::string::npos || err.find("logon failure") != std::string::npos || err.find("logon is invalid") != std::string::npos) {
        return "the server " + s.mountHost + " refused the password of " + s.account + " (the password in the keyring is wrong)";
    }
    if (err.find("BAD_NETWORK_NAME") != std::string::npos || err.find("Network Name Not Found") != std::string::npos
        || err.find("directory not found") != std::string::npos) {
        return "the server " + s.mountHost + " has no volume " + s.volume;
    }
    if (err.find("connection refused") != std::string::npos || err.find("no such host") != std::string::npos || err.find("i/o timeout") != std::string::npos
        || err.find("network is unreachable") != std::string::npos) {
        return "the server " + s.mountHost + " cannot be reached (" + firstLine(err) + ")";
    }
    return "the server " + s.mountHost + " did not let " + s.account + " in: " + firstLine(err);
}

void mountWithRclone(const Server &s, const std::string &password, const std::string &point, const passwd &user)
{
    // The config holds the password obscured, as rclone reads it; rclone
    // obscures what it reads on its standard input.
    if (password.find('\n') != std::string::npos) {
        fail("the password for " + who(s) + " holds a line break, which rclone cannot take");
    }
    const std::vector<std::string> env = {"PATH=/usr/bin:/bin", std::string("HOME=") + (getuid() == 0 ? "/root" : user.pw_dir), "LC_ALL=C"};
    Result obscured = run({Rclone, "obscure", "-"}, env, password + "\n", -1, 20);
    if (obscured.status != 0 || obscured.out.empty()) {
        fail("rclone could not take the password: " + firstLine(obscured.err));
    }
    while (!obscured.out.empty() && (obscured.out.back() == '\n' || obscured.out.back() == '\r')) {
        obscured.out.pop_back();
    }
    std::string config = "[orvane]\ntype = smb\nhost = " + s.mountHost + "\nuser = " + s.account + "\npass = " + obscured.out + "\n";
    if (!s.port.empty()) {
        config += "port = " + s.port + "\n";
    }
    const int configFd = privateFile(config);
    std::fill(config.begin(), config.end(), '\0');
    const std::string remote = "orvane:" + s.volume;
    const std::vector<std::string> common = {"--config", "/dev/fd/3", "--contimeout", "10s", "--timeout", "30s", "--low-level-retries", "1", "--retries", "1"};

    // The mount itself "succeeds" with a wrong password: log on first.
    std::vector<std::string> list = {Rclone, "lsf", remote, "--max-depth", "1"};
    list.insert(list.end(), common.begin(), common.end());
    const Result logon = run(list, env, {}, configFd, MountSeconds);
    if (logon.timedOut) {
        fail("the server " + s.mountHost + " did not answer in " + std::to_string(MountSeconds) + " seconds");
    }
    if (logon.status != 0) {
        fail(explainRclone(s, logon.err));
    }

    // Writes go straight to the server: a cache would let the mount report
    // a copy done before it reached the volume.
    std::vector<std::string> mount = {Rclone,
                                      "mount",
                                      remote,
                                      point,
                                      "--vfs-cache-mode",
                                      "off",
                                      "--allow-other",
                                      "--default-permissions",
                                      "--uid",
                                      std::to_string(user.pw_uid),
                                      "--gid",
                                      std::to_string(user.pw_gid),
                                      "--umask",
                                      "077",
                                      "--dir-cache-time",
                                      "5s",
                                      "--log-level",
                                      "ERROR"};
    mount.insert(mount.end(), common.begin(), common.end());
    int err[2];
    if (pipe2(err, O_CLOEXEC)) {
        fail(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    const pid_t pid = fork();
    if (pid < 0) {
        fail(std::string("cannot start rclone: ") + std::strerror(errno));
    }
    if (pid == 0) {
        setsid();
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(err[1], 2);
        passOn(configFd, 3);
        closeFrom(4);
        std::vector<char *> a, e;
        for (const auto &x : mount) {
            a.push_back(const_cast<char *>(x.c_str()));
        }
        a.push_back(nullptr);
        for (const auto &x : env) {
            e.push_back(const_cast<char *>(x.c_str()));
        }
        e.push_back(nullptr);
        execve(a[0], a.data(), e.data());
        _exit(127);
    }
    close(err[1]);
    close(configFd);
    fcntl(err[0], F_SETFL, O_NONBLOCK);
    std::string errors;
    for (int tenth = 0; tenth < MountSeconds * 10; ++tenth) {
        char buffer[4096];
        ssize_t n;
        while ((n = read(err[0], buffer, sizeof buffer)) > 0) {
            errors.append(buffer, static_cast<size_t>(n));
        }
        if (mountIdAt(point) >= 0) {
            close(err[0]);
            return;
        }
        int status;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            while ((n = read(err[0], buffer, sizeof buffer)) > 0) {
                errors.append(buffer, static_cast<size_t>(n));
            }
            fail("rclone could not mount " + s.volume + " at " + point + ": " + firstLine(errors));
        }
        usleep(100000);
    }
    kill(-pid, SIGTERM);
    fail("rclone did not mount " + s.volume + " at " + point + " within " + std::to_string(MountSeconds) + " seconds");
}

void mountWithCifs(const Server &s, const std::string &password, const std::string &point, const passwd &user)
{
    int fds[2];
    if (pipe2(fds, 0)) {
        fail(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    writeAll(fds[1], password);
    close(fds[1]);
    std::string options =
        "username=" + s.account + ",uid=" + std::to_string(user.pw_uid) + ",gid=" + std::to_string(user.pw_gid) + ",file_mode=0600,dir_mode=0700,nounix,nobrl";
    if (!s.port.empty()) {
        options += ",port=" + s.port;
    }
    // mount.cifs reads the password from the descriptor PASSWD_FD names.
    const Result r = run({MountCifs, "//" + s.mountHost + "/" + s.volume, point, "-o", options},
                         {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "PASSWD_FD=3"},
                         {},
                         fds[0],
                         MountSeconds);
    close(fds[0]);
    if (r.status != 0) {
        fail("mount.cifs could not mount " + s.volume + " from " + s.mountHost + ": " + firstLine(r.err + r.out));
    }
}

// --- root's records ------------------------------------------------------------

std::string recordPath(const std::string &volume)
{
    return std::string(RecordDir) + "/" + volume;
}

struct Record {
    long mountId = -1;
    bool createdPoint = false;
    std::set<long> users;
};

bool readRecord(const std::string &volume, Record &record)
{
    const int fd = open(recordPath(volume).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat st;
    std::string text;
    char buffer[4096];
    ssize_t n;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == 0) {
        while ((n = read(fd, buffer, sizeof buffer)) > 0) {
            text.append(buffer, static_cast<size_t>(n));
        }
    }
    close(fd);
    std::istringstream in(text);
    int created = 0;
    if (!(in >> record.mountId >> created)) {
        return false;
    }
    record.createdPoint = created != 0;
    long user;
    while (in >> user) {
        if (kill(static_cast<pid_t>(user), 0) == 0 || errno == EPERM) {
            record.users.insert(user);
        }
    }
    return true;
}

void writeRecord(const std::string &volume, const Record &record)
{
    mkdir(RecordDir, 0700);
    struct stat st;
    if (lstat(RecordDir, &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != 0 || (st.st_mode & 077)) {
        fail(std::string("cannot keep a record in ") + RecordDir);
    }
    std::string text = std::to_string(record.mountId) + " " + (record.createdPoint ? "1" : "0") + "\n";
    for (long user : record.users) {
        text += std::to_string(user) + "\n";
    }
    const std::string path = recordPath(volume), temporary = path + ".new";
    unlink(temporary.c_str());
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        fail("cannot write " + temporary + ": " + std::strerror(errno));
    }
    writeAll(fd, text);
    close(fd);
    if (rename(temporary.c_str(), path.c_str())) {
        fail("cannot write " + path + ": " + std::strerror(errno));
    }
}

// Root's mount point: a folder root owns in root's sticky /Volumes, so no
// user can swap it for a link between the check and the mount. An empty
// folder left by a user's earlier Connect is made anew.
bool prepareRootPoint(const std::string &point)
{
    struct stat st;
    if (lstat(VolumesDir, &st) != 0) {
        if (mkdir(VolumesDir, 0755) != 0 && errno != EEXIST) {
            fail(std::string("cannot make ") + VolumesDir + ": " + std::strerror(errno));
        }
        chmod(VolumesDir, 01777);
    } else if (!S_ISDIR(st.st_mode) || st.st_uid != 0 || ((st.st_mode & 002) && !(st.st_mode & S_ISVTX))) {
        fail(std::string(VolumesDir) + " is not a folder of root's that only its owners may change");
    }
    if (lstat(point.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode)) {
            fail(point + " is in the way: it is not a folder");
        }
        if (st.st_uid == 0 && !(st.st_mode & 022)) {
            return false;
        }
        if (rmdir(point.c_str()) != 0) {
            fail(point + " is in the way: a folder of another user that is not empty");
        }
    }
    if (mkdir(point.c_str(), 0755) != 0) {
        fail("cannot make the mount point " + point + ": " + std::strerror(errno));
    }
    if (lstat(point.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != 0) {
        fail("cannot make the mount point " + point);
    }
    return true;
}

// The user's mount point: their own empty folder in the sticky /Volumes.
bool prepareUserPoint(const std::string &point)
{
    struct stat st;
    if (lstat(VolumesDir, &st) != 0 || !S_ISDIR(st.st_mode)) {
        fail(std::string(VolumesDir) + " does not exist: Orvane's installation makes it");
    }
    if (lstat(point.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode) || st.st_uid != getuid()) {
            fail(point + " is in the way: it is not a folder of yours");
        }
        return false;
    }
    if (mkdir(point.c_str(), 0700) != 0) {
        fail("cannot make the mount point " + point + ": " + std::strerror(errno));
    }
    return true;
}

int mountVolume(const Server &s, const passwd &user, const std::string &self)
{
    const std::string point = std::string(VolumesDir) + "/" + s.volume;
    const bool root = getuid() == 0;
    const long caller = static_cast<long>(getppid());
    const long existing = mountIdAt(point);
    bool madePoint = false;
    if (existing >= 0) {
        Record record;
        const bool ours = root && readRecord(s.volume, record) && record.mountId == existing;
        struct stat st;
        if (stat(point.c_str(), &st) != 0) {
            const int error = errno;
            // A mount whose client died: one of ours is made anew.
            if (!ours || error != ENOTCONN) {
                fail(point + " is mounted but cannot be read: " + std::strerror(error));
            }
            run({"/bin/umount", "-l", point}, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}, -1, 60);
            unlink(recordPath(s.volume).c_str());
            madePoint = record.createdPoint;
        } else {
            if (ours) {
                record.users.insert(caller);
                writeRecord(s.volume, record);
            }
            std::printf("%s is already mounted at %s\n", s.volume.c_str(), point.c_str());
            return 0;
        }
    }
    const std::string password = passwordOf(user, s, self);
    if (password.empty()) {
        fail("the password for " + who(s) + " in the keyring of " + user.pw_name + " is empty");
    }
    bool created = madePoint;
    if (root) {
        created = prepareRootPoint(point) || madePoint;
    } else {
        created = prepareUserPoint(point);
    }
    if (created) {
        madeMountPoint = point;
    }
    const bool cifs = root && kernelHasCifs();
    if (cifs) {
        mountWithCifs(s, password, point, user);
    } else {
        mountWithRclone(s, password, point, user);
    }
    madeMountPoint.clear();
    if (root) {
        Record record;
        record.mountId = mountIdAt(point);
        record.createdPoint = created;
        record.users.insert(caller);
        writeRecord(s.volume, record);
    }
    std::printf("mounted %s from %s at %s (%s)\n", s.volume.c_str(), s.mountHost.c_str(), point.c_str(), cifs ? "mount.cifs" : "rclone");
    return 0;
}

int unmountVolume(const std::string &volume)
{
    if (getuid() != 0) {
        fail("--unmount is for the backup scripts, run as root");
    }
    if (volume.empty() || volume == "." || volume == ".." || volume.find('/') != std::string::npos) {
        fail("the volume name \"" + volume + "\" cannot be used");
    }
    const std::string point = std::string(VolumesDir) + "/" + volume;
    Record record;
    const long current = mountIdAt(point);
    if (!readRecord(volume, record) || record.mountId != current || current < 0) {
        // Not ours: someone else mounted it, or it is gone already.
        unlink(recordPath(volume).c_str());
        std::printf("%s was not mounted by a backup; left as it is\n", volume.c_str());
        return 0;
    }
    record.users.erase(static_cast<long>(getppid()));
    if (!record.users.empty()) {
        writeRecord(volume, record);
        std::printf("%s stays mounted: another backup still uses it\n", volume.c_str());
        return 0;
    }
    sync();
    Result r = run({"/bin/umount", point}, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}, -1, 60);
    struct stat st;
    if (r.status != 0 && stat(point.c_str(), &st) != 0 && errno == ENOTCONN) {
        // The client died with the mount: nothing is left to write back.
        r = run({"/bin/umount", "-l", point}, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}, -1, 60);
    }
    if (r.status != 0) {
        fail("cannot unmount " + point + ": " + firstLine(r.err + r.out));
    }
    unlink(recordPath(volume).c_str());
    if (record.createdPoint) {
        rmdir(point.c_str());
    }
    std::printf("unmounted %s\n", point.c_str());
    return 0;
}
} // namespace

int main(int argc, char **argv)
{
    umask(077);
    std::vector<std::string> args(argv + 1, argv + argc);
    // The lookup is this same program, run as the user.
    std::string me = OV_AUTOMOUNT_PATH;
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n > 0) {
        me.assign(path, static_cast<size_t>(n));
    }
    if (args.size() == 4 && args[0] == "--lookup") {
        return lookup(parseServer(args[1], args[2], args[3]));
    }
    if (args.size() == 2 && args[0] == "--unmount") {
        return unmountVolume(args[1]);
    }
    std::string userName;
    if (args.size() == 5 && args[0] == "--user") {
        userName = args[1];
        args.erase(args.begin(), args.begin() + 2);
    }
    if (args.size() != 3) {
        std::fprintf(stderr,
                     "usage: automount [--user USER] smb://SERVER ACCOUNT VOLUME\n"
                     "       automount --unmount VOLUME\n");
        return 2;
    }
    const Server server = parseServer(args[0], args[1], args[2]);
    const passwd *found = nullptr;
    if (getuid() == 0) {
        if (userName.empty()) {
            fail("run as root it needs --user USER: the user whose keyring holds the password");
        }
        found = getpwnam(userName.c_str());
        if (!found || found->pw_uid == 0) {
            fail("no such user: " + userName);
        }
    } else {
        found = getpwuid(getuid());
        if (!found || (!userName.empty() && userName != found->pw_name)) {
            fail("only root may mount for another user");
        }
    }
    passwd user = *found;
    std::string name = user.pw_name, dir = user.pw_dir;
    user.pw_name = name.data();
    user.pw_dir = dir.data();
    return mountVolume(server, user, me);
}
