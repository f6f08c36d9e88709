// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Writes to standard output the script the pane's builder fills from the installed template:
//   ov_fill_script [--manual] [--frequency Daily|Weekly|Monthly] [--mirror] [--remote] [--progress] [--repair] [--prompt]
//                  [--wait] [--user NAME] [--toast NAME] [--autoconnect SERVER ACCOUNT VOLUME] [--server SERVER ACCOUNT VOLUME]
//                  [--safetynet FOLDER COUNT Everything|Changed|Deleted] [--stored] SOURCE DESTINATION [SOURCE DESTINATION]...
// --stored takes the options from the settings stored in $HOME, as the module does. Paths are taken as the bytes given.
#include "OVScriptBuilder.h"
#include "OVSettings.h"
#include <cstdio>
#include <map>

using namespace OVScriptBuilder;

int main(int argc, char **argv)
{
    SharedOptions shared;
    FrequencyOptions options;
    OVFrequency frequency = OVFrequency::Daily;
    QList<QByteArray> paths;
    bool stored = false;
    const auto usage = [] {
        std::fputs("usage: ov_fill_script [options] SOURCE DESTINATION...\n", stderr);
        return 2;
    };
    const std::map<QByteArray, bool *> flags{{"--mirror", &options.mirror},
                                             {"--remote", &options.remote},
                                             {"--progress", &options.showProgress},
                                             {"--repair", &options.repairPermissions},
                                             {"--prompt", &shared.promptBeforeBackup},
                                             {"--wait", &shared.waitUntilAway},
                                             {"--stored", &stored}};
    for (int i = 1; i < argc; ++i) {
        const QByteArray a(argv[i]);
        const int left = argc - i - 1;
        if (const auto flag = flags.find(a); flag != flags.end()) {
            *flag->second = true;
        } else if (a == "--manual") {
            frequency = OVFrequency::Manual;
        } else if (a == "--frequency" && left >= 1) {
            const QByteArray f(argv[++i]);
            frequency = f == "Weekly" ? OVFrequency::Weekly : f == "Monthly" ? OVFrequency::Monthly : OVFrequency::Daily;
        } else if (a == "--user" && left >= 1) {
            shared.username = QString::fromLocal8Bit(argv[++i]);
        } else if (a == "--toast" && left >= 1) {
            shared.toastApplication = QString::fromLocal8Bit(argv[++i]);
        } else if ((a == "--autoconnect" || a == "--server") && left >= 3) {
            shared.autoConnect = a == "--autoconnect";
            shared.server = QString::fromLocal8Bit(argv[++i]);
            shared.account = QString::fromLocal8Bit(argv[++i]);
            shared.volume = QString::fromLocal8Bit(argv[++i]);
        } else if (a == "--safetynet" && left >= 3) {
            shared.safetyNet = true;
            shared.safetyNetFolder = QString::fromLocal8Bit(argv[++i]);
            shared.maxArchives = QString::fromLocal8Bit(argv[++i]);
            const QByteArray contents(argv[++i]);
            shared.archiveIndex = contents == "Everything" ? 0 : contents == "Changed" ? 1 : contents == "Deleted" ? 2 : -1;
        } else if (a.startsWith("--")) {
            return usage();
        } else {
            paths.append(a);
        }
    }
    if (paths.isEmpty() || paths.size() % 2 != 0) {
        return usage();
    }
    const QByteArray templateText = readTemplate();
    if (templateText.isEmpty()) {
        std::fputs("ov_fill_script: the installed template cannot be read\n", stderr);
        return 1;
    }
    const OVFixedPaths::FrequencyFiles &files = OVFixedPaths::files(frequency);
    Script script;
    script.frequency = files.name;
    script.logfile = files.log;
    script.lastBackup = files.lastBackup;
    for (int i = 0; i < paths.size(); i += 2) {
        script.sources.append(paths.at(i));
        script.destinations.append(paths.at(i + 1));
    }
    if (stored) {
        const OVSettings settings = OVSettings::stored();
        const QString user = shared.username;
        shared = sharedOptions(settings);
        shared.username = user;
        options = frequencyOptions(settings, frequency);
    }
    script.options = options;
    shared.scheduled = frequency != OVFrequency::Manual;
    shared.username = shared.username.isEmpty() ? QStringLiteral("root") : shared.username;
    const QByteArray text = fill(templateText, script, shared);
    return std::fwrite(text.constData(), 1, text.size(), stdout) == static_cast<size_t>(text.size()) ? 0 : 1;
}
