// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVScriptBuilder.h"

#include "OVBundle.h"

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

QByteArray toastApplicationNameLine(const QString &name)
{
    return "toastApplicationName = " + quoted(name.toUtf8());
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
    put("#ov_logfile", "logfile = " + quoted(script.logfile));
    put("#ov_lastBackup", "lastBackup = " + quoted(script.lastBackup));
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
    // The manual script runs as "Daily"; the notices tell it apart by this.
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
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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
        }
    }
    return script;
}

QList<QPair<QByteArray, QByteArray>>
buildScheduledScripts(const QVector<OVBackupItem> &items, const std::function<FrequencyOptions(OVFrequency)> &options, SharedOptions shared)
{
    const QByteArray templateText = readTemplate();
    shared.scheduled = true;
    fillUser(shared);
    QList<QPair<QByteArray, QByteArray>> scripts;
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        const Script filled = script(files.frequency, items, options(files.frequency));
        if (filled.sources.isEmpty() || templateText.isEmpty()) {
            continue;
        }
        scripts.append({QByteArray(files.word), fill(templateText, filled, shared)});
    }
    return scripts;
}

QByteArray buildManualScript(const QVector<OVBackupItem> &items, const FrequencyOptions &options, SharedOptions shared)
{
    const Script filled = script(OVFrequency::Manual, items, options);
    const QByteArray templateText = readTemplate();
    if (filled.sources.isEmpty() || templateText.isEmpty()) {
        return {};
    }
    shared.scheduled = false;
    fillUser(shared);
    return fill(templateText, filled, shared);
}
}
