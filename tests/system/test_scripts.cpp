// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// End to end in the sandbox: items saved in the pane give scripts that
// install_scripts installs and that copy when run, and the backup button
// runs the manual items through manual_backup.
#include "OVBackupItemModel.h"
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSaveJob.h"
#include "OVSettingsDomain.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"
#include "ovsheetchild.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <sys/stat.h>

namespace
{
QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
}

class TestScripts : public QObject
{
    Q_OBJECT
private Q_SLOTS:
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
        // The options' OK saves.
        pane.showOptions(nullptr);
        UI(pane.optionsSheet(), kcfg_SafetyNet)->setChecked(false);
        pane.hideOptions(UI(pane.optionsSheet(), okButton));
        QVERIFY(!pane.settings().safetyNet());

        // Only the daily schedule has items; its script is root's alone.
        const QString installed = QString::fromUtf8(OVFixedPaths::DailyScript);
        QVERIFY(OVSaveJob::finishAll(30000));
        QVERIFY(QFile::exists(installed));
        QVERIFY(!QFile::exists(QString::fromUtf8(OVFixedPaths::WeeklyScript)));
        QVERIFY(read(installed).contains("sourceFolders = [ \"/root/e2e/daily source\" ]\n"));
        struct stat st;
        QCOMPARE(::stat(OVFixedPaths::DailyScript, &st), 0);
        QCOMPARE(st.st_uid, uid_t(0));
        QCOMPARE(st.st_mode & 07777, mode_t(0700));

        // Run as the scheduler runs it: by its path alone.
        QCOMPARE(QProcess::execute(installed, {}), 0);
        QCOMPARE(read(base + QStringLiteral("/daily dest/sub/a \"file\".txt")), QByteArray("daily"));
        QVERIFY(read(QString::fromUtf8(OVFixedPaths::DailyLog)).contains("Daily: backup complete"));
        QCOMPARE(read(QString::fromUtf8(OVFixedPaths::DailyFolder) + QStringLiteral("/.lastbackup")),
                 QDate::currentDate().toString(QStringLiteral("MM/dd/yy")).toLatin1());
        QVERIFY(!QFile::exists(QString::fromUtf8(OVFixedPaths::DailyErrors)));

        // The backup button runs the manual items, and says it started.
        auto *backup = pane.findChild<QPushButton *>(QStringLiteral("backupButton"));
        pane.updateUI();
        QVERIFY(backup->isEnabled());
        backup->click();
        QTRY_VERIFY(pane.findChild<QMessageBox *>(QStringLiteral("manualBackupSheet")));
        QTRY_COMPARE_WITH_TIMEOUT(read(base + QStringLiteral("/manual dest/m.txt")), QByteArray("manual"), 15000);

        // Backups off: the button does nothing at all.
        QVERIFY(OVToolLauncher::instance()->waitForAll(30000));
        auto *master = pane.findChild<QComboBox *>(QStringLiteral("masterPopUp"));
        master->setCurrentIndex(1);
        pane.performBackup(&pane);
        QVERIFY(!OVToolLauncher::instance()->isBusy());
    }
};

QTEST_MAIN(TestScripts)
#include "test_scripts.moc"
