// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Installs the tables the pane hands over on standard input, in parts named
// "crontab" (for /etc/crontab) and "anacrontab" (for /etc/anacrontab), each
// only when it changes nothing but Orvane's own lines. The crontab it
// replaces is kept as /etc/crontab.ov.
#include "ovhelper.h"
#include "ovtables.h"

#include <unistd.h>

using namespace ovhelper;

static constexpr size_t MaxTable = 1 << 20;

static std::string checked(const std::string &installed, const std::string &proposed, ovtables::Table table, const char *what)
{
    const auto text = ovtables::tableToInstall(installed, proposed, table);
    if (!text) {
        fail((std::string("refused: the new ") + what + " changes lines that are not Orvane's").c_str());
    }
    return *text;
}

int main(int argc, char **argv)
{
    start(argc, argv, "install_crontab");
    const auto parts = readParts({"crontab", "anacrontab"}, MaxTable);
    const int etc = openRootFolder("/etc", false);

    // Both are checked before either is installed.
    std::string crontab;
    std::string installedCrontab;
    bool crontabPresent = false;
    const auto cron = parts.find("crontab");
    if (cron != parts.end()) {
        crontabPresent = readFileAt(etc, "crontab", MaxTable, installedCrontab);
        if (!crontabPresent) {
            // The pane edits the saved copy when the crontab is missing.
            readFileAt(etc, "crontab.ov", MaxTable, installedCrontab);
        }
        crontab = checked(installedCrontab, cron->second, ovtables::Table::Cron, "crontab");
    }
    std::string anacrontab;
    const auto anacron = parts.find("anacrontab");
    if (anacron != parts.end()) {
        std::string installed;
        if (!readFileAt(etc, "anacrontab", MaxTable, installed)) {
            fail("refused: there is no /etc/anacrontab to edit");
        }
        anacrontab = checked(installed, anacron->second, ovtables::Table::Anacron, "anacrontab");
    }

    if (cron != parts.end()) {
        if (crontabPresent) {
            replaceFileAt(etc, "crontab.ov", installedCrontab, 0644);
        }
        replaceFileAt(etc, "crontab", crontab, 0644);
        done("installed /etc/crontab");
    }
    if (anacron != parts.end()) {
        replaceFileAt(etc, "anacrontab", anacrontab, 0644);
        done("installed /etc/anacrontab");
    }
    close(etc);
    return 0;
}
