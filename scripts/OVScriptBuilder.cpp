// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVScriptBuilder.h"

#include "OVBundle.h"
#include "OVSettings.h"
#include "ovscripts_debug.h"

#include <QFile>
#include <QPair>

#include <algorithm>

#include <pwd.h>
#include <unistd.h>

namespace OVScriptBuilder
{
QByteArray rubyEscaped(const QByteArray &bytes)
{
    QByteArray escaped;
    escaped.reserve(bytes.size());
    for (const char c : bytes) {
        if (c == '\\' || c == '"' || c == '#') {
            escaped.append('\\');
        }
        escaped.append(c);
    }
    return escaped;
}

QByteArray quoted(const QByteArray &bytes)
{
    return '"' + rubyEscaped(bytes) + '"';
}

QByteArray commandLiteral(bool mirror, bool remote)
{
    if (!mirror && !remote) {
        return QByteArrayLiteral("\"/usr/local/bin/psync\"");
    }
    return "\"/usr/local/bin/psync -" + QByteArray(mirror ? "d" : "") + QByteArray(remote ? "rm" : "") + '"';
}

QByteArray listLine(const char *name, const QList<QByteArray> &entries)
{
    QByteArray line = QByteArray(name) + " = [ \"";
    for (const QByteArray &entry : entries) {
        line += rubyEscaped(entry) + "\", \"";
    }
    line.chop(3);
    return line + " ]";
}

QByteArray pairListsLine(const char *name, const QList<QList<QByteArray>> &lists)
{
    QList<QByteArray> parts;
    for (const QList<QByteArray> &list : lists) {
        QList<QByteArray> entries;
        for (const QByteArray &entry : list) {
            entries.append(quoted(entry));
        }
        parts.append(entries.isEmpty() ? QByteArrayLiteral("[ ]") : "[ " + entries.join(", ") + " ]");
    }
    return QByteArray(name) + " = [ " + parts.join(", ") + " ]";
}

QByteArray toastApplicationNameLine(const QString &name)
{
    return "toastApplicationName = " + quoted(name.toUtf8());
}

namespace
{
const OVFixedPaths::FrequencyFiles &filesNamed(const QByteArray &frequency)
{
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        if (frequency == files.name) {
            return files;
        }
    }
    return OVFixedPaths::Scheduled[0];
}
}

