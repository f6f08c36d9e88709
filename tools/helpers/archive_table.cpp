// Puts the item list the pane saved in /tmp in place, keeping the one it
// replaces beside it.
#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <unistd.h>

static bool looksLikePropertyList(const std::string &contents)
{
    return contents.compare(0, 8, "bplist00") == 0 || contents.compare(0, 5, "<?xml") == 0;
}

int main(int argc, char **argv)
{
    using namespace ovhelper;
    const Caller caller = start(argc, argv, "archive_table");

    std::string archive;
    if (!readCallerFile(caller, OVFixedPaths::TmpItemsArchive, 16 << 20, archive)) {
        fail("nothing to install: /tmp/BackupItems.plist does not exist");
    }
    if (!looksLikePropertyList(archive)) {
        fail("refused: /tmp/BackupItems.plist is not a property list");
    }

    const int folder = openDirectory(OVFixedPaths::SupportFolder);
    std::string previous;
    if (readFileAt(folder, OVFixedPaths::ItemsArchiveName, 16 << 20, previous) && previous != archive) {
        replaceFileAt(folder, OVFixedPaths::PreviousItemsArchiveName, previous, 0644);
    }
    replaceFileAt(folder, OVFixedPaths::ItemsArchiveName, archive, 0644);
    close(folder);
    return 0;
}
