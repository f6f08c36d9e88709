// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The journal's eyes: fanotify marks on the file system of every source,
// and its events turned into paths under the sources, for the book.
#pragma once

#include "book.h"

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>
#include <unordered_map>

namespace ovjournal
{
class Watcher
{
public:
    ~Watcher();
    // "" or why the journal cannot watch anything.
    std::string open();
    int fd() const
    {
        return m_fd;
    }

    // Watches the file system of the folder named key (as the backups name
    // it). "" or why it cannot be watched, in the user's words.
    std::string watch(const std::string &key);
    void unwatch(const std::string &key);
    bool knows(const std::string &key) const
    {
        return m_sources.count(key);
    }
    std::map<std::string, std::string> sources() const; // key -> why not

    // At a cut, after reading every queued event: "" when the folder is
    // still the one watched on a file system still marked. Otherwise the
    // book learns that the journal lost track of it, the folder is watched
    // anew where it can be, and the answer is why it cannot.
    std::string check(const std::string &key, Book &book);

    // The watched folder, opened for looking into; -1 when the path no
    // longer leads to it.
    int openSource(const std::string &key) const;

    // Reads what is queued, until nothing is left, into the book.
    void read(Book &book);

private:
    struct Source {
        std::string canonical; // the path the kernel gives for it
        dev_t device = 0;
        ino_t inode = 0;
        std::uint64_t mount = 0;
        std::uint64_t fsid = 0;
        bool marked = false;
        std::string whyNot;
        std::string mounts; // mounted inside it, when last looked at
    };
    enum class Found { Path, Gone, Lost };

    std::string mark(const std::string &key, Source &source);
    int openVerified(const std::string &key, const Source &source) const;
    bool stillMarked(const Source &source) const;
    std::string mountsInside(const Source &source, bool &sameDisk) const;
    Found resolve(int mountFd, std::uint64_t mount, const void *handle, std::string &path);
    void event(Book &book, std::uint64_t mask, std::uint64_t fsid, const void *handle, const char *name, std::map<std::uint64_t, int> &mounts);
    void place(Book &book, const std::string &key, const Source &source, const std::string &path, std::uint64_t mask, bool named);

    int m_fd = -1;
    bool m_uniqueMounts = false;
    std::map<std::string, Source> m_sources;
    // Folder handles already turned into paths; forgotten whenever a folder
    // moves or goes.
    std::unordered_map<std::string, std::string> m_paths;
};
}
