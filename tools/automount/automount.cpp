// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// automount: the remote volume at "/Volumes/<volume>", mounted by root alone.
//
//   automount --user USER smb://SERVER ACCOUNT VOLUME            mount (or use) it for a backup
//   automount --user USER --verify smb://SERVER ACCOUNT VOLUME   only check what is mounted there
//   automount --user USER --connect smb://SERVER ACCOUNT VOLUME  Connect (through connect_volume):
//                                                                 the mount stays after backups
//   automount --unmount VOLUME        unmounts what a mount call of this caller mounted, once no
//                                     other backup uses it and Connect did not ask for it
//   automount --lookup smb://SERVER ACCOUNT VOLUME   internal: run as the user, prints the
//                                                    stored password on stdout
//
// Root writes only into a volume it can prove is the configured one: a mount
// at /Volumes/<volume> (root's folder, in root's /Volumes that no one else may
// change) of an SMB file system (cifs, or rclone's through FUSE) from
// //SERVER/VOLUME, mounted by root or USER, open to no other user, with no
// other file system inside it. Anything else is refused, never used.
//
// The password comes from USER's Secret Service, looked up as USER on USER's
// own session bus and never unlocked (a locked keyring is an error, not a
// prompt at 3 a.m.). It travels only through pipes and an unlinked 0600 file:
// never on a command line, in an environment or in a file others read. With
// a kernel that has CIFS the volume is mounted with mount.cifs, else with
// rclone's SMB client through FUSE. Exit status 0 when the volume is mounted
// and proven, 1 otherwise, with one line on standard error; what root did and
// refused also goes to the system log.

#include "ovfixedpaths.h"

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
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace
{
const std::string VolumesDir = OVFixedPaths::VolumesFolder;
const std::string RecordDir = OVFixedPaths::AutomountRecordFolder;
const char *const Rclone = "/usr/bin/rclone";
const char *const MountCifs = "/sbin/mount.cifs";
const char *const Runuser = "/usr/sbin/runuser";
const char *const Umount = "/bin/umount";
const char *const SystemPath = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
const int LookupSeconds = 20;
const int MountSeconds = 30;
// Lookup exit codes.
enum { LookupFound = 0, LookupNone = 3, LookupLocked = 4, LookupNoService = 5 };

bool asRoot()
{
    return getuid() == 0;
}

// A mount point made by this run, removed again when the mount fails.
int madePointIn = -1;
std::string madePoint;

[[noreturn]] void fail(const std::string &message)
{
    if (madePointIn >= 0) {
        unlinkat(madePointIn, madePoint.c_str(), AT_REMOVEDIR);
    }
    if (asRoot()) {
        syslog(LOG_WARNING, "refused: %s", message.c_str());
    }
    std::fprintf(stderr, "automount: %s\n", message.c_str());
    std::exit(1);
}

struct Server {
    std::string address; // as the user typed it: "smb://host"
    std::string host; // what the keyring item calls the server: all after "smb://"
    std::string mountHost; // the host alone, without a path or port
    std::string port;
    std::string account;
    std::string volume;
    // The source a mount of this volume shows: mount.cifs's, and the device
    // name automount gives rclone's.
    std::string source() const
    {
        return "//" + mountHost + "/" + volume;
    }
};

bool hasControl(const std::string &text)
{
    return std::any_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    });
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
    if (address.compare(0, scheme, "afp") == 0) {
        fail(address + ": this system has no AFP client; give the server's SMB address (smb://...) instead");
    }
    if (address.compare(0, scheme, "smb") != 0 || address.size() <= 6) {
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
        || volume.find_first_of(", ") != std::string::npos) {
        fail("the volume name \"" + volume + "\" cannot be used (one folder name, no \"/\", blank or comma)");
    }
    return s;
}

std::string who(const Server &s)
{
    return s.account + "@" + s.mountHost;
}

