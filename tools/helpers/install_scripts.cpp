// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Installs the scheduled scripts the pane hands over on standard input, in
// parts named by each schedule's word ("daily"). A schedule without a part
// has lost its last item: its installed script goes too.
#include "ovfixedpaths.h"
#include "ovhelper.h"
#include "ovscript.h"

#include <set>
#include <string>

#include <unistd.h>

int main(int argc, char **argv)
{
    using namespace ovhelper;
    start(argc, argv, "install_scripts");

    // Check every script before installing any, so a refused input leaves the
    // installed set as it was. Cron runs them as root: only Orvane's own
    // template, filled in, is taken.
    std::set<std::string> names;
    for (const OVFixedPaths::FrequencyFiles &schedule : OVFixedPaths::Scheduled) {
        names.insert(schedule.word);
    }
    const auto parts = readParts(names, 4 << 20);
    const std::string templateText = ovscript::installedTemplate();
    for (const auto &part : parts) {
        const std::string why = ovscript::whyNotFilledTemplate(templateText, part.second);
        if (!why.empty()) {
            fail(("refused: the " + part.first + " script: " + why).c_str());
        }
    }
    for (const OVFixedPaths::FrequencyFiles &schedule : OVFixedPaths::Scheduled) {
        const int folder = openRootFolder(schedule.folder, true);
        const auto part = parts.find(schedule.word);
        if (part != parts.end()) {
            replaceFileAt(folder, schedule.scriptName, part->second, 0700);
            done("installed %s", schedule.script);
        } else {
            removeFileAt(folder, schedule.scriptName);
        }
        close(folder);
    }
    return 0;
}
