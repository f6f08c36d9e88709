// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The texts the user reads: the strings table (a missing key shows as an empty text), the notices' texts.
#include "OVLocalizedStrings.h"
#include "OVNoticeText.h"
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

class TestStrings : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parsesTheTableFormat()
    {
        const auto table =
            OVLocalizedStrings::parse(QStringLiteral("/* a comment\n spanning lines */\n"
                                                     "\"Plain\" = \"Value\";\n"
                                                     "// a line comment\n"
                                                     "\"Escaped\" = \"say \\\"hi\\\"\\nback\\\\slash\";\n"
                                                     "\"Broken\" = \"no semicolon\"\n"
                                                     "\"After\"=\"still read\";\n"
                                                     "\"Unicode\" = \"Sauvegarde…\";"));
        QCOMPARE(table.value(QStringLiteral("Plain")), QStringLiteral("Value"));
        QCOMPARE(table.value(QStringLiteral("Escaped")), QStringLiteral("say \"hi\"\nback\\slash"));
        QVERIFY(!table.contains(QStringLiteral("Broken")));
        QCOMPARE(table.value(QStringLiteral("After")), QStringLiteral("still read"));
        QCOMPARE(table.value(QStringLiteral("Unicode")), QStringLiteral("Sauvegarde…"));
    }

    void shippedTableHoldsEveryKeyTheCodeUses()
    {
        QFile file(QStringLiteral(OV_SOURCE_DIR "/resources/Localizable.strings"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const auto table = OVLocalizedStrings::parse(QString::fromUtf8(file.readAll()));
        const QRegularExpression lookup(QStringLiteral("OVLocalized\\(\"([A-Za-z]+)\"\\)"));
        int uses = 0;
        QDirIterator it(QStringLiteral(OV_SOURCE_DIR), {QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (path.contains(QLatin1String("/tests/")) || path.contains(QLatin1String("/build"))) {
                continue;
            }
            QFile source(path);
            QVERIFY(source.open(QIODevice::ReadOnly));
            auto matches = lookup.globalMatch(QString::fromUtf8(source.readAll()));
            while (matches.hasNext()) {
                const QString key = matches.next().captured(1);
                ++uses;
                QVERIFY2(!table.value(key).isEmpty(), qPrintable(key + QStringLiteral(" is missing from Localizable.strings")));
            }
        }
        QVERIFY(uses > 0);
    }

    void dismissDelayFollowsValueAndUnit()
    {
        using ms = std::optional<qint64>;
        const auto delay = [](const QVariant &on, const QVariant &value = {}, const QVariant &unit = {}) {
            QVariantMap s{{QStringLiteral("AutoDismissAlert"), on}, {QStringLiteral("TimeValue"), value}, {QStringLiteral("TimeUnit"), unit}};
            for (auto it = s.begin(); it != s.end();) {
                it = it->isValid() ? it + 1 : s.erase(it);
            }
            return OVNoticeText::dismissDelay(s);
        };
        QCOMPARE(delay({}), ms());
        QCOMPARE(delay(false, 5), ms());
        // Absent value and unit: 2 minutes.
        QCOMPARE(delay(true), ms(120000));
        QCOMPARE(delay(true, 7, 0), ms(7000));
        QCOMPARE(delay(true, 3, 2), ms(3 * 3600 * 1000));
        // Out of range: at least a second, at most a day; a unit beyond the menu is the menu's default, minutes, as the options show it.
        QCOMPARE(delay(true, 0, 0), ms(1000));
        QCOMPARE(delay(true, 999, 2), ms(24 * 3600 * 1000));
        QCOMPARE(delay(true, 3, 9), ms(3 * 60 * 1000));
    }

    // Names are data, not markup; the report is cut to a few lines.
    void noticeTexts()
    {
        QCOMPARE(OVNoticeText::kindOfRun(QStringLiteral("Weekly"), false), std::optional<QString>(QStringLiteral("weekly")));
        QCOMPARE(OVNoticeText::kindOfRun(QStringLiteral("Daily"), true), std::optional<QString>(QStringLiteral("manual")));
        QCOMPARE(OVNoticeText::kindOfRun(QStringLiteral("daily"), false), std::optional<QString>());
        QCOMPARE(OVNoticeText::jobTitle(QStringLiteral("manual")), QStringLiteral("Manual backup"));
        QCOMPARE(OVNoticeText::logFile(QStringLiteral("Monthly")), QStringLiteral("/var/log/orvane_monthly.log"));
        QCOMPARE(OVNoticeText::askDeletionsText(1500, QStringLiteral("/media/b<1>"), QStringLiteral("/home/a & b")),
                 QStringLiteral("1500 files in /media/b&lt;1&gt; are no longer in /home/a &amp; b. Delete them from the backup?"));
        QCOMPARE(OVNoticeText::askDeletionsText(1, QStringLiteral("/b"), QStringLiteral("/a")),
                 QStringLiteral("1 file in /b is no longer in /a. Delete it from the backup?"));
        QCOMPARE(OVNoticeText::withDetails(QStringLiteral("The daily backup finished with errors."),
                                           "one\n\ntwo <b>\nthree\nfour\nfive\nsix\n" + QByteArray(400, 'x')),
                 QStringLiteral("The daily backup finished with errors.<br/>one<br/>two &lt;b&gt;<br/>three<br/>four<br/>five"));
        QCOMPARE(OVNoticeText::withDetails(QStringLiteral("x"), QByteArray(400, 'y')).size(), 1 + 5 + 300);
    }

    void progressLines()
    {
        const auto p = OVNoticeText::parseProgress("120 60000 5000 2000000000000 0 3\n");
        QVERIFY(p);
        QCOMPARE(p->filesDone, 120ULL);
        QCOMPARE(p->bytesTotal, 2000000000000ULL);
        QCOMPARE(p->sourceCount, 3ULL);
        QCOMPARE(p->percent(), 0UL);
        QCOMPARE(OVNoticeText::parseProgress("30 60 0 0 0 1")->percent(), 50UL);
        // The script counts folders from 1.
        QCOMPARE(OVNoticeText::parseProgress("0 0 0 0 1 3")->folderText(), QStringLiteral("1 of 3"));
        QCOMPARE(OVNoticeText::parseProgress("5 9 0 0 7 3")->folderText(), QStringLiteral("3 of 3"));
        QCOMPARE(OVNoticeText::parseProgress("5 9 0 0 1 1")->folderText(), QString());
        QCOMPARE(OVNoticeText::parseProgress("30 60 75 100 0 1")->percent(), 75UL);
        QCOMPARE(OVNoticeText::parseProgress("9 3 9 3 0 1")->percent(), 100UL);
        for (const char *bad : {"1 2 3 4 5", "1 2 -3 4 5 6", "1  2 3 4 5 6", "", "1 2 3 4 5 99999999999999999999999"}) {
            QVERIFY2(!OVNoticeText::parseProgress(bad), bad);
        }
    }
};

QTEST_GUILESS_MAIN(TestStrings)
#include "test_strings.moc"
