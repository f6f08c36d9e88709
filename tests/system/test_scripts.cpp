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
#include "ovtestfiles.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

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
        writeFile(base + QStringLiteral("/daily source/sub/a \"file\".txt"), "daily");
        writeFile(base + QStringLiteral("/manual source/m.txt"), "manual");

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
        const QString installed = path(OVFixedPaths::DailyScript);
        QVERIFY(OVSaveJob::finishAll(30000));
        QVERIFY(QFile::exists(installed));
        QVERIFY(!QFile::exists(path(OVFixedPaths::WeeklyScript)));
        QVERIFY(readFile(installed).contains("sourceFolders = [ \"/root/e2e/daily source\" ]\n"));
        QCOMPARE(ownerAndMode(OVFixedPaths::DailyScript), QStringLiteral("0:0 700"));

        // Run as the scheduler runs it: by its path alone.
        QCOMPARE(QProcess::execute(installed, {}), 0);
        QCOMPARE(readFile(base + QStringLiteral("/daily dest/sub/a \"file\".txt")), QByteArray("daily"));
        QVERIFY(readFile(OVFixedPaths::DailyLog).contains("Daily: backup complete"));
        QCOMPARE(readFile(path(OVFixedPaths::DailyFolder) + QStringLiteral("/.lastbackup")),
                 QDate::currentDate().toString(QStringLiteral("MM/dd/yy")).toLatin1());
        QVERIFY(!QFile::exists(path(OVFixedPaths::DailyErrors)));

        // The backup button runs the manual items, and says it started.
        auto *backup = pane.findChild<QPushButton *>(QStringLiteral("backupButton"));
        pane.updateUI();
        QVERIFY(backup->isEnabled());
        backup->click();
        QTRY_VERIFY(pane.findChild<QMessageBox *>(QStringLiteral("manualBackupSheet")));
        QTRY_COMPARE_WITH_TIMEOUT(readFile(base + QStringLiteral("/manual dest/m.txt")), QByteArray("manual"), 15000);

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
