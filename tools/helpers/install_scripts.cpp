// Installs the scheduled scripts the pane wrote to /tmp. A schedule whose
// temporary script is absent has lost its last item: its installed script
// goes too.
#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <unistd.h>

int main(int argc, char **argv)
{
    using namespace ovhelper;
    const Caller caller = start(argc, argv, "install_scripts");

    struct Schedule {
        const char *temporary;
        const char *folder;
        const char *name;
    };
    const Schedule schedules[] = {
        {OVFixedPaths::TmpDailyScript, OVFixedPaths::DailyFolder, OVFixedPaths::DailyScriptName},
        {OVFixedPaths::TmpWeeklyScript, OVFixedPaths::WeeklyFolder, OVFixedPaths::WeeklyScriptName},
        {OVFixedPaths::TmpMonthlyScript, OVFixedPaths::MonthlyFolder, OVFixedPaths::MonthlyScriptName},
    };

    // Read and check all three before installing any, so a refused input
    // leaves the installed set as it was.
    std::string scripts[3];
    bool present[3];
    for (int i = 0; i < 3; ++i) {
        present[i] = readCallerFile(caller, schedules[i].temporary, 4 << 20, scripts[i]);
        if (present[i] && !looksLikeScript(scripts[i])) {
            fail("refused: a temporary script does not start with #!");
        }
    }
    for (int i = 0; i < 3; ++i) {
        const int folder = openDirectory(schedules[i].folder);
        if (present[i]) {
            replaceFileAt(folder, schedules[i].name, scripts[i], 0700);
        } else {
            removeFileAt(folder, schedules[i].name);
        }
        close(folder);
    }
    return 0;
}
