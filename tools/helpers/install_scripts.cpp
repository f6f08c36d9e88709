// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Installs the scheduled scripts the pane hands over on standard input, in
// parts named "daily", "weekly" and "monthly". A schedule without a part
// has lost its last item: its installed script goes too.
#include "ovfixedpaths.h"
#include "ovhelper.h"
#include "ovscript.h"

#include <unistd.h>

int main(int argc, char **argv)
{
    using namespace ovhelper;
    start(argc, argv, "install_scripts");

    struct Schedule {
        const char *part;
        const char *folder;
        const char *name;
    };
    const Schedule schedules[] = {
        {"daily", OVFixedPaths::DailyFolder, OVFixedPaths::DailyScriptName},
        {"weekly", OVFixedPaths::WeeklyFolder, OVFixedPaths::WeeklyScriptName},
        {"monthly", OVFixedPaths::MonthlyFolder, OVFixedPaths::MonthlyScriptName},
    };

    // Check all three before installing any, so a refused input leaves the
    // installed set as it was. Cron runs them as root: only Orvane's own
    // template, filled in, is taken.
    const auto parts = readParts({"daily", "weekly", "monthly"}, 4 << 20);
    const std::string templateText = ovscript::installedTemplate();
    for (const auto &part : parts) {
        const std::string why = ovscript::whyNotFilledTemplate(templateText, part.second);
        if (!why.empty()) {
            fail(("refused: the " + part.first + " script: " + why).c_str());
        }
    }
    for (const Schedule &schedule : schedules) {
        const int folder = openRootFolder(schedule.folder, true);
        const auto part = parts.find(schedule.part);
        if (part != parts.end()) {
            replaceFileAt(folder, schedule.name, part->second, 0700);
            done("installed %s/%s", schedule.folder, schedule.name);
        } else {
            removeFileAt(folder, schedule.name);
        }
        close(folder);
    }
    return 0;
}