QByteArray fill(const QByteArray &templateText, const Script &script, const SharedOptions &shared)
{
    // Each search text is a whole line of the template and is replaced once,
    // at that line: the filled text is never searched again, so a name that
    // holds a placeholder (or any other text) stays data.
    QList<QPair<QByteArray, QByteArray>> lines;
    auto put = [&lines](const char *search, const QByteArray &line) {
        lines.append({QByteArray(search), line});
    };
    const FrequencyOptions &o = script.options;
    put("#ov_frequency", "frequency = " + quoted(script.frequency));
    put("#ov_backupCommand", "backupCommand = " + commandLiteral(o.mirror, o.remote));
    put("#ov_sourceFolders", listLine("sourceFolders", script.sources));
    put("#ov_destFolders", listLine("destFolders", script.destinations));
    // One list per pair, whatever the script was given.
    QList<QList<QByteArray>> exclusions;
    QList<QList<QByteArray>> removedExclusions;
    for (int pair = 0; pair < script.sources.size(); ++pair) {
        exclusions.append(script.exclusions.value(pair));
        removedExclusions.append(script.removedExclusions.value(pair));
    }
    put("#ov_exclusions", pairListsLine("exclusions", exclusions));
    put("#ov_removedExclusions", pairListsLine("removedExclusions", removedExclusions));
    put("#ov_logfile", "logfile = " + quoted(script.logfile));
    put("#ov_lastBackup", "lastBackup = " + quoted(script.lastBackup));
    // The run's other files, from the table of the frequency it runs as.
    const OVFixedPaths::FrequencyFiles &files = filesNamed(script.frequency);
    put("#ov_lastRun", "lastRun = " + quoted(files.lastRun));
    put("#ov_disks", "disksFile = " + quoted(files.disks));
    put("#ov_archiveRecord", "archiveRecord = " + quoted(files.archiveRecord));
    put("#ov_runFlag", "runFlag = " + quoted(files.runFlag));
    put("#ov_errorFile", "errorFile = " + quoted(files.errors));
    put("#ov_progressFile", "progressFile = " + quoted(files.progress));
    put("#ov_resources", "resourcesFolder = " + quoted(OVFixedPaths::ResourcesPath));
    put("#ov_toastApplicationName", shared.toastApplication.isEmpty() ? QByteArray() : toastApplicationNameLine(shared.toastApplication));
    put("#ov_username", "username = " + quoted(shared.username.toUtf8()));
    put("#ov_remoteBackup", o.remote ? "remoteBackup = true" : "remoteBackup = false");
    if (o.showProgress) {
        put("showProgress = false", "showProgress = true");
    }
    if (o.repairPermissions) {
        put("repairPermissions = false", "repairPermissions = true");
    }
    if (shared.scheduled && shared.promptBeforeBackup) {
        put("promptBeforeBackup = false", "promptBeforeBackup = true");
    }
    if (shared.scheduled && shared.waitUntilAway) {
        put("shouldWaitUntilAway = false", "shouldWaitUntilAway = true");
    }
    if (shared.autoConnect) {
        put("autoConnect = false", "autoConnect = true");
    }
    // With auto-connect off too: a run onto the remote volume has automount
    // prove that what is mounted there is this server's volume.
    put("remoteServerName = \"\"", "remoteServerName = " + quoted(shared.server.toUtf8()));
    put("remoteAccountName = \"\"", "remoteAccountName = " + quoted(shared.account.toUtf8()));
    put("remoteVolumeName = \"\"", "remoteVolumeName = " + quoted(shared.volume.toUtf8()));
    put("shouldArchive = shouldArchive", shared.safetyNet ? "shouldArchive = true" : "shouldArchive = false");
    if (shared.safetyNet) {
        // A count is digits only; anything else would not be a number.
        bool number = false;
        const int count = shared.maxArchives.trimmed().toInt(&number);
        put("maxArchives = 0", "maxArchives = " + QByteArray::number(number ? count : 0));
        put("safetyNetFolder = safetyNetFolder", "safetyNetFolder = " + quoted(QFile::encodeName(shared.safetyNetFolder)));
        static const char *const Contents[] = {"Everything", "Changed", "Deleted"};
        if (shared.archiveIndex >= 0 && shared.archiveIndex <= 2) {
            put("archiveContents = \"\"", "archiveContents = \"" + QByteArray(Contents[shared.archiveIndex]) + '"');
        }
    } else {
        put("safetyNetFolder = safetyNetFolder", "safetyNetFolder = \"\"");
    }
    // The manual script runs as the first schedule; the notices tell it apart by this.
    if (!shared.scheduled) {
        put("runKind = \"scheduled\"", "runKind = \"manual\"");
    }

    QByteArray text;
    text.reserve(templateText.size() + 4096);
    int start = 0;
    while (start < templateText.size()) {
        int end = templateText.indexOf('\n', start);
        const bool lastLine = end < 0;
        if (lastLine) {
            end = templateText.size();
        }
        const QByteArray line = templateText.mid(start, end - start);
        // A template saved with CRLF line ends still matches.
        const QByteArray bare = line.endsWith('\r') ? line.chopped(1) : line;
        auto match = std::find_if(lines.begin(), lines.end(), [&bare](const QPair<QByteArray, QByteArray> &l) {
            return l.first == bare;
        });
        if (match != lines.end()) {
            text += match->second;
            lines.erase(match);
        } else {
            text += line;
        }
        if (!lastLine) {
            text += '\n';
        }
        start = end + 1;
    }
    return text;
}

