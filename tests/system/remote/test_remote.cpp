// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The remote server's password in a real Secret Service (gnome-keyring in
// the test user's session) and Connect against a real smbd. Run as the test
// user by test_remote.sh, which says where the server is through
// OV_REMOTE_SERVER, OV_REMOTE_ACCOUNT, OV_REMOTE_VOLUME and
// OV_REMOTE_PASSWORD_FILE (the password itself is never in the environment).

#include "OVRemoteServer.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QSignalSpy>
#include <QTest>

using OVRemoteServer::Server;
using OVRemoteServer::StoreResult;

class TestRemote : public QObject
{
    Q_OBJECT
private:
    Server real() const
    {
        return {qEnvironmentVariable("OV_REMOTE_SERVER"), qEnvironmentVariable("OV_REMOTE_ACCOUNT"), qEnvironmentVariable("OV_REMOTE_VOLUME")};
    }
    QString realPassword() const
    {
        QFile file(qEnvironmentVariable("OV_REMOTE_PASSWORD_FILE"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    }

private Q_SLOTS:
    void addressParts()
    {
        QCOMPARE(OVRemoteServer::serverPart(QStringLiteral("afp://nas/")), QStringLiteral("nas/"));
        QCOMPARE(OVRemoteServer::protocolFor(QStringLiteral("afp://nas/")), QStringLiteral("afp"));
        QCOMPARE(OVRemoteServer::protocolFor(QStringLiteral("smb://fileserver")), QStringLiteral("smb"));
        QVERIFY(OVRemoteServer::protocolFor(QStringLiteral("ftp://fileserver")).isEmpty());
    }

    // Store, read back; a second store under another user name replaces the
    // first; a bad address stores nothing and loses nothing.
    void storeReadBackAndReplace()
    {
        QString error;
        const Server first{QStringLiteral("smb://fileserver"), QStringLiteral("alice"), QStringLiteral("share")};
        QCOMPARE(OVRemoteServer::addAutoConnectPassword(first, QStringLiteral("pässwörd 1"), &error), StoreResult::Stored);
        QCOMPARE(OVRemoteServer::autoConnectPassword(first), QStringLiteral("pässwörd 1"));
        QCOMPARE(OVRemoteServer::countAutoConnectItems(), 1);

        const Server second{QStringLiteral("smb://fileserver"), QStringLiteral("bob"), QStringLiteral("share")};
        QCOMPARE(OVRemoteServer::addAutoConnectPassword(second, QStringLiteral("two"), &error), StoreResult::Stored);
        QCOMPARE(OVRemoteServer::countAutoConnectItems(), 1);
        QCOMPARE(OVRemoteServer::autoConnectPassword(second), QStringLiteral("two"));
        QCOMPARE(OVRemoteServer::autoConnectPassword(first), QString());

        for (const char *bad : {"fileserver", "ftp://fileserver"}) {
            const Server invalid{QString::fromLatin1(bad), QStringLiteral("carol"), QStringLiteral("share")};
            QCOMPARE(OVRemoteServer::addAutoConnectPassword(invalid, QStringLiteral("x"), &error), StoreResult::InvalidAddress);
        }
        QCOMPARE(OVRemoteServer::autoConnectPassword(second), QStringLiteral("two"));

        // The server is everything after the scheme, and the protocol is afp.
        const Server afp{QStringLiteral("afp://nas/"), QStringLiteral("bob"), QStringLiteral("share")};
        QCOMPARE(OVRemoteServer::addAutoConnectPassword(afp, QStringLiteral("three"), &error), StoreResult::Stored);
        QCOMPARE(OVRemoteServer::autoConnectPassword(afp), QStringLiteral("three"));
        QCOMPARE(OVRemoteServer::countAutoConnectItems(), 1);

        // An empty volume reads as no password.
        QCOMPARE(OVRemoteServer::autoConnectPassword({afp.address, afp.account, QString()}), QString());

        QVERIFY(OVRemoteServer::deleteExistingKeys(&error));
        QCOMPARE(OVRemoteServer::countAutoConnectItems(), 0);
    }

    // Connect mounts the volume at /Volumes/<volume> as the user, and a
    // folder there can be chosen in a folder dialog. The mount is left for
    // the script's next steps.
    void connectAndChooseFolder()
    {
        if (real().address.isEmpty()) {
            QSKIP("no server given");
        }
        QString error;
        QCOMPARE(OVRemoteServer::addAutoConnectPassword(real(), realPassword(), &error), StoreResult::Stored);

        OVRemoteConnection connection;
        connection.setAutomountPath(qEnvironmentVariable("OV_AUTOMOUNT"));
        QSignalSpy finished(&connection, &OVRemoteConnection::finished);
        // An afp:// volume cannot be mounted here: a clear message.
        QVERIFY(connection.connectToServer({QStringLiteral("afp://fileserver"), real().account, real().volume}));
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.at(0).at(0).toBool(), false);
        QVERIFY2(finished.at(0).at(2).toString().contains(QLatin1String("no AFP client")), qPrintable(finished.at(0).at(2).toString()));

        QVERIFY(connection.connectToServer(real()));
        QVERIFY(!connection.connectToServer(real())); // one at a time
        QVERIFY(finished.wait(60000));
        QVERIFY2(finished.at(1).at(0).toBool(), qPrintable(finished.at(1).at(2).toString()));
        const QString mountPoint = finished.at(1).at(1).toString();
        QCOMPARE(mountPoint, QStringLiteral("/Volumes/") + real().volume);

        QVERIFY(QDir(mountPoint).mkpath(QStringLiteral("Backups/Documents")));
        QFileDialog dialog(nullptr, QStringLiteral("Choose"), mountPoint);
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly);
        dialog.show();
        dialog.selectFile(QStringLiteral("Backups"));
        QTRY_COMPARE(dialog.selectedFiles().value(0), mountPoint + QStringLiteral("/Backups"));
        QMetaObject::invokeMethod(&dialog, "accept");
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QVERIFY(QFileInfo(dialog.selectedFiles().value(0)).isDir());
    }
};

QTEST_MAIN(TestRemote)
#include "test_remote.moc"
