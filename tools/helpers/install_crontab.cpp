// Installs /tmp/crontab.orvane as /etc/crontab and /tmp/anacrontab.orvane as
// /etc/anacrontab, each when present, and only when it changes nothing but
// Orvane's own lines. The crontab it replaces is kept as /etc/crontab.ov.
#include "ovfixedpaths.h"
#include "ovhelper.h"
#include "ovtables.h"

#include <cstdio>
#include <unistd.h>

using namespace ovhelper;

static constexpr size_t MaxTable = 1 << 20;

static void installCrontab(const Caller &caller, int etc)
{
    std::string proposed;
    if (!readCallerFile(caller, OVFixedPaths::TmpCrontab, MaxTable, proposed)) {
        return;
    }
    std::string installed;
    const bool present = readFileAt(etc, "crontab", MaxTable, installed);
    if (!present) {
        // The pane edits the saved copy when the crontab is missing.
        readFileAt(etc, "crontab.ov", MaxTable, installed);
    }
    if (!ovtables::onlyOwnLinesDiffer(installed, proposed, ovtables::Table::Cron)) {
        fail("refused: /tmp/crontab.orvane changes lines that are not Orvane's");
    }
    if (present) {
        replaceFileAt(etc, "crontab.ov", installed, 0644);
    }
    replaceFileAt(etc, "crontab", proposed, 0644);
    removeCallerFile(caller, OVFixedPaths::TmpCrontab);
}

static void installAnacrontab(const Caller &caller, int etc)
{
    std::string proposed;
    if (!readCallerFile(caller, OVFixedPaths::TmpAnacrontab, MaxTable, proposed)) {
        return;
    }
    std::string installed;
    if (!readFileAt(etc, "anacrontab", MaxTable, installed)) {
        fail("refused: there is no /etc/anacrontab to edit");
    }
    if (!ovtables::onlyOwnLinesDiffer(installed, proposed, ovtables::Table::Anacron)) {
        fail("refused: /tmp/anacrontab.orvane changes lines that are not Orvane's");
    }
    replaceFileAt(etc, "anacrontab", proposed, 0644);
    removeCallerFile(caller, OVFixedPaths::TmpAnacrontab);
}

int main(int argc, char **argv)
{
    const Caller caller = start(argc, argv, "install_crontab");
    const int etc = openDirectory("/etc");
    installCrontab(caller, etc);
    installAnacrontab(caller, etc);
    close(etc);
    return 0;
}
