// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Removes the installed scheduled scripts when backups are switched off.
#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <unistd.h>

int main(int argc, char **argv)
{
    using namespace ovhelper;
    start(argc, argv, "remove_scripts");

    const char *const folders[] = {OVFixedPaths::DailyFolder, OVFixedPaths::WeeklyFolder, OVFixedPaths::MonthlyFolder};
    const char *const names[] = {OVFixedPaths::DailyScriptName, OVFixedPaths::WeeklyScriptName, OVFixedPaths::MonthlyScriptName};
    for (int i = 0; i < 3; ++i) {
        const int folder = openRootFolder(folders[i], true);
        removeFileAt(folder, names[i]);
        close(folder);
    }
    done("removed the scheduled scripts");
    return 0;
}
