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
    int calls = 0, lastCode = -1;
public Q_SLOTS:
    void macPADErrorOccurred(MacPADSocket *, const QVariantMap &userInfo)
    {
        ++calls;
        lastCode = userInfo.value(QStringLiteral("MacPADErrorCode")).toInt();
    }
};

class TestVersionCompare : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void compareVersion()
    {
        // {a, b, compareVersion(a, b)}: -1 when b is older.
        const std::tuple<const char *, const char *, int> rows[] = {
            {"2.0", "2.0", 0},
            {"", "", 0},
            {"1.2", "1.10", 1},
            {"1.10", "1.2", -1}, // numbers, not digits
            {"2.0", "1.9.9", -1},
            {"1.007", "1.7", 0},
            {"1.0", "1.0b1", -1},
            {"1.0b1", "1.0", 1}, // a release is newer than its beta
            {"1.0.1", "1.0", -1},
            {"1.0.", "1.0", -1},
            {"1.0b2", "1.0b1", -1},
            // Kept from the protocol: the text that sorts first counts as newer.
            {"1.0a", "1.0b", -1},
            // Text below separator below number.
            {"1.a", "1.1", 1},
            {"1..2", "1.2", 1},
            {"1a", "1.", 1},
            {"1.00", "1.0", 1}, // 00 is text
            {"1.0B", "1.0b", -1},
            {"", "1.0", 1},
            {"beta", "", 1},
            {"1.99999999999999999999", "1.2", -1},
        };
        for (const auto &[a, b, expected] : rows) {
            QVERIFY2(MacPADSocket::compareVersion(QString::fromLatin1(a), QString::fromLatin1(b)) == expected,
                     qPrintable(QStringLiteral("%1 against %2").arg(QLatin1String(a), QLatin1String(b))));
        }
    }

    // Answers that need no server still arrive later, from the event loop, with the fixed message, and only to the operations a delegate has.
    void answersWithoutNetwork()
    {
        const QString nil = QStringLiteral("URL or version was nil"), invalid = QStringLiteral("Remote file or URL was invalid");
        const std::tuple<const char *, const char *, int, QString> rows[] = {{nullptr, "1.0", 1, nil},
                                                                             {"https://localhost/v.plist", nullptr, 1, nil},
                                                                             {"http://localhost/v.plist", "1.0", 2, invalid},
                                                                             {"file:///etc/hostname", "1.0", 2, invalid}};
        for (const auto &[address, versionText, code, message] : rows) {
            const QUrl url = address ? QUrl(QString::fromLatin1(address)) : QUrl();
            const QString version = QString::fromLatin1(versionText);
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
            QVERIFY(socket.newVersion().isEmpty() && socket.productDownloadURL().isEmpty() && socket.productDownloadURLs().isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TestVersionCompare)
#include "test_versioncompare.moc"
