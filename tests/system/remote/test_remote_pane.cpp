// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The pane's side of the remote server as an administrator: the password in gnome-keyring, never in the settings; Connect.
// Run by test_remote.sh: refusedStoreKeepsSheetOpen alone without a session bus, connectTellsWhyItFailed once nothing is mounted.
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVRemoteServer.h"
#include "OVSettingsDomain.h"
#include "ovsheetchild.h"
#include "ovtestfiles.h"
#include <QMessageBox>
#include <QProcess>

using namespace OVRemoteServer;

class TestRemotePane : public QObject
{
    Q_OBJECT
    // Opens the options and fills in the server as the user does; auto-connect enables the fields (test_optionssheet).
    static QObject *fill(OVOrvanePref &pane, const QString &address, const QString &password)
    {
        QObject *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        if (!UI(ui, kcfg_AutoConnect)->isChecked()) {
            UI(ui, kcfg_AutoConnect)->click();
        }
        UI(ui, kcfg_RemoteServerAddress)->setText(address);
        UI(ui, kcfg_RemoteUserName)->setText(qEnvironmentVariable("OV_REMOTE_ACCOUNT"));
        UI(ui, kcfg_RemoteVolumeName)->setText(qEnvironmentVariable("OV_REMOTE_VOLUME"));
        UI(ui, passwordField)->setText(password);
        return ui;
    }
    static QString password()
    {
        return QString::fromUtf8(readFile(qEnvironmentVariable("OV_REMOTE_PASSWORD_FILE"))).trimmed();
    }
    static bool mounted(const QString &point)
    {
        return readFile("/proc/self/mountinfo").contains(QByteArray(' ' + point.toUtf8() + ' '));
    }

private Q_SLOTS:
    void init()
    {
        OVSettingsDomain::remove();
    }

    // A second store under another user name replaces the first; a bad address stores nothing and loses nothing.
    void storeReadBackAndReplace()
    {
        const Server first{QStringLiteral("smb://fileserver"), QStringLiteral("alice"), QStringLiteral("share")};
        QCOMPARE(addAutoConnectPassword(first, QStringLiteral("pässwörd 1")), StoreResult::Stored);
        QCOMPARE(autoConnectPassword(first), QStringLiteral("pässwörd 1"));
        QCOMPARE(countAutoConnectItems(), 1);
        const Server second{QStringLiteral("smb://fileserver"), QStringLiteral("bob"), QStringLiteral("share")};
        QCOMPARE(addAutoConnectPassword(second, QStringLiteral("two")), StoreResult::Stored);
        QCOMPARE(countAutoConnectItems(), 1);
        QCOMPARE(autoConnectPassword(second), QStringLiteral("two"));
        QCOMPARE(autoConnectPassword(first), QString());
        for (const QString &bad : {QStringLiteral("fileserver"), QStringLiteral("ftp://fileserver")}) {
            QCOMPARE(addAutoConnectPassword({bad, QStringLiteral("carol"), QStringLiteral("share")}, QStringLiteral("x")), StoreResult::InvalidAddress);
        }
        QCOMPARE(autoConnectPassword(second), QStringLiteral("two"));
        // The server is everything after the scheme, and the protocol is afp.
        const Server afp{QStringLiteral("afp://nas/"), QStringLiteral("bob"), QStringLiteral("share")};
        QCOMPARE(addAutoConnectPassword(afp, QStringLiteral("three")), StoreResult::Stored);
        QCOMPARE(autoConnectPassword(afp), QStringLiteral("three"));
        QCOMPARE(countAutoConnectItems(), 1);
        // An empty volume reads as no password.
        QCOMPARE(autoConnectPassword({afp.address, afp.account, QString()}), QString());
        QVERIFY(deleteExistingKeys());
        QCOMPARE(countAutoConnectItems(), 0);
    }

    void okStoresThePasswordOnlyInTheKeyring()
    {
        deleteExistingKeys();
        {
            OVOrvanePref pane(nullptr, {});
            pane.hideOptions(UI(fill(pane, qEnvironmentVariable("OV_REMOTE_SERVER"), password()), okButton));
            QVERIFY(!pane.optionsSheet()->isVisible());
        }
        const QByteArray domain = readFile(OVSettingsDomain::path());
        QVERIFY(!domain.isEmpty() && !domain.contains(password().toUtf8()));
        QCOMPARE(countAutoConnectItems(), 1);
        // Opening the options again shows it.
        OVOrvanePref pane(nullptr, {});
        pane.showOptions(nullptr);
        QCOMPARE(UI(pane.optionsSheet(), passwordField)->text(), password());
        pane.hideOptions(UI(pane.optionsSheet(), cancelButton));
    }

