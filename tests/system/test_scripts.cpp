// The script fillers: every placeholder and default line, the escaping of
// names (checked by Ruby itself), and end to end in the sandbox: items saved
// in the pane give scripts that install_scripts installs and that copy when
// run, and the backup button runs the manual items through manual_backup.
#include "OVBackupItemModel.h"
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVScriptBuilder.h"
#include "OVSettingsDomain.h"
#include "ovfixedpaths.h"
#include "ovsheetchild.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace OVScriptBuilder;

namespace
{
QByteArray sourceTemplate()
{
    QFile file(QStringLiteral(OV_SOURCE_DIR "/resources/backup_script.rb"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray read(const QString &path)
{
    QFile file(path);
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
               {QStringLiteral("--disable-gems"), QStringLiteral("-e"),
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

class TestScripts : public QObject
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
        for (const char *line : {"frequency = \"Weekly\"", "backupCommand = \"/usr/local/bin/psync -d\"", "remoteBackup = false",
                                 "showProgress = true", "repairPermissions = true", "promptBeforeBackup = true", "shouldWaitUntilAway = true",
                                 "autoConnect = true", "remoteServerName = \"smb://nas\"", "remoteAccountName = \"ann\"", "remoteVolumeName = \"\"",
                                 "shouldArchive = true", "maxArchives = 5", "archiveContents = \"Changed\"", "username = \"ann\"",
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
        for (const char *line : {"promptBeforeBackup = false", "shouldWaitUntilAway = false", "shouldArchive = false", "maxArchives = 0",
                                 "archiveContents = \"\"", "safetyNetFolder = \"\"", "remoteServerName = \"\"", "autoConnect = false",
                                 "backupCommand = \"/usr/local/bin/psync\"", "toastApplicationName = \"Toast Titanium\""}) {
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
        const QList<QByteArray> searches = {"#ov_frequency", "#ov_backupCommand", "#ov_sourceFolders", "#ov_destFolders", "#ov_logfile",
                                            "#ov_lastBackup", "#ov_toastApplicationName", "#ov_username", "#ov_remoteBackup",
                                            "showProgress = false", "repairPermissions = false", "promptBeforeBackup = false",
                                            "shouldWaitUntilAway = false", "autoConnect = false", "remoteServerName = \"\"",
                                            "remoteAccountName = \"\"", "remoteVolumeName = \"\"", "shouldArchive = shouldArchive",
                                            "maxArchives = 0", "safetyNetFolder = safetyNetFolder", "archiveContents = \"\"",
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
            for (const QByteArray &line :
                 {QByteArray("sourceFolders=[" + sources + "]"), QByteArray("destFolders=[" + destinations + "]"), QByteArray("logfile=\"/var/log/orvane_daily.log\""),
                  QByteArray("frequency=\"Daily\""), QByteArray("maxArchives=3"), QByteArray("shouldArchive=true"),
                  QByteArray("username=" + inspect("ann\n#ov_logfile\n")),
                  QByteArray("safetyNetFolder=" + inspect(QFile::encodeName(shared.safetyNetFolder))),
                  QByteArray(scheduled ? "runKind=\"scheduled\"" : "runKind=\"manual\""),
                  QByteArray("backupCommand=\"/usr/local/bin/psync\"")}) {
                QVERIFY2(values.contains(QByteArray(line + '\n')), QByteArray(line + "\nnot in\n" + values).constData());
            }
        }
    }

    void savedItemsAreInstalledAndBackUp()
    {
        QVERIFY(qEnvironmentVariableIsSet("OV_IN_SANDBOX"));
        OVSettingsDomain::remove();
        const QString base = QStringLiteral("/root/e2e");
        QDir(base).removeRecursively();
        for (const char *folder : {"/root/e2e/daily source/sub", "/root/e2e/daily dest", "/root/e2e/manual source", "/root/e2e/manual dest"}) {
            QVERIFY(QDir().mkpath(QString::fromLatin1(folder)));
        }
        QFile file(base + QStringLiteral("/daily source/sub/a \"file\".txt"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("daily");
        file.close();
        QFile manualFile(base + QStringLiteral("/manual source/m.txt"));
        QVERIFY(manualFile.open(QIODevice::WriteOnly));
        manualFile.write("manual");
        manualFile.close();

        OVOrvanePref pane(nullptr, {});
        pane.show();
        pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
        auto item = [](int frequency, const char *source, const char *dest) {
            OVBackupItem result;
            result.setFrequencyColumn(frequency);
            result.setCheckColumn(true);
            result.setSourcePath(QString::fromUtf8(source));
            result.setBackupSource(QStringLiteral("source"));
            result.setDestPath(QString::fromUtf8(dest));
            result.setBackupDestination(QStringLiteral("dest"));
            return result;
        };
        pane.backupItems()->setItems({item(int(OVFrequency::Daily), "/root/e2e/daily source", "/root/e2e/daily dest"),
                                      item(int(OVFrequency::Manual), "/root/e2e/manual source", "/root/e2e/manual dest")});
        UI(pane.optionsSheet(), useSafetyNetCheck)->setChecked(false);
        QVERIFY(pane.saveChanges(nullptr, &pane));

        // Only the daily schedule has items.
        QVERIFY(!QFile::exists(QString::fromUtf8(OVFixedPaths::TmpWeeklyScript)));
        const QString installed = QString::fromUtf8(OVFixedPaths::DailyScript);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(installed), 5000);
        QTRY_COMPARE(read(installed), read(QString::fromUtf8(OVFixedPaths::TmpDailyScript)));
        QVERIFY(QFileInfo(installed).isExecutable());

        // Run as the scheduler runs it: by its path alone.
        QCOMPARE(QProcess::execute(installed, {}), 0);
        QCOMPARE(read(base + QStringLiteral("/daily dest/sub/a \"file\".txt")), QByteArray("daily"));
        QVERIFY(read(QString::fromUtf8(OVFixedPaths::DailyLog)).contains("Daily: backup complete"));
        QCOMPARE(read(QString::fromUtf8(OVFixedPaths::DailyFolder) + QStringLiteral("/.lastbackup")), QDate::currentDate().toString(QStringLiteral("MM/dd/yy")).toLatin1());
        QVERIFY(!QFile::exists(QString::fromUtf8(OVFixedPaths::DailyErrors)));

        // The backup button runs the manual items, and says it started.
        auto *backup = pane.findChild<QPushButton *>(QStringLiteral("backupButton"));
        pane.updateUI();
        QVERIFY(backup->isEnabled());
        backup->click();
        QTRY_VERIFY(pane.findChild<QMessageBox *>(QStringLiteral("manualBackupSheet")));
        QTRY_COMPARE_WITH_TIMEOUT(read(base + QStringLiteral("/manual dest/m.txt")), QByteArray("manual"), 15000);

        // Backups off: the button does nothing at all.
        QFile::remove(QString::fromUtf8(OVFixedPaths::TmpManualScript));
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        master->setCurrentIndex(1);
        pane.performBackup(&pane);
        QVERIFY(!QFile::exists(QString::fromUtf8(OVFixedPaths::TmpManualScript)));
    }
};

QTEST_MAIN(TestScripts)
#include "test_scripts.moc"
