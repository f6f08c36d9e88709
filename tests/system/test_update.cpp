// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The update check against a real HTTPS server on the vendor's host name (with-update-server.sh), then the pane's notice.
#include "../hostileplist.h"
#include "MacPADSocket.h"
#include "OVBundle.h"
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVPropertyList.h"
#include "OVSettingsDomain.h"
#include "OVUpdateNotice.h"
#include "ovtestfiles.h"
#include <QDeadlineTimer>
#include <QDesktopServices>
#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTextEdit>

class TestUpdate : public QObject
{
    Q_OBJECT
    QString m_root;
    QString m_log;
    QList<QUrl> m_opened;

    static QVariantMap versionFile(const QString &version, const QString &notes = QString())
    {
        QVariantMap file{
            {QStringLiteral("productVersion"), version},
            {QStringLiteral("productPageURL"), QStringLiteral("https://www.orvane.org/")},
            {QStringLiteral("productDownloadURL"),
             QVariantList{QStringLiteral("https://www.orvane.org/download/Orvane-%1.tar.gz").arg(version), QStringLiteral("https://mirror.example/o.tgz")}},
        };
        if (!notes.isNull()) {
            file.insert(QStringLiteral("productReleaseNotes"), notes);
        }
        return file;
    }

    void serve(const QString &path, const QByteArray &body)
    {
        writeFile(m_root + QLatin1Char('/') + path, body);
    }

    QStringList requests() const
    {
        return QString::fromUtf8(readFile(m_log)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    struct Answer {
        bool finished = false;
        int code = -1;
        QString message;
        bool newVersionAvailable = false;
    };
    static Answer waitForAnswer(MacPADSocket &socket, int timeoutMs = 20000)
    {
        QSignalSpy errors(&socket, &MacPADSocket::MacPADErrorOccurredNotification);
        QSignalSpy finished(&socket, &MacPADSocket::MacPADCheckFinishedNotification);
        for (QDeadlineTimer deadline(timeoutMs); errors.isEmpty() && finished.isEmpty() && !deadline.hasExpired();) {
            QTest::qWait(20);
        }
        // One answer, and nothing else follows.
        QTest::qWait(100);
        if (errors.count() + finished.count() != 1) {
            return {};
        }
        const QList<QVariant> args = errors.isEmpty() ? finished.first() : errors.first();
        const QVariantMap info = args.at(1).toMap();
        // Code -2: the answer named another socket.
        return {errors.isEmpty(),
                args.at(0).value<MacPADSocket *>() != &socket ? -2 : info.value(QStringLiteral("MacPADErrorCode")).toInt(),
                info.value(QStringLiteral("MacPADErrorMessage")).toString(),
                info.value(QStringLiteral("MacPADNewVersionAvailable")).toBool()};
    }

    QDialog *visibleUpdateSheet(OVOrvanePref &pane)
    {
        auto *sheet = pane.findChild<QDialog *>(QStringLiteral("updateSheet"));
        return sheet && sheet->isVisible() ? sheet : nullptr;
    }

    // Opens the pane with the given settings (none at all for an invalid QVariant).
    std::unique_ptr<OVOrvanePref> openPane(const QVariant &settings)
    {
        OVSettingsDomain::remove();
        if (settings.isValid()) {
            OVSettingsDomain::replace(settings.toMap());
        }
        auto pane = std::make_unique<OVOrvanePref>(nullptr, QVariantList{});
        pane->show();
        return pane;
    }

public Q_SLOTS:
    // Stands in for the browser: records what the pane asks to open.
    void openUrl(const QUrl &url)
    {
        m_opened.append(url);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        m_root = qEnvironmentVariable("OV_UPDATE_SERVER_ROOT");
        m_log = qEnvironmentVariable("OV_UPDATE_SERVER_LOG");
        QVERIFY2(!m_root.isEmpty() && !m_log.isEmpty(), "runs under tests/system/with-update-server.sh");
        QVERIFY(!OVBundle::shortVersion().isEmpty());
        QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "openUrl");
    }

    void init()
    {
        QFile::resize(m_log, 0);
        QVERIFY(QDir(m_root).removeRecursively() && QDir().mkpath(m_root));
    }

    void clientAnswers_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("version");
        QTest::addColumn<int>("code");
        const QString vendor = QStringLiteral("https://") + OVUpdateNotice::versionFileURL().host();
        QTest::newRow("newer, XML") << vendor + QStringLiteral("/newer.plist") << "1.0" << 5;
        QTest::newRow("newer, binary") << vendor + QStringLiteral("/newer.bplist") << "1.0" << 5;
        QTest::newRow("equal") << vendor + QStringLiteral("/newer.plist") << "9.0b2" << 0;
        QTest::newRow("no productVersion") << vendor + QStringLiteral("/noversion.plist") << "1.0" << 4;
        QTest::newRow("productVersion not a string") << vendor + QStringLiteral("/numberversion.plist") << "1.0" << 4;
        QTest::newRow("not a dictionary") << vendor + QStringLiteral("/array.plist") << "1.0" << 2;
        QTest::newRow("truncated file") << vendor + QStringLiteral("/truncated.plist") << "1.0" << 2;
        QTest::newRow("shared references (billion laughs)") << vendor + QStringLiteral("/laughs.bplist") << "1.0" << 2;
        QTest::newRow("connection cut short") << vendor + QStringLiteral("/cut-short") << "1.0" << 2;
        QTest::newRow("404") << vendor + QStringLiteral("/missing.plist") << "1.0" << 2;
        QTest::newRow("untrusted certificate") << vendor + QStringLiteral(":8443/newer.plist") << "1.0" << 2;
        QTest::newRow("address, not host name, in certificate") << QStringLiteral("https://127.0.0.1/newer.plist") << "1.0" << 2;
        QTest::newRow("server never answers") << vendor + QStringLiteral("/no-answer") << "1.0" << 2;
    }