    void badAddressKeepsSheetOpen()
    {
        OVOrvanePref pane(nullptr, {});
        QObject *ui = fill(pane, QStringLiteral("fileserver"), QStringLiteral("whatever"));
        pane.hideOptions(UI(ui, okButton));
        QVERIFY(pane.optionsSheet()->isVisible());
        auto *alert = pane.findChild<QMessageBox *>(QStringLiteral("invalidServerAddressAlert"));
        QVERIFY(alert);
        QCOMPARE(alert->windowTitle(), QStringLiteral("Invalid server address"));
        // The other settings are stored all the same; the keyring keeps its item.
        QCOMPARE(OVSettingsDomain::read()->value(QStringLiteral("RemoteServerAddress")).toString(), QStringLiteral("fileserver"));
        QCOMPARE(countAutoConnectItems(), 1);
        // Connect with an empty password does nothing at all.
        UI(ui, passwordField)->clear();
        delete alert;
        QVERIFY(UI(ui, connectButton)->isEnabled());
        UI(ui, connectButton)->click();
        QVERIFY(!pane.findChild<QMessageBox *>());
    }

    // Connect mounts through connect_volume: the volume is there at once, for this user to use, and stays mounted.
    void connectMounts()
    {
        OVOrvanePref pane(nullptr, {});
        QObject *ui = fill(pane, qEnvironmentVariable("OV_REMOTE_SERVER"), password());
        const QString point = QStringLiteral("/Volumes/") + UI(ui, kcfg_RemoteVolumeName)->text();
        QVERIFY(!mounted(point));
        UI(ui, connectButton)->click();
        QTRY_VERIFY_WITH_TIMEOUT(mounted(point), 30000);
        // automount has told the pane how it went.
        QTRY_VERIFY_WITH_TIMEOUT(!pane.findChild<QProcess *>(), 30000);
        QVERIFY(!pane.findChild<QMessageBox *>());
        QVERIFY(QDir(point).mkpath(QStringLiteral("Backups/Documents")));
    }

    // Nothing mounted: a wrong password is told in the alert (automount's own words), and nothing is mounted.
    void connectTellsWhyItFailed()
    {
        if (qEnvironmentVariable("OV_CONNECT_FAILS").isEmpty()) {
            QSKIP("run alone, once nothing is mounted");
        }
        OVOrvanePref pane(nullptr, {});
        QObject *ui = fill(pane, qEnvironmentVariable("OV_REMOTE_SERVER"), QStringLiteral("wrong"));
        UI(ui, connectButton)->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.findChild<QMessageBox *>(QStringLiteral("connectFailedAlert")), 30000);
        const QString why = pane.findChild<QMessageBox *>(QStringLiteral("connectFailedAlert"))->informativeText();
        QVERIFY2(why.startsWith(QLatin1String("the server fileserver refused the password")), qPrintable(why));
        QVERIFY(!mounted(QStringLiteral("/Volumes/") + qEnvironmentVariable("OV_REMOTE_VOLUME")));
    }

    void refusedStoreKeepsSheetOpen()
    {
        if (!qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS").contains(QLatin1String("nowhere"))) {
            QSKIP("run alone, without a session bus");
        }
        OVOrvanePref pane(nullptr, {});
        QObject *ui = fill(pane, QStringLiteral("smb://fileserver"), QStringLiteral("secret"));
        UI(ui, kcfg_WaitUntilAway)->setChecked(true);
        pane.hideOptions(UI(ui, okButton));
        QVERIFY(pane.optionsSheet()->isVisible() && pane.findChild<QMessageBox *>(QStringLiteral("passwordNotStoredAlert")));
        QCOMPARE(OVSettingsDomain::read()->value(QStringLiteral("WaitUntilAway")).toBool(), true);
    }
};

QTEST_MAIN(TestRemotePane)
#include "test_remote_pane.moc"
