// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "ovjournal.h"

#include "journalwire.h"
#include "ovfixedpaths.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/un.h>
#include <unistd.h>

namespace ovjournal
{
namespace
{
constexpr char NoJournal[] = "no journal running";
constexpr char NoAnswer[] = "the journal did not answer";

class Connection
{
public:
    ~Connection()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }

    // "" or why not.
    std::string open(int seconds)
    {
        m_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (m_fd < 0) {
            return NoJournal;
        }
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, OVFixedPaths::JournalSocket, sizeof address.sun_path - 1);
        if (connect(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            return NoJournal;
        }
        // Only root's journal is believed.
        ucred peer{};
        socklen_t length = sizeof peer;
        if (getsockopt(m_fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.uid != 0) {
            return NoJournal;
        }
        const timeval timeout{seconds, 0};
        setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        return std::string();
    }

    // The answer's fields, and the descriptor passed with it (or -1).
    bool ask(const std::string &request, std::vector<std::string> &answer, int *passed = nullptr)
    {
        if (send(m_fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
            return false;
        }
        std::string buffer(wire::MaxMessage, '\0');
        iovec part{buffer.data(), buffer.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        ssize_t n;
        while ((n = recvmsg(m_fd, &message, MSG_CMSG_CLOEXEC)) < 0 && errno == EINTR) { }
        int fd = -1;
        for (cmsghdr *c = CMSG_FIRSTHDR(&message); c; c = CMSG_NXTHDR(&message, c)) {
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_RIGHTS && c->cmsg_len == CMSG_LEN(sizeof(int))) {
                std::memcpy(&fd, CMSG_DATA(c), sizeof fd);
            }
        }
        if (passed) {
            *passed = fd;
        } else if (fd >= 0) {
            close(fd);
        }
        if (n <= 0 || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC))) {
            return false;
        }
        buffer.resize(n);
        return wire::unpack(buffer, answer);
    }

private:
    int m_fd = -1;
};

// The destination folder as the journal tells it from another: its file
// system and inode, so another disk mounted at the same place is a new
// destination.
std::string identity(const std::string &destination)
{
    const int fd = open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return std::string();
    }
    struct stat st;
    struct statfs fs;
    const bool ok = fstat(fd, &st) == 0 && fstatfs(fd, &fs) == 0;
    close(fd);
    if (!ok) {
        return std::string();
    }
    int fsid[2];
    std::memcpy(fsid, &fs.f_fsid, sizeof fsid);
    std::string text = std::to_string(static_cast<unsigned>(fsid[0])) + ':' + std::to_string(static_cast<unsigned>(fsid[1])) + ':' + std::to_string(st.st_ino);
    // A file system without an id of its own is told by its device.
    if (fsid[0] == 0 && fsid[1] == 0) {
        text += ':' + std::to_string(st.st_dev);
    }
    return text;
}

bool readEntries(int fd, Cut &cut, unsigned long long count)
{
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return false;
    }
    std::string text(st.st_size, '\0');
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = pread(fd, text.data() + done, text.size() - done, done);
        if (n <= 0) {
            return false;
        }
        done += n;
    }
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find('\0', begin);
        if (end == std::string::npos || end < begin + 3 || text[begin + 1] != ' ') {
            return false;
        }
        std::string path = text.substr(begin + 2, end - begin - 2);
        if (text[begin] == wire::EntryMark) {
            cut.entries.push_back(std::move(path));
        } else if (text[begin] == wire::FolderAloneMark) {
            cut.foldersAlone.push_back(std::move(path));
        } else {
            return false;
        }
        begin = end + 1;
    }
    return cut.entries.size() + cut.foldersAlone.size() == count;
}
}

Cut takeCut(const std::string &source, const std::string &destination, const std::vector<std::string> &settings)
{
    Cut cut;
    Connection connection;
    // The journal may walk folders moved into the source before it answers.
    cut.fullWalk = connection.open(300);
    if (!cut.fullWalk.empty()) {
        return cut;
    }
    const std::string id = identity(destination);
    if (id.empty()) {
        cut.fullWalk = "the destination folder cannot be opened";
        return cut;
    }
    std::vector<std::string> answer;
    int entries = -1;
    const bool answered =
        connection.ask(wire::pack({wire::Cut, wire::key(source), wire::key(destination), id, wire::joinSettings(settings)}), answer, &entries);
    unsigned long long number = 0;
    unsigned long long count = 0;
    if (answered && answer.size() == 3 && answer[0] == wire::Full && wire::number(answer[1], number) && !answer[2].empty()) {
        cut.number = number;
        cut.fullWalk = answer[2];
    } else if (answered && answer.size() == 3 && answer[0] == wire::Journal && wire::number(answer[1], number) && wire::number(answer[2], count) && entries >= 0
               && readEntries(entries, cut, count)) {
        cut.number = number;
    } else {
        // Whatever was read is not to be trusted; the cut is not committed.
        cut = Cut();
        cut.fullWalk = NoAnswer;
    }
    if (entries >= 0) {
        close(entries);
    }
    return cut;
}

std::string commitCut(const std::string &source, const std::string &destination, const Cut &cut)
{
    if (cut.number == 0) {
        return NoJournal;
    }
    Connection connection;
    std::string why = connection.open(30);
    if (!why.empty()) {
        return why;
    }
    std::vector<std::string> answer;
    if (!connection.ask(wire::pack({wire::Commit, wire::key(source), wire::key(destination), std::to_string(cut.number)}), answer)) {
        return NoAnswer;
    }
    if (answer.size() == 1 && answer[0] == wire::Ok) {
        return std::string();
    }
    return answer.size() == 2 && answer[0] == wire::Refused ? answer[1] : std::string(NoAnswer);
}

bool status(std::string &text)
{
    Connection connection;
    text = connection.open(30);
    if (!text.empty()) {
        return false;
    }
    std::vector<std::string> answer;
    if (!connection.ask(wire::pack({wire::Status}), answer) || answer.size() != 2 || answer[0] != wire::Status) {
        text = NoAnswer;
        return false;
    }
    text = answer[1];
    return true;
}

bool stop()
{
    Connection connection;
    std::vector<std::string> answer;
    return connection.open(30).empty() && connection.ask(wire::pack({wire::Stop}), answer) && answer.size() == 1 && answer[0] == wire::Ok;
}
}
