// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The MacPAD version rules, and the answers a check gives without the network.
#include "MacPADSocket.h"

#include <QSignalSpy>
#include <QTest>

class ErrorOnlyDelegate : public QObject
{
    Q_OBJECT
public:
    int calls = 0;
    int lastCode = -1;
public Q_SLOTS:
    void macPADErrorOccurred(MacPADSocket *socket, const QVariantMap &userInfo)
    {
        Q_UNUSED(socket)
        ++calls;
        lastCode = userInfo.value(QStringLiteral("MacPADErrorCode")).toInt();
    }
};

class TestVersionCompare : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void compareVersion_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");

        QTest::newRow("equal") << "2.0"
                               << "2.0" << 0;
        QTest::newRow("both empty") << ""
                                    << "" << 0;
        QTest::newRow("numbers, not digits") << "1.2"
                                             << "1.10" << 1;
        QTest::newRow("numbers, not digits, swapped") << "1.10"
                                                      << "1.2" << -1;
        QTest::newRow("major wins") << "2.0"
                                    << "1.9.9" << -1;
        QTest::newRow("leading zeros are the same number") << "1.007"
                                                           << "1.7" << 0;
        QTest::newRow("release newer than its beta") << "1.0"
                                                     << "1.0b1" << -1;
        QTest::newRow("beta older than its release") << "1.0b1"
                                                     << "1.0" << 1;
        QTest::newRow("extra number is newer") << "1.0.1"
                                               << "1.0" << -1;
        QTest::newRow("shorter is older") << "1.0"
                                          << "1.0.1" << 1;
        QTest::newRow("extra separator is newer") << "1.0."
                                                  << "1.0" << -1;
        QTest::newRow("beta numbers") << "1.0b2"
                                      << "1.0b1" << -1;
        QTest::newRow("same beta") << "1.0b1"
                                   << "1.0b1" << 0;
        // Kept from the protocol: the text that sorts first counts as newer.
        QTest::newRow("text sorting first is newer") << "1.0a"
                                                     << "1.0b" << -1;
        QTest::newRow("text sorting later is older") << "1.0b"
                                                     << "1.0a" << 1;
        QTest::newRow("text below number") << "1.a"
                                           << "1.1" << 1;
        QTest::newRow("number above text") << "1.1"
                                           << "1.a" << -1;
        QTest::newRow("separator below number") << "1..2"
                                                << "1.2" << 1;
        QTest::newRow("number above separator") << "1.2"
                                                << "1..2" << -1;
        QTest::newRow("text below separator") << "1a"
                                              << "1." << 1;
        QTest::newRow("separator above text") << "1."
                                              << "1a" << -1;
        QTest::newRow("00 is text") << "1.00"
                                    << "1.0" << 1;
        QTest::newRow("case counts") << "1.0B"
                                     << "1.0b" << -1;
        QTest::newRow("empty against a version") << ""
                                                 << "1.0" << 1;
        QTest::newRow("version against empty") << "1.0"
                                               << "" << -1;
        QTest::newRow("text against empty") << "beta"
                                            << "" << 1;
        QTest::newRow("huge numbers") << "1.99999999999999999999"
                                      << "1.2" << -1;
    }

    void compareVersion()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(MacPADSocket::compareVersion(a, b), expected);
    }

    void splitVersion_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QStringList>("parts");

        QTest::newRow("empty") << "" << QStringList();
        QTest::newRow("one number") << "12" << QStringList{QStringLiteral("12")};
        QTest::newRow("beta") << "1.10b3"
                              << QStringList{QStringLiteral("1"), QStringLiteral("."), QStringLiteral("10"), QStringLiteral("b"), QStringLiteral("3")};
        QTest::newRow("double dot") << "2..0" << QStringList{QStringLiteral("2"), QStringLiteral("."), QStringLiteral("."), QStringLiteral("0")};
        QTest::newRow("text runs") << "1.0rc-2"
                                   << QStringList{QStringLiteral("1"), QStringLiteral("."), QStringLiteral("0"), QStringLiteral("rc-"), QStringLiteral("2")};
        QTest::newRow("zeros stay together") << "1.00" << QStringList{QStringLiteral("1"), QStringLiteral("."), QStringLiteral("00")};
        QTest::newRow("leading dot") << ".5" << QStringList{QStringLiteral("."), QStringLiteral("5")};
        QTest::newRow("leading text") << "v2" << QStringList{QStringLiteral("v"), QStringLiteral("2")};
    }

    void splitVersion()
    {
        QFETCH(QString, version);
        QFETCH(QStringList, parts);
        QCOMPARE(MacPADSocket::splitVersion(version), parts);
    }

    void getCharType_data()
    {
        QTest::addColumn<QString>("part");
        QTest::addColumn<int>("type");

        QTest::newRow("dot") << "." << 2;
        QTest::newRow("two dots") << ".." << 1;
        QTest::newRow("zero") << "0" << 0;
        QTest::newRow("double zero") << "00" << 1;
        QTest::newRow("digit") << "7" << 0;
        QTest::newRow("number") << "12" << 0;
        QTest::newRow("number then text") << "3b" << 0;
        QTest::newRow("leading zero number") << "007" << 0;
        QTest::newRow("letter") << "a" << 1;
        QTest::newRow("dash") << "-" << 1;
        QTest::newRow("empty") << "" << 1;
    }

    void getCharType()
    {
        QFETCH(QString, part);
        QFETCH(int, type);
        QCOMPARE(MacPADSocket::getCharType(part), type);
    }

    // Answers that need no server still arrive later, from the event loop,
    // with the fixed message, and only to the operations a delegate has.
    void answersWithoutNetwork_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<QString>("version");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");

        QTest::newRow("no URL") << QUrl() << "1.0" << 1 << "URL or version was nil";
        QTest::newRow("no version") << QUrl(QStringLiteral("https://localhost/v.plist")) << QString() << 1 << "URL or version was nil";
        QTest::newRow("plain http") << QUrl(QStringLiteral("http://localhost/v.plist")) << "1.0" << 2 << "Remote file or URL was invalid";
        QTest::newRow("a file") << QUrl(QStringLiteral("file:///etc/hostname")) << "1.0" << 2 << "Remote file or URL was invalid";
    }

    void answersWithoutNetwork()
    {
        QFETCH(QUrl, url);
        QFETCH(QString, version);
        QFETCH(int, code);
        QFETCH(QString, message);

        ErrorOnlyDelegate delegate;
        MacPADSocket socket;
        socket.setDelegate(&delegate);
        QSignalSpy errors(&socket, &MacPADSocket::MacPADErrorOccurredNotification);
        QSignalSpy finished(&socket, &MacPADSocket::MacPADCheckFinishedNotification);
        socket.performCheck(url, version);
        QCOMPARE(errors.count(), 0);
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(finished.count(), 0);
        QCOMPARE(errors.at(0).at(0).value<MacPADSocket *>(), &socket);
        const QVariantMap info = errors.at(0).at(1).toMap();
        QCOMPARE(info.value(QStringLiteral("MacPADErrorCode")).toInt(), code);
        QCOMPARE(info.value(QStringLiteral("MacPADErrorMessage")).toString(), message);
        QCOMPARE(info.value(QStringLiteral("MacPADNewVersionAvailable")).toBool(), false);
        QCOMPARE(delegate.calls, 1);
        QCOMPARE(delegate.lastCode, code);

        // A delegate replaced hears nothing more.
        socket.setDelegate(nullptr);
        socket.performCheck(url, version);
        QTRY_COMPARE(errors.count(), 2);
        QCOMPARE(delegate.calls, 1);
        QCOMPARE(socket.newVersion(), QString(QLatin1String("")));
        QCOMPARE(socket.productDownloadURL(), QString(QLatin1String("")));
        QVERIFY(socket.productDownloadURLs().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestVersionCompare)
#include "test_versioncompare.moc"