    void clientAnswers()
    {
        QFETCH(QString, url);
        QFETCH(QString, version);
        QFETCH(int, code);
        const QVariantMap newer = versionFile(QStringLiteral("9.0b2"), QStringLiteral("Faster."));
        const QByteArray xml = OVPropertyList::toXml(newer);
        serve(QStringLiteral("newer.plist"), xml);
        serve(QStringLiteral("newer.bplist"), OVPropertyList::toBinary(newer));
        QVariantMap noVersion = newer;
        noVersion.remove(QStringLiteral("productVersion"));
        serve(QStringLiteral("noversion.plist"), OVPropertyList::toXml(noVersion));
        noVersion.insert(QStringLiteral("productVersion"), qint64(9));
        serve(QStringLiteral("numberversion.plist"), OVPropertyList::toXml(noVersion));
        serve(QStringLiteral("array.plist"), OVPropertyList::toXml(QVariantList{newer}));
        serve(QStringLiteral("truncated.plist"), xml.left(xml.size() / 2));
        serve(QStringLiteral("laughs.bplist"), OVHostile::laughs(26));
        // What the expansion of the laughs would break.
        const OVHostile::AddressLimit limit(1024 << 20);
        MacPADSocket socket;
        const QDeadlineTimer checkLimit(MacPADSocket::CheckTimeoutMs);
        socket.performCheck(QUrl(url), version);
        const Answer answer = waitForAnswer(socket, 40000);
        QCOMPARE(answer.code, code);
        const bool finished = code == 0 || code == 5;
        QCOMPARE(answer.finished, finished);
        QCOMPARE(answer.newVersionAvailable, code == 5);
        // The time-out ends a silent server well before the check's own limit.
        QVERIFY(!checkLimit.hasExpired());
        if (finished) {
            QCOMPARE(socket.newVersion(), QStringLiteral("9.0b2"));
            QCOMPARE(socket.productDownloadURL(), QStringLiteral("https://www.orvane.org/download/Orvane-9.0b2.tar.gz"));
        }
    }

