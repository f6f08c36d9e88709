// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The pane's side of the remote server: the options' OK stores the password
// in the real Secret Service (never in the settings), a bad address or a
// refused store keeps the sheet open, Connect mounts. Run by test_remote.sh
// as the test user, with the installed bundle; refusedStoreKeepsSheetOpen
// alone is run with a session bus that does not exist.

#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVRemoteServer.h"
#include "OVSettingsDomain.h"
#include "ovsheetchild.h"

#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QTest>

class TestRemotePane : public QObject
{
    Q_OBJECT

    static void fill(OVOptionsSheet *sheet, const QString &address, const QString &password)
    {
        QObject *ui = sheet;
        if (!UI(ui, kcfg_AutoConnect)->isChecked()) {
            UI(ui, kcfg_AutoConnect)->click(); // as the user does: the enable rules follow
        }
        UI(ui, kcfg_RemoteServerAddress)->setText(address);
        UI(ui, kcfg_RemoteUserName)->setText(qEnvironmentVariable("OV_REMOTE_ACCOUNT"));
        UI(ui, kcfg_RemoteVolumeName)->setText(qEnvironmentVariable("OV_REMOTE_VOLUME"));
        UI(ui, passwordField)->setText(password);
        QVERIFY(UI(ui, kcfg_AutoConnect)->isChecked() && UI(ui, passwordField)->isEnabled() && UI(ui, connectButton)->isEnabled());
    }
    static QString password()
    {
        QFile file(qEnvironmentVariable("OV_REMOTE_PASSWORD_FILE"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    }
    static bool mounted(const QString &point)
    {
        QFile info(QStringLiteral("/proc/self/mountinfo"));
        return info.open(QIODevice::ReadOnly) && info.readAll().contains(QByteArray(' ' + point.toUtf8() + ' '));
    }

private Q_SLOTS:
    void init()
    {
        OVSettingsDomain::remove();
    }

    void okStoresThePasswordOnlyInTheKeyring()
    {
        OVRemoteServer::deleteExistingKeys();
        {
            OVOrvanePref pane(nullptr, {});
            QObject *ui = pane.optionsSheet();
            pane.showOptions(nullptr);
            QVERIFY(UI(ui, passwordField)->isEnabled() == UI(ui, kcfg_AutoConnect)->isChecked());
            fill(pane.optionsSheet(), qEnvironmentVariable("OV_REMOTE_SERVER"), password());
            pane.hideOptions(UI(ui, okButton));
            QVERIFY(!pane.optionsSheet()->isVisible());
        }
        QFile domain(OVSettingsDomain::path());
        QVERIFY(domain.open(QIODevice::ReadOnly));
        QVERIFY(!domain.readAll().contains(password().toUtf8()));
        QCOMPARE(OVRemoteServer::countAutoConnectItems(), 1);

        // Opening the options again shows it.
        OVOrvanePref pane(nullptr, {});
        pane.showOptions(nullptr);
        QCOMPARE(UI(pane.optionsSheet(), passwordField)->text(), password());
        pane.hideOptions(UI(pane.optionsSheet(), cancelButton));
    }

    void badAddressKeepsSheetOpen()
    {
        OVOrvanePref pane(nullptr, {});
        QObject *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        fill(pane.optionsSheet(), QStringLiteral("fileserver"), QStringLiteral("whatever"));
        pane.hideOptions(UI(ui, okButton));
        QVERIFY(pane.optionsSheet()->isVisible());
        auto *alert = pane.findChild<QMessageBox *>(QStringLiteral("invalidServerAddressAlert"));
        QVERIFY(alert);
        QCOMPARE(alert->windowTitle(), QStringLiteral("Invalid server address"));
        // The other settings are stored all the same; the keyring keeps its item.
        QCOMPARE(OVSettingsDomain::read()->value(QStringLiteral("RemoteServerAddress")).toString(), QStringLiteral("fileserver"));
        QCOMPARE(OVRemoteServer::countAutoConnectItems(), 1);

        // Connect with an empty password does nothing at all.
        UI(ui, passwordField)->clear();
        delete alert;
        QVERIFY(UI(ui, connectButton)->isEnabled());
        UI(ui, connectButton)->click();
        QVERIFY(!pane.findChild<QMessageBox *>());
    }

    void connectMounts()
    {
        OVOrvanePref pane(nullptr, {});
        QObject *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        fill(pane.optionsSheet(), qEnvironmentVariable("OV_REMOTE_SERVER"), password());
        const QString point = QStringLiteral("/Volumes/") + UI(ui, kcfg_RemoteVolumeName)->text();
        QVERIFY(!mounted(point));
        UI(ui, connectButton)->click();
        QTRY_VERIFY_WITH_TIMEOUT(mounted(point), 30000);
        // automount has told the pane how it went.
        QTRY_VERIFY_WITH_TIMEOUT(!pane.findChild<QProcess *>(), 30000);
        QVERIFY(!pane.findChild<QMessageBox *>());
        QCOMPARE(QProcess::execute(QStringLiteral("/usr/bin/fusermount3"), {QStringLiteral("-u"), point}), 0);

        // A wrong password: Connect tells why.
        fill(pane.optionsSheet(), qEnvironmentVariable("OV_REMOTE_SERVER"), QStringLiteral("wrong"));
        UI(ui, connectButton)->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.findChild<QMessageBox *>(QStringLiteral("connectFailedAlert")), 30000);
        QVERIFY2(pane.findChild<QMessageBox *>(QStringLiteral("connectFailedAlert"))->informativeText().contains(QLatin1String("refused the password")),
                 qPrintable(pane.findChild<QMessageBox *>(QStringLiteral("connectFailedAlert"))->informativeText()));
        QVERIFY(!mounted(point));
    }

    void refusedStoreKeepsSheetOpen()
    {
        if (!qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS").contains(QLatin1String("nowhere"))) {
            QSKIP("run alone, without a session bus");
        }
        OVOrvanePref pane(nullptr, {});
        QObject *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        fill(pane.optionsSheet(), QStringLiteral("smb://fileserver"), QStringLiteral("secret"));
        UI(ui, kcfg_WaitUntilAway)->setChecked(true);
        pane.hideOptions(UI(ui, okButton));
        QVERIFY(pane.optionsSheet()->isVisible());
        QVERIFY(pane.findChild<QMessageBox *>(QStringLiteral("passwordNotStoredAlert")));
        QCOMPARE(OVSettingsDomain::read()->value(QStringLiteral("WaitUntilAway")).toBool(), true);
    }
};

QTEST_MAIN(TestRemotePane)
#include "test_remote_pane.moc"