QByteArray readTemplate()
{
    QFile file(OVBundle::pathForResource(QStringLiteral("backup_script"), QStringLiteral("rb")));
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(OVLOG_SCRIPTS) << "cannot read the script template" << file.fileName() << file.errorString();
        return QByteArray();
    }
    return file.readAll();
}

namespace
{
QString currentUserName()
{
    const passwd *pw = getpwuid(getuid());
    return pw ? QString::fromLocal8Bit(pw->pw_name) : QString();
}

void fillUser(SharedOptions &shared)
{
    if (shared.username.isEmpty()) {
        shared.username = currentUserName();
    }
}
}

Script script(OVFrequency frequency, const QVector<OVBackupItem> &items, const FrequencyOptions &options)
{
    const OVFixedPaths::FrequencyFiles &files = OVFixedPaths::files(frequency);
    Script script;
    script.frequency = files.name;
    script.logfile = files.log;
    script.lastBackup = files.lastBackup;
    script.options = options;
    for (const OVBackupItem &item : items) {
        if (item.qualifiesFor(frequency)) {
            script.sources.append(QFile::encodeName(item.sourcePath()));
            script.destinations.append(item.toast() ? QByteArray("Toast") : QFile::encodeName(item.destPath()));
            QList<QByteArray> exclusions;
            QList<QByteArray> removed;
            for (const QString &entry : item.exclusions()) {
                exclusions.append(QFile::encodeName(entry));
                if (item.exclusionsRemovedFromBackup().contains(entry)) {
                    removed.append(QFile::encodeName(entry));
                }
            }
            script.exclusions.append(exclusions);
            script.removedExclusions.append(removed);
        }
    }
    return script;
}

FrequencyOptions frequencyOptions(const OVSettings &settings, OVFrequency frequency)
{
    FrequencyOptions options;
    options.mirror = settings.mirrorFolders(frequency);
    options.remote = settings.remoteBackup(frequency);
    options.showProgress = settings.showProgress(frequency);
    options.repairPermissions = settings.repairPermissions(frequency);
    return options;
}

SharedOptions sharedOptions(const OVSettings &settings)
{
    SharedOptions shared;
    shared.promptBeforeBackup = settings.promptBeforeBackup();
    shared.waitUntilAway = settings.waitUntilAway();
    shared.autoConnect = settings.autoConnect();
    shared.server = settings.remoteServerAddress();
    shared.account = settings.remoteUserName();
    shared.volume = settings.remoteVolumeName();
    shared.safetyNet = settings.safetyNet();
    shared.maxArchives = QString::number(settings.maxArchives());
    shared.archiveIndex = settings.archiveItems();
    shared.safetyNetFolder = settings.safetyNetFolder();
    return shared;
}

QList<QPair<QByteArray, QByteArray>> buildScheduledScripts(const QVector<OVBackupItem> &items, const OVSettings &settings, const QString &toast)
{
    const QByteArray templateText = readTemplate();
    SharedOptions shared = sharedOptions(settings);
    shared.toastApplication = toast;
    shared.scheduled = true;
    fillUser(shared);
    QList<QPair<QByteArray, QByteArray>> scripts;
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        const Script filled = script(files.frequency, items, frequencyOptions(settings, files.frequency));
        if (filled.sources.isEmpty() || templateText.isEmpty()) {
            continue;
        }
        scripts.append({QByteArray(files.word), fill(templateText, filled, shared)});
    }
    return scripts;
}

QByteArray buildManualScript(const QVector<OVBackupItem> &items, const OVSettings &settings, const QString &toast)
{
    const Script filled = script(OVFrequency::Manual, items, frequencyOptions(settings, OVFrequency::Manual));
    const QByteArray templateText = readTemplate();
    if (filled.sources.isEmpty() || templateText.isEmpty()) {
        return {};
    }
    SharedOptions shared = sharedOptions(settings);
    shared.toastApplication = toast;
    shared.scheduled = false;
    fillUser(shared);
    return fill(templateText, filled, shared);
}
}
