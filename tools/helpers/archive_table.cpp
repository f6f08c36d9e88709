// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Puts the item list the pane hands over on standard input in place,
// keeping the one it replaces beside it.
#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace ovhelper;

// What this helper installed last: device, inode, size and change time of
// the archive, so the next save can tell an archive of ours from one that
// came some other way (a Mac, a hand, a broken disk).
static constexpr char Record[] = ".BackupItems.installed";

static bool looksLikePropertyList(const std::string &contents)
{
    return contents.compare(0, 8, "bplist00") == 0 || contents.compare(0, 5, "<?xml") == 0;
}

static std::string identity(int folder, const char *name)
{
    struct stat st;
    if (fstatat(folder, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::string();
    }
    char text[128];
    std::snprintf(text,
                  sizeof text,
                  "%llu %llu %lld %lld.%09ld\n",
                  static_cast<unsigned long long>(st.st_dev),
                  static_cast<unsigned long long>(st.st_ino),
                  static_cast<long long>(st.st_size),
                  static_cast<long long>(st.st_ctim.tv_sec),
                  st.st_ctim.tv_nsec);
    return text;
}

int main(int argc, char **argv)
{
    start(argc, argv, "archive_table");

    const std::string archive = readInput(16 << 20);
    if (!looksLikePropertyList(archive)) {
        fail("refused: the item list is not a property list");
    }

    const int folder = openRootFolder(OVFixedPaths::SupportFolder, true);
    std::string current;
    if (readFileAt(folder, OVFixedPaths::ItemsArchiveName, 16 << 20, current) && current != archive) {
        std::string record;
        readFileAt(folder, Record, 4096, record);
        if (!record.empty() && record == identity(folder, OVFixedPaths::ItemsArchiveName)) {
            replaceFileAt(folder, OVFixedPaths::PreviousItemsArchiveName, current, 0644);
        } else {
            // Not ours: the pane may not have been able to read it, and the
            // one-step previous copy would lose it at the save after next.
            char name[64];
            const std::time_t now = std::time(nullptr);
            std::strftime(name, sizeof name, "BackupItems.kept-%Y%m%d-%H%M%S.plist", std::gmtime(&now));
            replaceFileAt(folder, name, current, 0644);
            done("kept an archive it had not installed as %s", name);
        }
    }
    replaceFileAt(folder, OVFixedPaths::ItemsArchiveName, archive, 0644);
    replaceFileAt(folder, Record, identity(folder, OVFixedPaths::ItemsArchiveName), 0644);
    close(folder);
    done("installed the item list (%zu bytes)", archive.size());
    return 0;
}
