// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The strings table: its parser, and that the shipped table holds every key
// the code looks up (a missing key shows as an empty text).
#include "OVLocalizedStrings.h"

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
};

QTEST_GUILESS_MAIN(TestStrings)
#include "test_strings.moc"
