// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// orvane-journal: the change journal. Watches the file system of every
// folder the backups copy and answers, for one source and one destination,
// what changed since the last successful copy there, or why the copy must
// walk everything. Runs as root in the foreground (systemd starts it at
// boot); with an option it is the journal's client instead.
#include "cutlist.h"
#include "journalwire.h"
#include "ovfixedpaths.h"
#include "ovjournal.h"
#include "rootfs.h"
#include "scripts.h"
#include "watcher.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

using namespace ovjournal;

namespace
{
constexpr char BookFile[] = "book";
constexpr char RunFile[] = "run";
// A source that only a manual backup asked about is watched this long
// after its last run.
constexpr std::int64_t KeepAsked = 40 * 24 * 3600;
constexpr char CannotSave[] = "the journal could not save what it knows";

std::int64_t now()
{
    return static_cast<std::int64_t>(std::time(nullptr));
}

// A path for the log: bytes that are not printable ASCII as \ooo.
std::string shown(const std::string &path)
{
    std::string text;
    for (const unsigned char c : path) {
        if (c < 0x20 || c >= 0x7f || c == '\\') {
            char octal[8];
            std::snprintf(octal, sizeof octal, "\\%03o", c);
            text += octal;
        } else {
            text += static_cast<char>(c);
        }
    }
    return text;
}

std::string bootId()
{
    std::string id;
    if (std::FILE *f = std::fopen("/proc/sys/kernel/random/boot_id", "re")) {
        char line[64];
        if (std::fgets(line, sizeof line, f)) {
            id = line;
            while (!id.empty() && id.back() == '\n') {
                id.pop_back();
            }
        }
        std::fclose(f);
    }
    return id;
}

// systemd's readiness message, for a service of Type=notify.
void notifyReady(const std::string &socketPath)
{
    if (socketPath.empty() || socketPath.size() >= sizeof(sockaddr_un::sun_path) || (socketPath[0] != '/' && socketPath[0] != '@')) {
        return;
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
    if (address.sun_path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const char ready[] = "READY=1";
    sendto(fd, ready, sizeof ready - 1, MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&address), offsetof(sockaddr_un, sun_path) + socketPath.size());
    close(fd);
}

class Daemon
{
public:
    int run(const std::string &notifySocket);

private:
    bool prepareState();
    bool saveBook();
    void saveRun(bool running);
    bool listen();
    void watchScripts();
    void rescan();
    void serve();
    void answerCut(int client, const std::vector<std::string> &request);
    void answerCommit(int client, const std::vector<std::string> &request);
    void answerStatus(int client);

    Book m_book;
    Watcher m_watcher;
    int m_state = -1;
    int m_run = -1; // /run
    int m_listen = -1;
    int m_inotify = -1;
    std::string m_boot;
    std::set<std::string> m_fromScripts;
    bool m_stopping = false;
};

void reply(int client, const std::string &message, int fd = -1)
{
    iovec part{const_cast<char *>(message.data()), message.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (fd >= 0) {
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        cmsghdr *c = CMSG_FIRSTHDR(&header);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(c), &fd, sizeof fd);
    }
    while (sendmsg(client, &header, MSG_NOSIGNAL) < 0 && errno == EINTR) { }
}

bool Daemon::prepareState()
{
    const int top = rootfs::openRootFolder(OVFixedPaths::StateFolder, true, 0755);
    if (top >= 0) {
        close(top);
    }
    m_state = rootfs::openRootFolder(OVFixedPaths::JournalStateFolder, true, 0700);
    struct stat st;
    if (m_state < 0 || fstat(m_state, &st) != 0) {
        syslog(LOG_ERR, "cannot use %s (%s): it must be a folder only root may change", OVFixedPaths::JournalStateFolder, std::strerror(errno));
        return false;
    }
    if ((st.st_mode & 07777) != 0700 && fchmod(m_state, 0700) != 0) {
        syslog(LOG_ERR, "cannot make %s root's alone (%s)", OVFixedPaths::JournalStateFolder, std::strerror(errno));
        return false;
    }
    if (flock(m_state, LOCK_EX | LOCK_NB) != 0) {
        syslog(LOG_ERR, "another orvane-journal is running");
        return false;
    }
    m_boot = bootId();
    std::string text;
    std::vector<std::string> run;
    const bool hadBook = rootfs::readFileAt(m_state, BookFile, 64 << 20, text) && m_book.load(text);
    const bool hadRun = rootfs::readFileAt(m_state, RunFile, 4096, text) && wire::unpack(text, run) && run.size() == 2;
    std::string reason;
    if (!hadBook || !hadRun) {
        reason = "the journal has just started for the first time";
    } else if (run[0] != m_boot) {
        reason = "the computer was restarted since the last backup";
    } else if (run[1] == "1") {
        reason = "the journal stopped unexpectedly since the last backup";
    } else {
        reason = "the journal was restarted since the last backup";
    }
    // Without books, numbering starts at the clock's seconds: above any
    // number a lost book may have handed out, so no old cut is taken for a
    // new one.
    m_book.start(hadBook ? m_book.current() : static_cast<Segment>(std::max<std::int64_t>(now(), 1)), reason, now());
    syslog(LOG_INFO, "started: every destination's next copy walks fully (%s)", reason.c_str());
    saveRun(true);
    return true;
}

bool Daemon::saveBook()
{
    if (rootfs::replaceFileAt(m_state, BookFile, m_book.save())) {
        return true;
    }
    syslog(LOG_ERR, "cannot save the journal's state in %s (%s)", OVFixedPaths::JournalStateFolder, std::strerror(errno));
    return false;
}

void Daemon::saveRun(bool running)
{
    // Before any cut is handed out: numbers are never given twice.
    if (!saveBook() || !rootfs::replaceFileAt(m_state, RunFile, wire::pack({m_boot, running ? "1" : "0"}))) {
        syslog(LOG_ERR, "cannot save the journal's state in %s (%s)", OVFixedPaths::JournalStateFolder, std::strerror(errno));
    }
}

bool Daemon::listen()
{
    const std::string path = OVFixedPaths::JournalSocket;
    const std::size_t slash = path.rfind('/');
    m_run = rootfs::openRootFolder(path.substr(0, slash), false);
    if (m_run < 0) {
        syslog(LOG_ERR, "cannot use %s for the socket (%s)", path.substr(0, slash).c_str(), std::strerror(errno));
        return false;
    }
    // We hold the state lock: whatever stands at the name is a dead
    // journal's.
    const std::string name = path.substr(slash + 1);
    unlinkat(m_run, name.c_str(), 0);
    m_listen = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    // umask 077: the socket is root's alone from its first moment.
    if (m_listen < 0 || bind(m_listen, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || ::listen(m_listen, 16) != 0) {
        syslog(LOG_ERR, "cannot listen on %s (%s)", path.c_str(), std::strerror(errno));
        return false;
    }
    struct stat st;
    if (fstatat(m_run, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISSOCK(st.st_mode) || st.st_uid != 0 || (st.st_mode & 077)) {
        syslog(LOG_ERR, "%s is not root's alone", path.c_str());
        return false;
    }
    return true;
}

void Daemon::watchScripts()
{
    for (const std::string &folder : scripts::watchedFolders()) {
        inotify_add_watch(m_inotify,
                          folder.c_str(),
                          IN_ONLYDIR | IN_DONT_FOLLOW | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF
                              | IN_MOVE_SELF);
    }
}

// Which sources to watch: the installed scripts', and those a run asked
// about lately (a manual backup's).
void Daemon::rescan()
{
    watchScripts();
    std::vector<std::string> problems;
    m_fromScripts = scripts::installedSources(problems);
    for (const std::string &problem : problems) {
        syslog(LOG_WARNING, "%s", shown(problem).c_str());
    }
    std::set<std::string> wanted = m_fromScripts;
    const std::int64_t t = now();
    for (const auto &asked : m_book.askedSources()) {
        if (t - asked.second < KeepAsked) {
            wanted.insert(asked.first);
        }
    }
    for (const auto &known : m_watcher.sources()) {
        if (!wanted.count(known.first)) {
            m_watcher.unwatch(known.first);
            syslog(LOG_INFO, "no longer watching %s: no backup copies it", shown(known.first).c_str());
        }
    }
    for (const std::string &source : wanted) {
        if (m_watcher.knows(source)) {
            continue;
        }
        const std::string why = m_watcher.watch(source);
        if (why.empty()) {
            syslog(LOG_INFO, "watching %s", shown(source).c_str());
        } else {
            syslog(LOG_NOTICE, "not watching %s: %s; its backups walk it fully", shown(source).c_str(), why.c_str());
        }
    }
}

void Daemon::answerCut(int client, const std::vector<std::string> &request)
{
    const std::string &source = request[1];
    const std::string &destination = request[2];
    // Every change whose system call returned before the request is
    // queued: read it all before closing the segment.
    m_watcher.read(m_book);
    const std::string blocked = m_watcher.check(source, m_book);
    Decision decision = m_book.cut(source, destination, request[3], request[4], blocked, now());
    CutList list;
    if (decision.fullWalk.empty()) {
        const int top = m_watcher.openSource(source);
        if (top < 0) {
            list.fullWalk = "the folder, or a folder holding it, was moved, renamed or replaced";
        } else {
            list = settle(top, std::move(decision.entries));
            close(top);
        }
        decision.fullWalk = list.fullWalk;
        if (!decision.fullWalk.empty()) {
            m_book.turnFull(source, destination);
        }
    }
    if (!saveBook() && decision.fullWalk.empty()) {
        decision.fullWalk = CannotSave;
        m_book.turnFull(source, destination);
    }
    int entries = -1;
    std::size_t count = 0;
    if (decision.fullWalk.empty()) {
        entries = memfd_create("orvane-journal-cut", MFD_CLOEXEC);
        std::string text;
        for (const std::string &entry : list.entries) {
            text += std::string(1, wire::EntryMark) + ' ' + entry + '\0';
        }
        for (const std::string &folder : list.foldersAlone) {
            text += std::string(1, wire::FolderAloneMark) + ' ' + folder + '\0';
        }
        count = list.entries.size() + list.foldersAlone.size();
        std::size_t done = 0;
        while (entries >= 0 && done < text.size()) {
            const ssize_t n = write(entries, text.data() + done, text.size() - done);
            if (n <= 0 && errno != EINTR) {
                close(entries);
                entries = -1;
            } else if (n > 0) {
                done += n;
            }
        }
        if (entries < 0) {
            decision.fullWalk = CannotSave;
            m_book.turnFull(source, destination);
        }
    }
    const std::string number = std::to_string(decision.number);
    if (decision.fullWalk.empty()) {
        reply(client, wire::pack({wire::Journal, number, std::to_string(count)}), entries);
        close(entries);
        syslog(LOG_INFO, "cut %s for %s -> %s: journal (%zu entries)", number.c_str(), shown(source).c_str(), shown(destination).c_str(), count);
    } else {
        reply(client, wire::pack({wire::Full, number, decision.fullWalk}));
        syslog(LOG_INFO, "cut %s for %s -> %s: full walk (%s)", number.c_str(), shown(source).c_str(), shown(destination).c_str(), decision.fullWalk.c_str());
    }
}

void Daemon::answerCommit(int client, const std::vector<std::string> &request)
{
    unsigned long long number = 0;
    std::string why = wire::number(request[3], number) ? m_book.commit(request[1], request[2], number, now()) : "not a cut number";
    if (why.empty() && !saveBook()) {
        why = CannotSave;
    }
    if (why.empty()) {
        reply(client, wire::pack({wire::Ok}));
        syslog(LOG_INFO, "cut %llu for %s -> %s committed", number, shown(request[1]).c_str(), shown(request[2]).c_str());
    } else {
        reply(client, wire::pack({wire::Refused, why}));
        syslog(LOG_NOTICE,
               "cut %s for %s -> %s not committed: %s",
               shown(request[3]).c_str(),
               shown(request[1]).c_str(),
               shown(request[2]).c_str(),
               why.c_str());
    }
}

void Daemon::answerStatus(int client)
{
    std::string text;
    for (const auto &source : m_watcher.sources()) {
        text += shown(source.first) + (source.second.empty() ? ": watched" : ": not watched, " + source.second)
            + (m_fromScripts.count(source.first) ? " (installed scripts)\n" : " (asked by a run)\n");
    }
    text += m_book.describe(now());
    if (text.size() > wire::MaxMessage - 64) {
        text.resize(wire::MaxMessage - 64);
    }
    reply(client, wire::pack({wire::Status, text}));
}

void Daemon::serve()
{
    for (;;) {
        const int client = accept4(m_listen, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            return;
        }
        ucred peer{};
        socklen_t length = sizeof peer;
        if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.uid != 0) {
            syslog(LOG_WARNING, "refused a request from user %u: only root may use the journal", static_cast<unsigned>(peer.uid));
            reply(client, wire::pack({wire::Refused, "only root may use the journal"}));
            close(client);
            continue;
        }
        const timeval timeout{2, 0};
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        std::string message(wire::MaxMessage, '\0');
        const ssize_t n = recv(client, message.data(), message.size(), MSG_TRUNC);
        std::vector<std::string> request;
        if (n > 0 && static_cast<std::size_t>(n) <= message.size()) {
            message.resize(n);
            wire::unpack(message, request);
        }
        if (request.size() == 5 && request[0] == wire::Cut && !request[1].empty() && request[1][0] == '/') {
            answerCut(client, request);
        } else if (request.size() == 4 && request[0] == wire::Commit) {
            answerCommit(client, request);
        } else if (request.size() == 1 && request[0] == wire::Status) {
            answerStatus(client);
        } else if (request.size() == 1 && request[0] == wire::Stop) {
            reply(client, wire::pack({wire::Ok}));
            syslog(LOG_INFO, "asked to stop");
            m_stopping = true;
        } else {
            reply(client, wire::pack({wire::Refused, "not a request of the journal's"}));
        }
        close(client);
    }
}

int Daemon::run(const std::string &notifySocket)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const int signalFd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);

    const std::string why = m_watcher.open();
    if (!why.empty()) {
        syslog(LOG_ERR, "cannot watch anything: %s", why.c_str());
        return 1;
    }
    if (signalFd < 0 || !prepareState() || !listen()) {
        return 1;
    }
    m_inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    rescan();
    notifyReady(notifySocket);

    for (;;) {
        pollfd fds[] = {{m_watcher.fd(), POLLIN, 0}, {m_listen, POLLIN, 0}, {m_inotify, POLLIN, 0}, {signalFd, POLLIN, 0}};
        // Once a day the sources a manual backup asked about are looked at
        // again, to let go of those no run asks about any more.
        const int ready = poll(fds, 4, 24 * 3600 * 1000);
        if (ready < 0 && errno != EINTR) {
            syslog(LOG_ERR, "stopped: cannot wait for changes (%s)", std::strerror(errno));
            return 1;
        }
        if (fds[0].revents) {
            m_watcher.read(m_book);
        }
        if (fds[1].revents) {
            serve();
        }
        bool scriptsChanged = ready == 0;
        if (fds[2].revents) {
            char buffer[8192];
            while (read(m_inotify, buffer, sizeof buffer) > 0) { }
            scriptsChanged = true;
        }
        if (fds[3].revents) {
            signalfd_siginfo info;
            while (read(signalFd, &info, sizeof info) == sizeof info) {
                scriptsChanged = scriptsChanged || info.ssi_signo == SIGHUP;
                m_stopping = m_stopping || info.ssi_signo != SIGHUP;
            }
        }
        if (m_stopping) {
            const std::string path = OVFixedPaths::JournalSocket;
            unlinkat(m_run, path.substr(path.rfind('/') + 1).c_str(), 0);
            saveRun(false);
            syslog(LOG_INFO, "stopped");
            return 0;
        }
        if (scriptsChanged) {
            rescan();
        }
    }
}

int client(int argc, char **argv)
{
    const std::string mode = argv[1];
    if (mode == "--status" && argc == 2) {
        std::string text;
        const bool answered = status(text);
        std::fputs((text + (answered ? "" : "\n")).c_str(), answered ? stdout : stderr);
        return answered ? 0 : 1;
    }
    if (mode == "--stop" && argc == 2) {
        return stop() ? 0 : 1;
    }
    if (mode == "--commit" && argc == 5) {
        Cut cut;
        unsigned long long number = 0;
        if (!wire::number(argv[4], number)) {
            std::fprintf(stderr, "orvane-journal: %s is not a cut number\n", argv[4]);
            return 2;
        }
        cut.number = number;
        const std::string why = commitCut(argv[2], argv[3], cut);
        std::printf("%s\n", why.empty() ? "committed" : ("not committed: " + why).c_str());
        return why.empty() ? 0 : 1;
    }
    if (mode == "--cut" && argc >= 6) {
        const Cut cut = takeCut(argv[2], argv[3], std::vector<std::string>(argv + 6, argv + argc));
        for (int i = 0; i < 2; ++i) {
            std::FILE *f = std::fopen(argv[4 + i], "we");
            if (!f) {
                std::fprintf(stderr, "orvane-journal: cannot write %s: %s\n", argv[4 + i], std::strerror(errno));
                return 2;
            }
            for (const std::string &path : i == 0 ? cut.entries : cut.foldersAlone) {
                std::fwrite(path.c_str(), 1, path.size() + 1, f);
            }
            if (std::fclose(f) != 0) {
                return 2;
            }
        }
        if (cut.fullWalk.empty()) {
            std::printf("journal %llu %zu\n", static_cast<unsigned long long>(cut.number), cut.entries.size() + cut.foldersAlone.size());
        } else {
            std::printf("full %llu %s\n", static_cast<unsigned long long>(cut.number), cut.fullWalk.c_str());
        }
        return 0;
    }
    std::fprintf(stderr,
                 "usage: orvane-journal                 the journal (root, in the foreground)\n"
                 "       orvane-journal --status        what it watches\n"
                 "       orvane-journal --stop\n"
                 "       orvane-journal --cut SOURCE DESTINATION ENTRIES FOLDERS-ALONE [SETTING]...\n"
                 "       orvane-journal --commit SOURCE DESTINATION NUMBER\n");
    return 2;
}
}

int main(int argc, char **argv)
{
    if (argc > 1) {
        return client(argc, argv);
    }
    if (geteuid() != 0) {
        std::fprintf(stderr, "orvane-journal: the journal runs as root\n");
        return 1;
    }
    // Started by systemd, by dev/run or by hand: nothing of the caller's
    // environment counts but systemd's two addresses.
    const char *notify = std::getenv("NOTIFY_SOCKET");
    const std::string notifySocket = notify ? notify : "";
    const bool toJournal = std::getenv("JOURNAL_STREAM") != nullptr;
    clearenv();
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    umask(077);
    for (int fd = 3; fd < 1024; ++fd) {
        close(fd);
    }
    openlog("orvane-journal", LOG_PID | (toJournal ? 0 : LOG_PERROR), LOG_DAEMON);
    Daemon daemon;
    return daemon.run(notifySocket);
}
