// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The script filler, checked by Ruby itself: a name that ended its literal would run as root.
#include "OVBackupItem.h"
#include "OVScriptBuilder.h"
#include "ovfixedpaths.h"
#include <QFile>
#include <QProcess>
#include <QTest>

using namespace OVScriptBuilder;

namespace
{
QByteArray sourceTemplate()
{
    QFile file(QStringLiteral(OV_SOURCE_DIR "/resources/backup_script.rb"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The variables of a filled script as Ruby sees them, one "name=inspect" a line.
QByteArray rubyValues(const QByteArray &script)
{
    const QString program = QStringLiteral(
        "b = binding; eval(STDIN.binmode.read.split(\"\\nclass OrvaneBackup\").first, b); "
        "b.local_variables.sort.each { |v| puts \"#{v}=#{b.local_variable_get(v).inspect}\" }");
    QProcess ruby;
    ruby.start(QStringLiteral("ruby"), {QStringLiteral("--disable-gems"), QStringLiteral("-e"), program});
    ruby.write(script);
    ruby.closeWriteChannel();
    ruby.waitForFinished();
    return ruby.exitCode() == 0 ? ruby.readAllStandardOutput() : QByteArray("ruby failed: ") + ruby.readAllStandardError();
}

// Each line, split at "|", is in the text.
void hasLines(const QByteArray &text, const char *lines)
{
    for (const QByteArray &line : QByteArray(lines).split('|')) {
        QVERIFY2(text.contains(line + '\n'), QByteArray(line + "\nnot in\n" + text).constData());
    }
}

Script dailyScript()
{
    Script script;
    script.frequency = "Daily";
    script.logfile = OVFixedPaths::DailyLog;
    script.lastBackup = QByteArray(OVFixedPaths::DailyFolder) + "/.lastbackup";
    script.sources = {"/home/ann/Fotos"};
    script.destinations = {"/media/ann/Backup"};
    return script;
}
}

class TestScriptFill : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void everyPlaceholderAndDefaultLine()
    {
        const QByteArray templateText = sourceTemplate();
        QVERIFY(!templateText.isEmpty());
        Script script = dailyScript();
        script.frequency = "Weekly";
        script.options = {true, true, true, true};
        SharedOptions shared;
        shared.promptBeforeBackup = shared.waitUntilAway = shared.autoConnect = shared.safetyNet = true;
        shared.server = QStringLiteral("smb://nas");
        shared.account = shared.username = QStringLiteral("ann");
        shared.maxArchives = QStringLiteral("5");
        shared.archiveIndex = 1;
        shared.safetyNetFolder = QStringLiteral("/home/ann/Documents/Safety Net Archives");
        shared.toastApplication = QStringLiteral("Toast Titanium");
        const QByteArray filled = fill(templateText, script, shared);
        // Every placeholder is filled but the exclusions, which the items fill; unfilled, the template's empty lists stand.
        for (const QByteArray &line : filled.split('\n')) {
            QVERIFY2(!line.startsWith("#ov_") || line == "#ov_exclusions" || line == "#ov_removedExclusions", line.constData());
        }
        hasLines(filled,
                 "backupCommand = \"/usr/local/bin/psync -drm\"|showProgress = true|repairPermissions = true|promptBeforeBackup = true|"
                 "shouldWaitUntilAway = true|remoteVolumeName = \"\"|archiveContents = \"Changed\"|toastApplicationName = \"Toast Titanium\"|"
                 "errorFile = \"/var/log/.orvane_weekly.err\"|progressFile = \"/tmp/ov_Weekly.progress\"");
        // The manual script never takes the prompt nor the wait; with the Safety Net off its lines keep their defaults but for the folder.
        shared.scheduled = shared.safetyNet = shared.autoConnect = false;
        shared.toastApplication.clear();
        script.options = {};
        hasLines(fill(templateText, script, shared),
                 "backupCommand = \"/usr/local/bin/psync\"|promptBeforeBackup = false|shouldWaitUntilAway = false|maxArchives = 0|"
                 "safetyNetFolder = \"\"|remoteServerName = \"smb://nas\"|toastApplicationName = \"Toast Titanium\"");
        // Safety Net on with nothing chosen: the contents line stays as it is.
        shared.safetyNet = true;
        shared.archiveIndex = -1;
        QVERIFY(fill(templateText, script, shared).contains("archiveContents = \"\"\n"));
    }

    void namesReachRubyByteForByte()
    {
        Script script = dailyScript();
        const QByteArray hostile = "/srv/\"quoted\" #{`touch /tmp/pwned`} back\\slash\nnew line \xc3\xa9 \xff";
        script.sources = {hostile, "/srv/plain"};
        script.destinations = {"Toast", "/media/b#{x}"};
        SharedOptions shared;
        shared.username = QStringLiteral("ann\"; system(\"id\") #");
        shared.safetyNet = true;
        shared.maxArchives = QStringLiteral("3");
        shared.safetyNetFolder = QStringLiteral("/home/#{ann}/Safety Net Archives");
        const QByteArray values = rubyValues(fill(sourceTemplate(), script, shared));
        hasLines(values,
                 "sourceFolders=[\"/srv/\\\"quoted\\\" \\#{`touch /tmp/pwned`} back\\\\slash\\nnew line \\xC3\\xA9 \\xFF\", \"/srv/plain\"]|"
                 "destFolders=[\"Toast\", \"/media/b\\#{x}\"]|username=\"ann\\\"; system(\\\"id\\\") #\"|"
                 "safetyNetFolder=\"/home/\\#{ann}/Safety Net Archives\"");
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/pwned")));
    }

    // Each pair's exclusions, in the order of the sources, as Ruby reads them; the template's lines as it keeps them.
    void exclusionsPerPair()
    {
        OVBackupItem withExclusions;
        withExclusions.setCheckColumn(true);
        withExclusions.setSourcePath(QStringLiteral("/home/ann"));
        withExclusions.setDestPath(QStringLiteral("/media/ann/Backup"));
        withExclusions.setExclusions({QStringLiteral("/home/ann/\"x\" #{`id`}\\"), QStringLiteral("*.tmp")}, {QStringLiteral("*.tmp")});
        OVBackupItem without = withExclusions;
        without.setExclusions({});
        OVBackupItem weekly = withExclusions;
        weekly.setFrequencyColumn(int(OVFrequency::Weekly));
        const Script script = OVScriptBuilder::script(OVFrequency::Daily, {withExclusions, weekly, without}, FrequencyOptions());
        const QByteArray templateText = "exclusions = [ ]\n#ov_exclusions\nremovedExclusions = [ ]\n#ov_removedExclusions\n";
        const QByteArray filled = fill(templateText, script, SharedOptions());
        QVERIFY(filled.contains("\nremovedExclusions = [ [ \"*.tmp\" ], [ ] ]\n"));
        hasLines(rubyValues(filled), "exclusions=[[\"/home/ann/\\\"x\\\" \\#{`id`}\\\\\", \"*.tmp\"], []]|removedExclusions=[[\"*.tmp\"], []]");
        // A script made without them still has one list per pair.
        Script bare = dailyScript();
        bare.sources.append("/srv/b");
        bare.destinations.append("/media/b");
        QVERIFY(fill(templateText, bare, SharedOptions()).startsWith("exclusions = [ ]\nexclusions = [ [ ], [ ] ]\n"));
    }

    // A name holding any line of the template's settings is data: each line is filled once, never searched again.
    void namesHoldingPlaceholdersStayData()
    {
        QList<QByteArray> searches;
        const QByteArray text = sourceTemplate();
        for (const QByteArray &line : text.left(text.indexOf("\nclass OrvaneBackup")).split('\n')) {
            if (line.startsWith("#ov_") || line.contains(" = ")) {
                searches.append(line);
            }
        }
        QVERIFY(searches.size() > 40);
        // Ruby's inspect of the ASCII names below.
        auto inspect = [](const QByteArray &bytes) -> QByteArray {
            QByteArray out = "\"";
            for (int i = 0; i < bytes.size(); ++i) {
                const char c = bytes.at(i);
                const bool escaped = c == '"' || c == '\\' || (c == '#' && i + 1 < bytes.size() && QByteArray("{$@").contains(bytes.at(i + 1)));
                out += c == '\n' ? QByteArray("\\n") : escaped ? QByteArray("\\") + c : QByteArray(1, c);
            }
            return out + '"';
        };
        Script script = dailyScript();
        script.sources = script.destinations = {};
        QByteArrayList sources, destinations, exclusions;
        for (const QByteArray &search : searches) {
            script.sources.append(QByteArray("/srv/a\n" + search + "\nb"));
            script.destinations.append(QByteArray(search + " \"; system(\"id\") #{1}"));
            sources += inspect(script.sources.last());
            destinations += inspect(script.destinations.last());
            exclusions += "[]";
        }
        SharedOptions shared;
        shared.username = QStringLiteral("ann\n#ov_logfile\n");
        shared.safetyNet = true;
        shared.maxArchives = QStringLiteral("3");
        shared.safetyNetFolder = QStringLiteral("/home/ann/\nsafetyNetFolder = safetyNetFolder\n#ov_destFolders");
        for (const bool scheduled : {true, false}) {
            shared.scheduled = scheduled;
            const QByteArray values = rubyValues(fill(text, script, shared));
            for (const QByteArray &line : {QByteArray("sourceFolders=[" + sources.join(", ") + "]"),
                                           QByteArray("destFolders=[" + destinations.join(", ") + "]"),
                                           QByteArray("logfile=\"/var/log/orvane_daily.log\""),
                                           QByteArray("exclusions=[" + exclusions.join(", ") + "]"),
                                           QByteArray("username=" + inspect("ann\n#ov_logfile\n")),
                                           QByteArray("safetyNetFolder=" + inspect(QFile::encodeName(shared.safetyNetFolder))),
                                           QByteArray(scheduled ? "runKind=\"scheduled\"" : "runKind=\"manual\"")}) {
                QVERIFY2(values.contains(QByteArray(line + '\n')), QByteArray(line + "\nnot in\n" + values).constData());
            }
        }
    }
};

QTEST_MAIN(TestScriptFill)
#include "test_scriptfill.moc"