    void addressFromMacPADUrl_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("as installed") << QByteArray() << 5 << "New version available";
        QTest::newRow("bare address") << QByteArray("  " OV_TEST_UPDATE_URL "\n\n") << 5 << "New version available";
        QTest::newRow("missing") << QByteArray("-") << 1 << "MacPAD.url file was not found";
        QTest::newRow("not text") << QByteArray("URL=\xff\xfe\x80https://") << 1 << "The MacPAD.url file can't be opened";
        QTest::newRow("not a URL") << QByteArray("URL=https://www.orvane.org/so ft ware/orvane.plist") << 1 << "URL or version was nil";
    }

    void addressFromMacPADUrl()
    {
        QFETCH(QByteArray, contents);
        QFETCH(int, code);
        QFETCH(QString, message);
        serve(QStringLiteral("software/orvane.plist"), OVPropertyList::toXml(versionFile(QStringLiteral("99.0"))));
        const QString urlFile = OVBundle::pathForResource(QStringLiteral("MacPAD"), QStringLiteral("url"));
        static const QByteArray installed = readFile(urlFile);
        QVERIFY(!installed.isEmpty());
        QFile::remove(urlFile);
        if (contents != "-") {
            writeFile(urlFile, contents.isEmpty() ? installed : contents);
        }
        MacPADSocket socket;
        socket.performCheckWithVersion(QStringLiteral("1.0"));
        const Answer answer = waitForAnswer(socket);
        writeFile(urlFile, installed);
        QCOMPARE(answer.code, code);
        QCOMPARE(answer.message, message);
        QCOMPARE(requests().size(), code == 5 ? 1 : 0);
    }

    // A newer version: the bell's sheet with the notes and the download address, whose edited text is what gets opened.
    void newerVersionShowsTheSheet_data()
    {
        QTest::addColumn<QString>("notes");
        QTest::addColumn<QString>("text");
        QTest::newRow("with notes") << "Faster copies.\nFewer surprises."
                                    << "Orvane 99.1\n\nFaster copies.\nFewer surprises.";
        QTest::newRow("without notes") << QString() << "Orvane 99.1\n\n";
    }

    void newerVersionShowsTheSheet()
    {
        QFETCH(QString, notes);
        QFETCH(QString, text);
        serve(QStringLiteral("software/orvane.plist"), OVPropertyList::toXml(versionFile(QStringLiteral("99.1"), notes)));
        m_opened.clear();
        auto pane = openPane(QVariantMap{{QStringLiteral("CheckForUpdates"), true}});
        // Not before the pane has had its moment on screen.
        QTest::qWait(1000);
        QVERIFY(requests().isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(visibleUpdateSheet(*pane), 15000);
        QCOMPARE(requests(), QStringList{QStringLiteral("443 /software/orvane.plist")});
        QDialog *sheet = visibleUpdateSheet(*pane);
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->findChild<QTextEdit *>(QStringLiteral("releaseNotesTextView"))->toPlainText(), text);
        auto *download = sheet->findChild<QLineEdit *>(QStringLiteral("downloadURLTextField"));
        QCOMPARE(download->text(), QStringLiteral("https://www.orvane.org/download/Orvane-99.1.tar.gz"));
        QVERIFY(!pane->findChild<OVUpdateNotice *>()->macPAD());
        download->setText(QStringLiteral("https://mirror.example/orvane-99.1.tar.gz"));
        sheet->findChild<QPushButton *>(QStringLiteral("downloadButton"))->click();
        QCOMPARE(m_opened, QList<QUrl>{QUrl(QStringLiteral("https://mirror.example/orvane-99.1.tar.gz"))});
        QVERIFY(!sheet->isVisible());
    }

    // Every other outcome is silent; off or without settings nothing goes out; found under the options, never announced.
    void otherOutcomesAreSilent_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QVariant>("settings");
        QTest::addColumn<int>("requestCount");
        QTest::addColumn<bool>("underOptions");
        const QVariantMap on{{QStringLiteral("CheckForUpdates"), true}};
        const QVariantMap off{{QStringLiteral("CheckForUpdates"), false}, {QStringLiteral("Master"), 0}};
        const QByteArray newer = OVPropertyList::toXml(versionFile(QStringLiteral("99.1")));
        QTest::newRow("equal") << OVPropertyList::toXml(versionFile(OVBundle::shortVersion())) << QVariant(on) << 1 << false;
        QTest::newRow("missing") << QByteArray() << QVariant(on) << 1 << false;
        QTest::newRow("off") << newer << QVariant(off) << 0 << false;
        QTest::newRow("no settings") << newer << QVariant() << 0 << false;
        QTest::newRow("newer, under the options") << newer << QVariant(on) << 1 << true;
    }

    void otherOutcomesAreSilent()
    {
        QFETCH(QByteArray, file);
        QFETCH(QVariant, settings);
        QFETCH(int, requestCount);
        QFETCH(bool, underOptions);
        if (!file.isEmpty()) {
            serve(QStringLiteral("software/orvane.plist"), file);
        }
        auto pane = openPane(settings);
        if (underOptions) {
            pane->showOptions(pane.get());
            QVERIFY(pane->optionsSheet()->isVisible());
        }
        if (requestCount > 0) {
            QTRY_VERIFY_WITH_TIMEOUT(!requests().isEmpty(), 10000);
        } else {
            QTest::qWait(4000);
        }
        QTRY_VERIFY_WITH_TIMEOUT(!pane->findChild<OVUpdateNotice *>()->macPAD(), 10000);
        QTest::qWait(500);
        QVERIFY(!visibleUpdateSheet(*pane));
        if (underOptions) {
            pane->hideOptions(nullptr);
            QTest::qWait(3000);
            QVERIFY(!visibleUpdateSheet(*pane));
        }
        QVERIFY(!OVUpdateNotice::windowHasSheet(pane.get()));
        QCOMPARE(requests().size(), requestCount);
    }
};

QTEST_MAIN(TestUpdate)
#include "test_update.moc"
