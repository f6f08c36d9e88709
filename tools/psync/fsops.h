// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Root's own file work, by descriptor: nothing here resolves a path through
// a folder another user could change without refusing links and staying
// beneath the folder it starts from.
#pragma once

#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace psync
{

// A descriptor that closes itself.
class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd)
        : m_fd(fd)
    {
    }
    Fd(Fd &&other) noexcept
        : m_fd(other.release())
    {
    }
    Fd &operator=(Fd &&other) noexcept;
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd();
    int get() const
    {
        return m_fd;
    }
    explicit operator bool() const
    {
        return m_fd >= 0;
    }
    int release()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }

private:
    int m_fd = -1;
};

// The reason of the last failed call, in words ("permission denied").
std::string reason(int error);

// Opens PATH below DIR, never through a link and never above DIR
// (openat2 RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS; one component at a time
// with O_NOFOLLOW where the kernel has no openat2).
int openBeneath(int dir, const std::string &path, int flags, mode_t mode = 0);
// The folder holding PATH below DIR (DIR itself for a name at its top), and
// PATH's last name in NAME; empty when the folder is not there.
Fd openParent(int dir, const std::string &path, std::string &name);
// A folder below DIR, opened to read and to work in.
Fd openFolder(int dir, const std::string &path);

// Whether the file system can hold owners and modes (not FUSE, SMB, FAT...).
bool holdsOwners(int fd);
// Whether the file system is a local disk's (not FUSE, SMB, NFS...).
bool isLocalDisk(int fd);
// Whether the folder can still be reached (a network volume's connection
// may drop during a run).
bool stillConnected(int fd);

// Makes a folder NAME in PARENT (mode 0700, owner root) and opens it,
// checking that what it opens is the folder it made: a folder, on PARENT's
// file system, root's and private where the file system holds owners, the
// same inode as the name shows. Empty Fd and WHY on failure; EXISTED is set
// when the name was taken (nothing is opened then).
Fd makeFolder(int parent, const std::string &name, std::string &why, bool *existed = nullptr);

// Removes NAME in PARENT and all below it, by descriptor, never following a
// link and never entering another file system than DEVICE's.
bool removeTree(int parent, const std::string &name, dev_t device, std::string &why);
// Removes everything inside the open folder DIR.
bool removeContents(int dir, dev_t device, std::string &why);

// Names in an open folder (without "." and ".."), in byte order.
std::vector<std::string> listFolder(int dir);

struct FolderEntry {
    std::string name;
    unsigned char type; // d_type: DT_UNKNOWN where the file system does not say
};
// The entries of DIR (opened for reading), "." and ".." left out, read
// from its start on DIR itself: the walks list every folder once, and a
// second descriptor for a listing cost as much as the listing.
bool readFolder(int dir, std::vector<FolderEntry> &entries);

// SIZE bytes of FROM into TO, holes kept as holes.
bool copyData(int from, int to, off_t size, std::string &why);

// Copies NAME of FROM into TO as NEWNAME: data (holes kept), owner, group,
// mode, times, extended attributes and ACLs; folders recursively, made
// private to root until SETOWNER gives them to UID:GID (ownersFolderMode).
struct CopyOwner {
    bool set = false;
    uid_t uid = 0;
    gid_t gid = 0;
};
bool copyTree(int from, const std::string &name, int to, const std::string &newName, const CopyOwner &folders, std::string &why);

// A kept folder's mode once it is the Safety Net owner's: its own mode, so
// that a restore brings it back as it was, and always open to him. (Nobody
// else passes the archive's top folder, which is his alone.)
mode_t ownersFolderMode(mode_t mode);
// Gives every folder below DIR (and DIR) to UID:GID (ownersFolderMode);
// files keep their owner and mode.
bool giveFolders(int dir, uid_t uid, gid_t gid, std::string &why);

// Replaces NAME in DIR with DATA: a new file (O_EXCL), renamed over; DURABLE
// syncs it first (a file the next run must find whole after a crash).
bool replaceFile(int dir, const std::string &name, const std::string &data, mode_t mode, std::string &why, bool durable = false);

// Reads a whole small file NAME in DIR, never through a link.
bool readFile(int dir, const std::string &name, std::string &data);

// A short random text for names only this run uses.
std::string randomTag();

}
