// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The script filler: every placeholder and default line, and the escaping of
// names, checked by Ruby itself (a name that ended its literal would run as
// root). Any user; ruby must be installed.
#include "OVScriptBuilder.h"
#include "ovfixedpaths.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
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
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("script.rb")));
    file.open(QIODevice::WriteOnly);
    file.write(script);
    file.close();
    QProcess ruby;
    ruby.start(QStringLiteral("ruby"),
               {QStringLiteral("--disable-gems"),
                QStringLiteral("-e"),
                QStringLiteral("b = binding; eval(File.binread(ARGV[0]).split(\"\\nclass OrvaneBackup\").first, b); "
                               "b.local_variables.sort.each { |v| puts \"#{v}=#{b.local_variable_get(v).inspect}\" }"),
                file.fileName()});
    ruby.waitForFinished();
    return ruby.exitCode() == 0 ? ruby.readAllStandardOutput() : QByteArray("ruby failed: ") + ruby.readAllStandardError();
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
    void listsAndCommands()
    {
        QCOMPARE(listLine("sourceFolders", {"P"}), QByteArray("sourceFolders = [ \"P\" ]"));
        QCOMPARE(listLine("sourceFolders", {"P1", "P2", "P3"}), QByteArray("sourceFolders = [ \"P1\", \"P2\", \"P3\" ]"));
        QCOMPARE(listLine("destFolders", {"D1", "Toast", "D3"}), QByteArray("destFolders = [ \"D1\", \"Toast\", \"D3\" ]"));
        QCOMPARE(commandLiteral(false, false), QByteArray("\"/usr/local/bin/psync\""));
        QCOMPARE(commandLiteral(true, false), QByteArray("\"/usr/local/bin/psync -d\""));
        QCOMPARE(commandLiteral(false, true), QByteArray("\"/usr/local/bin/psync -rm\""));
        QCOMPARE(commandLiteral(true, true), QByteArray("\"/usr/local/bin/psync -drm\""));
        QCOMPARE(rubyEscaped("a\"b\\c#{d}"), QByteArray("a\\\"b\\\\c\\#{d}"));
    }

    void everyPlaceholderAndDefaultLine()
    {
        const QByteArray templateText = sourceTemplate();
        QVERIFY(!templateText.isEmpty());
        Script script = dailyScript();
        script.frequency = "Weekly";
        script.options = {true, false, true, true};
        SharedOptions shared;
        shared.promptBeforeBackup = true;
        shared.waitUntilAway = true;
        shared.autoConnect = true;
        shared.server = QStringLiteral("smb://nas");
        shared.account = QStringLiteral("ann");
        shared.volume = QString();
        shared.safetyNet = true;
        shared.maxArchives = QStringLiteral("5");
        shared.archiveIndex = 1;
        shared.safetyNetFolder = QStringLiteral("/home/ann/Documents/Safety Net Archives");
        shared.toastApplication = QStringLiteral("Toast Titanium");
        shared.username = QStringLiteral("ann");
        const QByteArray filled = fill(templateText, script, shared);
        QVERIFY(!filled.contains("#ov_"));
        for (const char *line : {"frequency = \"Weekly\"",
                                 "backupCommand = \"/usr/local/bin/psync -d\"",
                                 "remoteBackup = false",
                                 "showProgress = true",
                                 "repairPermissions = true",
                                 "promptBeforeBackup = true",
                                 "shouldWaitUntilAway = true",
                                 "autoConnect = true",
                                 "remoteServerName = \"smb://nas\"",
                                 "remoteAccountName = \"ann\"",
                                 "remoteVolumeName = \"\"",
                                 "shouldArchive = true",
                                 "maxArchives = 5",
                                 "archiveContents = \"Changed\"",
                                 "username = \"ann\"",
                                 "toastApplicationName = \"Toast Titanium\"",
                                 "safetyNetFolder = \"/home/ann/Documents/Safety Net Archives\""}) {
            QVERIFY2(filled.contains(QByteArray(line) + '\n'), line);
        }

        // The manual script never takes the prompt nor the wait; with the
        // Safety Net off its lines keep their defaults but for the folder.
        shared.scheduled = false;
        shared.safetyNet = false;
        shared.autoConnect = false;
        shared.toastApplication.clear();
        script.options = {};
        const QByteArray manual = fill(templateText, script, shared);
        for (const char *line : {"promptBeforeBackup = false",
                                 "shouldWaitUntilAway = false",
                                 "shouldArchive = false",
                                 "maxArchives = 0",
                                 "archiveContents = \"\"",
                                 "safetyNetFolder = \"\"",
                                 "remoteServerName = \"smb://nas\"",
                                 "autoConnect = false",
                                 "backupCommand = \"/usr/local/bin/psync\"",
                                 "toastApplicationName = \"Toast Titanium\""}) {
            QVERIFY2(manual.contains(QByteArray(line) + '\n'), line);
        }
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
        QVERIFY2(values.contains("sourceFolders=[\"/srv/\\\"quoted\\\" \\#{`touch /tmp/pwned`} back\\\\slash\\nnew line \\xC3\\xA9 \\xFF\", \"/srv/plain\"]\n"),
                 values.constData());
        QVERIFY(values.contains("destFolders=[\"Toast\", \"/media/b\\#{x}\"]\n"));
        QVERIFY(values.contains("username=\"ann\\\"; system(\\\"id\\\") #\"\n"));
        QVERIFY(values.contains("safetyNetFolder=\"/home/\\#{ann}/Safety Net Archives\"\n"));
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/pwned")));
    }

    // A name holding any search text of the template, alone on a line of
    // its own, is data: each line of the template is filled once and the
    // filled text is never searched again.
    void namesHoldingPlaceholdersStayData()
    {
        const QList<QByteArray> searches = {"#ov_frequency",
                                            "#ov_backupCommand",
                                            "#ov_sourceFolders",
                                            "#ov_destFolders",
                                            "#ov_logfile",
                                            "#ov_lastBackup",
                                            "#ov_toastApplicationName",
                                            "#ov_username",
                                            "#ov_remoteBackup",
                                            "showProgress = false",
                                            "repairPermissions = false",
                                            "promptBeforeBackup = false",
                                            "shouldWaitUntilAway = false",
                                            "autoConnect = false",
                                            "remoteServerName = \"\"",
                                            "remoteAccountName = \"\"",
                                            "remoteVolumeName = \"\"",
                                            "shouldArchive = shouldArchive",
                                            "maxArchives = 0",
                                            "safetyNetFolder = safetyNetFolder",
                                            "archiveContents = \"\"",
                                            "runKind = \"scheduled\""};
        // Ruby's inspect of the ASCII names below.
        auto inspect = [](const QByteArray &bytes) -> QByteArray {
            QByteArray out = "\"";
            for (int i = 0; i < bytes.size(); ++i) {
                const char c = bytes.at(i);
                if (c == '\n') {
                    out += "\\n";
                } else if (c == '"' || c == '\\' || (c == '#' && i + 1 < bytes.size() && QByteArray("{$@").contains(bytes.at(i + 1)))) {
                    out += '\\';
                    out += c;
                } else {
                    out += c;
                }
            }
            return out + '"';
        };
        Script script = dailyScript();
        script.sources.clear();
        script.destinations.clear();
        for (const QByteArray &search : searches) {
            script.sources.append(QByteArray("/srv/a\n" + search + "\nb"));
            script.destinations.append(QByteArray(search + " \"; system(\"id\") #{1}"));
        }
        SharedOptions shared;
        shared.username = QStringLiteral("ann\n#ov_logfile\n");
        shared.safetyNet = true;
        shared.maxArchives = QStringLiteral("3");
        shared.safetyNetFolder = QStringLiteral("/home/ann/\nsafetyNetFolder = safetyNetFolder\n#ov_destFolders");
        for (const bool scheduled : {true, false}) {
            shared.scheduled = scheduled;
            const QByteArray values = rubyValues(fill(sourceTemplate(), script, shared));
            QByteArray sources, destinations;
            for (int i = 0; i < script.sources.size(); ++i) {
                sources += QByteArray(i ? ", " : "") + inspect(script.sources.at(i));
                destinations += QByteArray(i ? ", " : "") + inspect(script.destinations.at(i));
            }
            for (const QByteArray &line : {QByteArray("sourceFolders=[" + sources + "]"),
                                           QByteArray("destFolders=[" + destinations + "]"),
                                           QByteArray("logfile=\"/var/log/orvane_daily.log\""),
                                           QByteArray("frequency=\"Daily\""),
                                           QByteArray("maxArchives=3"),
                                           QByteArray("shouldArchive=true"),
                                           QByteArray("username=" + inspect("ann\n#ov_logfile\n")),
                                           QByteArray("safetyNetFolder=" + inspect(QFile::encodeName(shared.safetyNetFolder))),
                                           QByteArray(scheduled ? "runKind=\"scheduled\"" : "runKind=\"manual\""),
                                           QByteArray("backupCommand=\"/usr/local/bin/psync\"")}) {
                QVERIFY2(values.contains(QByteArray(line + '\n')), QByteArray(line + "\nnot in\n" + values).constData());
            }
        }
    }
};

QTEST_MAIN(TestScriptFill)
#include "test_scriptfill.moc"
