// Shared rules of the set-user-ID helpers: who may run them, how they read
// their input from /tmp and how they put files into place as root.
#pragma once

#include <string>
#include <sys/types.h>

namespace ovhelper
{
struct Caller {
    uid_t uid;
    gid_t gid;
};

// Prints "tool: message" (and the errno text when errnum is set) and exits 1.
[[noreturn]] void fail(const char *message, int errnum = 0);

// Checks the argument list, cleans the process (environment, umask,
// descriptors), and refuses anyone but an administrator. Returns the caller.
Caller start(int argc, char **argv, const char *toolName);

// An administrator is root or a member of "admin", "sudo" or "wheel",
// looked up in the group database for the real user id.
bool isAdministrator(uid_t uid);

// Reads a file the caller handed over in /tmp, opened with the caller's
// rights and checked on the open descriptor. Returns false when the file
// does not exist; refuses (exits) on anything suspicious.
bool readCallerFile(const Caller &caller, const char *path, size_t maxSize, std::string &contents);

// Removes a consumed input with the caller's rights, never anyone else's file.
void removeCallerFile(const Caller &caller, const char *path);

// Opens a directory, refusing a symbolic link in any component of the path.
int openDirectory(const char *path);

// Reads a root-side file inside dirfd. Returns false when it does not exist.
bool readFileAt(int dirfd, const char *name, size_t maxSize, std::string &contents);

// Replaces dirfd/name atomically: a new file beside it, owned by root with
// the given mode, synced, renamed into place, and the folder synced.
void replaceFileAt(int dirfd, const char *name, const std::string &contents, mode_t mode);

// Removes dirfd/name; a missing file is fine.
void removeFileAt(int dirfd, const char *name);

// A backup script must at least be an executable script.
bool looksLikeScript(const std::string &contents);
}