std::string userName(uid_t uid)
{
    const passwd *p = getpwuid(uid);
    return p ? std::string(p->pw_name) : "user " + std::to_string(uid);
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
    // An afp:// item for the same server, user and volume is not this one.
    g_hash_table_insert(attributes, const_cast<char *>("protocol"), const_cast<char *>("smb"));
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

void closeFrom(int first)
{
    for (int fd = first; fd < 1024; ++fd) {
        close(fd);
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

[[noreturn]] void exec(const std::vector<std::string> &argv, const std::vector<std::string> &env)
{
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
        fail("cannot start " + argv[0] + ": " + std::strerror(errno));
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
        exec(argv, env);
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

std::string lastLine(const std::string &text)
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
    DIR *proc = opendir("/proc");
    if (!proc) {
        return {};
    }
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

std::string lockedLine(const passwd &user, const Server &s)
{
    return std::string("the keyring of ") + user.pw_name + " is locked, so the password for " + who(s) + " cannot be read";
}

// The password from the user's Secret Service, read as the user.
std::string passwordOf(const passwd &user, const Server &s, const std::string &self)
{
    const std::string bus = sessionBus(user);
    if (bus.empty()) {
        fail(lockedLine(user, s) + " (" + user.pw_name + " is not logged in)");
    }
    const std::string runtime = "/run/user/" + std::to_string(user.pw_uid);
    const Result r =
        run({Runuser, "-u", user.pw_name, "--", self, "--lookup", s.address, s.account, s.volume},
            {"DBUS_SESSION_BUS_ADDRESS=" + bus, "XDG_RUNTIME_DIR=" + runtime, std::string("HOME=") + user.pw_dir, "PATH=/usr/bin:/bin", "LC_ALL=C"},
            {},
            -1,
            LookupSeconds);
    if (r.timedOut) {
        fail(std::string("the Secret Service of ") + user.pw_name + " did not answer, so the password for " + who(s) + " cannot be read");
    }
    switch (r.status) {
    case LookupFound:
        if (r.out.empty()) {
            fail("the password for " + who(s) + " in the keyring of " + user.pw_name + " is empty");
        }
        return r.out;
    case LookupLocked:
        fail(lockedLine(user, s));
    case LookupNone:
        fail(std::string("the keyring of ") + user.pw_name + " holds no password for " + who(s) + " (volume " + s.volume
             + "): store it with Connect in Orvane's options");
    default:
        fail(lockedLine(user, s) + " (no Secret Service answers in " + user.pw_name + "'s session: " + lastLine(r.err) + ")");
    }
}

// --- what is mounted ---------------------------------------------------------

struct Mount {
    long id = -1;
    std::string point, type, source, options; // options: the file system's own (super options)
    bool has(const std::string &option) const
    {
        return ("," + options + ",").find("," + option + ",") != std::string::npos;
    }
    // The value of "name=value" among the options, or "" when absent.
    std::string option(const std::string &name) const
    {
        std::istringstream in(options);
        std::string item;
        while (std::getline(in, item, ',')) {
            if (item.rfind(name + "=", 0) == 0) {
                return item.substr(name.size() + 1);
            }
        }
        return {};
    }
};

std::string unescape(const std::string &field)
{
    std::string decoded;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && std::isdigit(static_cast<unsigned char>(field[i + 1]))) {
            decoded += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            decoded += field[i];
        }
    }
    return decoded;
}

// /proc/self/mountinfo, in its order: a later mount at a point lies on top.
std::vector<Mount> mountTable()
{
    std::vector<Mount> table;
    std::ifstream info("/proc/self/mountinfo");
    std::string line;
    while (std::getline(info, line)) {
        std::istringstream in(line);
        std::vector<std::string> fields;
        std::string field;
        while (in >> field) {
            fields.push_back(field);
        }
        const auto dash = std::find(fields.begin(), fields.end(), "-");
        if (fields.size() < 7 || dash == fields.end() || fields.end() - dash < 4) {
            continue;
        }
        Mount m;
        m.id = std::strtol(fields[0].c_str(), nullptr, 10);
        m.point = unescape(fields[4]);
        m.type = dash[1];
        m.source = unescape(dash[2]);
        m.options = dash[3];
        table.push_back(m);
    }
    return table;
}

Mount topMountAt(const std::vector<Mount> &table, const std::string &point)
{
    Mount top;
    for (const Mount &m : table) {
        if (m.point == point) {
            top = m;
        }
    }
    return top;
}

// Why the mount m at point cannot be the configured volume for user, or ""
// when it is that volume and only root and user can change what is in it.
std::string disproof(const std::vector<Mount> &table, const Mount &m, const Server &s, const passwd &user)
{
    const bool fuse = m.type == "fuse.rclone";
    if (!fuse && m.type != "cifs" && m.type != "smb3") {
        return "it is a " + m.type + " file system, not an SMB volume";
    }
    if (m.source != s.source()) {
        return "it comes from " + m.source + ", not from " + s.source();
    }
    // FUSE names the process that serves the mount, cifs the owner it gives
    // every file.
    const std::string owner = m.option(fuse ? "user_id" : "uid");
    if (owner != "0" && owner != std::to_string(user.pw_uid)) {
        return "it was mounted by " + (owner.empty() ? std::string("someone unknown") : userName(static_cast<uid_t>(std::stoul(owner)))) + ", not by root or "
            + user.pw_name;
    }
    if ((fuse && !m.has("default_permissions")) || (!fuse && m.has("noperm"))) {
        return "it lets every user change its files";
    }
    struct stat st;
    if (stat(m.point.c_str(), &st) != 0) {
        return std::string("it cannot be read (") + std::strerror(errno) + ")";
    }
    if ((st.st_uid != 0 && st.st_uid != user.pw_uid) || (st.st_mode & 022)) {
        return "users other than root and " + std::string(user.pw_name) + " can write in it";
    }
    for (const Mount &inside : table) {
        if (inside.point.rfind(m.point + "/", 0) == 0) {
            return "another file system is mounted inside it, at " + inside.point;
        }
    }
    return {};
}

bool kernelHasCifs()
{
    run({"/sbin/modprobe", "-q", "cifs"}, {SystemPath}, {}, -1, 20);
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

// --- mounting ------------------------------------------------------------------

// An unlinked file only root can read, holding data; its descriptor.
int privateFile(const std::string &data)
{
    const int fd = open("/run", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {
        fail(std::string("cannot make a private file: ") + std::strerror(errno));
    }
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
        return "the server " + s.mountHost + " cannot be reached (" + lastLine(err) + ")";
    }
    return "the server " + s.mountHost + " did not let " + s.account + " in: " + lastLine(err);
}

void mountWithRclone(const Server &s, const std::string &password, const std::string &point, const passwd &user)
{
    // The config holds the password obscured, as rclone reads it; rclone
    // obscures what it reads on its standard input.
    if (password.find('\n') != std::string::npos) {
        fail("the password for " + who(s) + " holds a line break, which rclone cannot take");
    }
    const std::vector<std::string> env = {"PATH=/usr/bin:/bin", "HOME=/root", "LC_ALL=C"};
    Result obscured = run({Rclone, "obscure", "-"}, env, password + "\n", -1, 20);
    if (obscured.status != 0 || obscured.out.empty()) {
        fail("rclone could not take the password: " + lastLine(obscured.err));
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

    // Writes go straight to the server: a cache would let the mount report a
    // copy done before it reached the volume. The files are the user's and
    // no one else's; the device name says which volume this is.
    std::vector<std::string> mount = {Rclone,
                                      "mount",
                                      remote,
                                      point,
                                      "--devname",
                                      s.source(),
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
    // rclone's errors go to a file in memory, not a pipe: once mounted nobody
    // reads them, and a line written into a pipe without a reader would end
    // rclone (SIGPIPE), unmounting the volume under a backup.
    const int err = memfd_create("rclone-errors", MFD_CLOEXEC);
    if (err < 0) {
        fail(std::string("cannot make a file for rclone's errors: ") + std::strerror(errno));
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
        dup2(err, 2);
        passOn(configFd, 3);
        closeFrom(4);
        exec(mount, env);
    }
    close(configFd);
    std::string errors;
    for (int tenth = 0; tenth < MountSeconds * 10; ++tenth) {
        char buffer[4096];
        ssize_t n;
        while ((n = pread(err, buffer, sizeof buffer, static_cast<off_t>(errors.size()))) > 0) {
            errors.append(buffer, static_cast<size_t>(n));
        }
        if (topMountAt(mountTable(), point).id >= 0) {
            close(err);
            return;
        }
        int status;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            while ((n = pread(err, buffer, sizeof buffer, static_cast<off_t>(errors.size()))) > 0) {
                errors.append(buffer, static_cast<size_t>(n));
            }
            fail("rclone could not mount " + s.volume + " at " + point + ": " + lastLine(errors));
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
    const Result r = run({MountCifs, s.source(), point, "-o", options}, {SystemPath, "PASSWD_FD=3"}, {}, fds[0], MountSeconds);
    close(fds[0]);
    if (r.status != 0) {
        fail("mount.cifs could not mount " + s.volume + " from " + s.mountHost + ": " + lastLine(r.err + r.out));
    }
}

bool unmount(const std::string &point)
{
    sync();
    Result r = run({Umount, point}, {SystemPath}, {}, -1, 60);
    struct stat st;
    if (r.status != 0 && stat(point.c_str(), &st) != 0 && errno == ENOTCONN) {
        // The client died with the mount: nothing is left to write back.
        r = run({Umount, "-l", point}, {SystemPath}, {}, -1, 60);
    }
    return r.status == 0;
}

// --- root's records ------------------------------------------------------------

// What automount mounted at a volume's point: the mount's id, whether it made
// the point, whether Connect asked for it (it then stays), and the scripts
// (their process ids) that use it.
struct Record {
    long mountId = -1;
    bool createdPoint = false;
    bool connected = false;
    std::set<long> users;
};

std::string recordPath(const std::string &volume)
{
    return RecordDir + "/" + volume;
}

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
    std::string first;
    std::getline(in, first);
    std::istringstream head(first);
    int created = 0, connected = 0;
    if (!(head >> record.mountId >> created)) {
        return false;
    }
    head >> connected;
    record.createdPoint = created != 0;
    record.connected = connected != 0;
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
    mkdir(RecordDir.c_str(), 0700);
    struct stat st;
    if (lstat(RecordDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != 0 || (st.st_mode & 077)) {
        fail("cannot keep a record in " + RecordDir);
    }
    std::string text = std::to_string(record.mountId) + (record.createdPoint ? " 1" : " 0") + (record.connected ? " 1" : " 0") + "\n";
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

// --- /Volumes ------------------------------------------------------------------

// /Volumes, open, once it is proven root's and changeable by root alone: a
// user who could make or rename an entry there could put his own mount, a
// folder or a link where root writes.
int openVolumes(bool create)
{
    if (create && mkdir(VolumesDir.c_str(), 0755) == 0) {
        syslog(LOG_NOTICE, "made %s", VolumesDir.c_str());
    }
    const int fd = open(VolumesDir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) {
        fail(VolumesDir + " does not exist: Orvane's installation makes it");
    }
    if (st.st_uid != 0 || (st.st_mode & 022)) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%o", static_cast<unsigned>(st.st_mode & 07777));
        fail(VolumesDir + " can be changed by users other than root (owner " + userName(st.st_uid) + ", mode " + mode
             + "), so no volume is used there: install Orvane again, or run \"chown root:root " + VolumesDir + " && chmod 755 " + VolumesDir + "\"");
    }
    return fd;
}

// Root's mount point in /Volumes: root's own folder, made when missing. An
// empty folder of someone else there (left from the time any user could make
// folders in /Volumes) is removed first; anything else is in the way.
bool prepareRootPoint(int volumes, const std::string &volume)
{
    const std::string point = VolumesDir + "/" + volume;
    struct stat st;
    if (fstatat(volumes, volume.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!S_ISDIR(st.st_mode)) {
            fail(point + " is in the way: it is not a folder, so nothing was mounted there (an administrator may remove it)");
        }
        if (st.st_uid == 0 && !(st.st_mode & 022)) {
            return false;
        }
        if (unlinkat(volumes, volume.c_str(), AT_REMOVEDIR) != 0) {
            fail(point + " is in the way: a folder of " + userName(st.st_uid)
                 + " that is not empty, left from when every user could make folders in /Volumes; nothing was mounted or written there"
                   " (an administrator may move it away)");
        }
        syslog(LOG_NOTICE, "removed the empty folder %s of %s", point.c_str(), userName(st.st_uid).c_str());
    }
    if (mkdirat(volumes, volume.c_str(), 0755) != 0) {
        fail("cannot make the mount point " + point + ": " + std::strerror(errno));
    }
    madePointIn = volumes;
    madePoint = volume;
    if (fstatat(volumes, volume.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != 0) {
        fail("cannot make the mount point " + point);
    }
    return true;
}

// --- the modes -------------------------------------------------------------------

enum class Mode { Mount, Verify, Connect };

int mountVolume(const Server &s, const passwd &user, const std::string &self, Mode mode)
{
    const int volumes = openVolumes(mode != Mode::Verify);
    const std::string point = VolumesDir + "/" + s.volume;
    const long caller = static_cast<long>(getppid());
    bool createdPoint = false;
    const std::vector<Mount> table = mountTable();
    const Mount top = topMountAt(table, point);
    if (top.id >= 0) {
        Record record;
        const bool ours = readRecord(s.volume, record) && record.mountId == top.id;
        // Only our own mount is looked into before it is proven: a FUSE
        // mount of someone else's could keep a stat waiting for ever.
        struct stat st;
        if (ours && mode != Mode::Verify && stat(point.c_str(), &st) != 0 && errno == ENOTCONN) {
            // Our client died: the mount is made anew.
            unmount(point);
            unlink(recordPath(s.volume).c_str());
            createdPoint = record.createdPoint;
        } else {
            const std::string why = disproof(table, top, s, user);
            if (!why.empty()) {
                fail(point + " is not the volume " + s.volume + " of " + s.address + " for " + user.pw_name + ": " + why + "; nothing was written there");
            }
            if (ours && mode != Mode::Verify) {
                if (mode == Mode::Connect) {
                    record.connected = true;
                } else {
                    record.users.insert(caller);
                }
                writeRecord(s.volume, record);
            }
            std::printf("%s is mounted at %s from %s (%s%s)\n",
                        s.volume.c_str(),
                        point.c_str(),
                        top.source.c_str(),
                        top.type.c_str(),
                        ours ? ", by Orvane" : "");
            syslog(LOG_NOTICE,
                   "%s: using %s from %s for %s",
                   mode == Mode::Verify ? "verified" : "mounted already",
                   point.c_str(),
                   top.source.c_str(),
                   user.pw_name);
            return 0;
        }
    }
    if (mode == Mode::Verify) {
        fail("the volume " + s.volume + " of " + s.address + " is not connected (auto-connect is off, and nothing is mounted at " + point
             + "): connect it with Connect in Orvane's options, or turn auto-connect on");
    }
    const std::string password = passwordOf(user, s, self);
    createdPoint = prepareRootPoint(volumes, s.volume) || createdPoint;
    const bool cifs = kernelHasCifs();
    if (cifs) {
        mountWithCifs(s, password, point, user);
    } else {
        mountWithRclone(s, password, point, user);
    }
    // What is there now must be what was asked for, or it goes again.
    const std::vector<Mount> after = mountTable();
    const Mount made = topMountAt(after, point);
    const std::string why = made.id >= 0 ? disproof(after, made, s, user) : std::string("nothing is mounted there");
    if (!why.empty()) {
        if (made.id >= 0) {
            unmount(point);
        }
        fail("the volume mounted at " + point + " is not the one asked for: " + why);
    }
    madePointIn = -1;
    Record record;
    record.mountId = made.id;
    record.createdPoint = createdPoint;
    record.connected = mode == Mode::Connect;
    if (mode == Mode::Mount) {
        record.users.insert(caller);
    }
    writeRecord(s.volume, record);
    std::printf("mounted %s from %s at %s (%s)\n", s.volume.c_str(), s.mountHost.c_str(), point.c_str(), cifs ? "mount.cifs" : "rclone");
    syslog(LOG_NOTICE, "mounted %s at %s for %s (%s)", s.source().c_str(), point.c_str(), user.pw_name, mode == Mode::Connect ? "Connect" : "a backup");
    return 0;
}

int unmountVolume(const std::string &volume)
{
    if (volume.empty() || volume == "." || volume == ".." || volume.find('/') != std::string::npos) {
        fail("the volume name \"" + volume + "\" cannot be used");
    }
    const int volumes = openVolumes(false);
    const std::string point = VolumesDir + "/" + volume;
    Record record;
    const long current = topMountAt(mountTable(), point).id;
    if (!readRecord(volume, record) || record.mountId != current || current < 0) {
        // Not ours: someone else mounted it, or it is gone already.
        unlink(recordPath(volume).c_str());
        std::printf("%s was not mounted by a backup; left as it is\n", volume.c_str());
        return 0;
    }
    record.users.erase(static_cast<long>(getppid()));
    if (!record.users.empty() || record.connected) {
        writeRecord(volume, record);
        std::printf("%s stays mounted: %s\n", volume.c_str(), record.connected ? "it was connected from Orvane's options" : "another backup still uses it");
        return 0;
    }
    if (!unmount(point)) {
        fail("cannot unmount " + point + ": it is still in use");
    }
    unlink(recordPath(volume).c_str());
    if (record.createdPoint) {
        unlinkat(volumes, volume.c_str(), AT_REMOVEDIR);
    }
    std::printf("unmounted %s\n", point.c_str());
    syslog(LOG_NOTICE, "unmounted %s", point.c_str());
    return 0;
}
} // namespace

int main(int argc, char **argv)
{
    umask(077);
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 4 && args[0] == "--lookup") {
        return lookup(parseServer(args[1], args[2], args[3]));
    }
    if (!asRoot()) {
        fail("only root mounts the remote volume: use Connect in Orvane's options (the pane must be unlocked)");
    }
    openlog("automount", LOG_PID, LOG_AUTHPRIV);
    if (args.size() == 2 && args[0] == "--unmount") {
        return unmountVolume(args[1]);
    }
    Mode mode = Mode::Mount;
    if (args.size() == 6 && args[0] == "--user" && (args[2] == "--verify" || args[2] == "--connect")) {
        mode = args[2] == "--verify" ? Mode::Verify : Mode::Connect;
        args.erase(args.begin() + 2);
    }
    if (args.size() != 5 || args[0] != "--user") {
        std::fprintf(stderr,
                     "usage: automount --user USER [--verify | --connect] smb://SERVER ACCOUNT VOLUME\n"
                     "       automount --unmount VOLUME\n");
        return 2;
    }
    const Server server = parseServer(args[2], args[3], args[4]);
    const passwd *found = getpwnam(args[1].c_str());
    if (!found || found->pw_uid == 0) {
        fail("no such user: " + args[1] + " (the volume is mounted for the user whose keyring holds the password)");
    }
    passwd user = *found;
    std::string name = user.pw_name, dir = user.pw_dir;
    user.pw_name = name.data();
    user.pw_dir = dir.data();
    // The lookup is this same program, run as the user.
    std::string self = OVFixedPaths::AutomountPath;
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n > 0) {
        self.assign(path, static_cast<size_t>(n));
    }
    return mountVolume(server, user, self, mode);
}
