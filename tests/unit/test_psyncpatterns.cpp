// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// psync's exclusion patterns: what its own walk leaves out and the rules it gives rsync must agree.
#include "patterns.h"
#include "rsync.h"

#include <QTest>

using namespace psync;

class TestPsyncPatterns : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void matching_data()
    {
        QTest::addColumn<QByteArray>("pattern");
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<bool>("folder");
        QTest::addColumn<bool>("left");
        // A name at any depth.
        QTest::newRow("name top") << QByteArray("*.tmp") << QByteArray("a.tmp") << false << true;
        QTest::newRow("name deep") << QByteArray("*.tmp") << QByteArray("x/y/a.tmp") << false << true;
        QTest::newRow("name is the last part") << QByteArray("*.tmp") << QByteArray("a.tmp/b") << false << false;
        QTest::newRow("** in a name is *") << QByteArray("**.tmp") << QByteArray("x/a.tmp") << false << true;
        QTest::newRow("? one character") << QByteArray("?.log") << QByteArray("d/a.log") << false << true;
        QTest::newRow("? not two") << QByteArray("?.log") << QByteArray("ab.log") << false << false;
        // Folders only.
        QTest::newRow("folder only, folder") << QByteArray("node_modules/") << QByteArray("p/node_modules") << true << true;
        QTest::newRow("folder only, file") << QByteArray("node_modules/") << QByteArray("p/node_modules") << false << false;
        // A path from the top.
        QTest::newRow("path") << QByteArray("docs/*.pdf") << QByteArray("docs/a.pdf") << false << true;
        QTest::newRow("path is anchored") << QByteArray("docs/*.pdf") << QByteArray("x/docs/a.pdf") << false << false;
        QTest::newRow("* stops at /") << QByteArray("docs/*.pdf") << QByteArray("docs/x/a.pdf") << false << false;
        QTest::newRow("** crosses /") << QByteArray("docs/**.pdf") << QByteArray("docs/x/a.pdf") << false << true;
        QTest::newRow("**/ any folders") << QByteArray("**/build/") << QByteArray("a/b/build") << true << true;
        QTest::newRow("**/ no folder") << QByteArray("**/build/") << QByteArray("build") << true << true;
        QTest::newRow("middle **/") << QByteArray("src/**/gen") << QByteArray("src/gen") << false << true;
        QTest::newRow("leading / anchors") << QByteArray("/cache") << QByteArray("x/cache") << false << false;
        // Bytes, not text; "[" and "\" are plain characters.
        QTest::newRow("invalid UTF-8") << QByteArray("caf\xe9*") << QByteArray("d/caf\xe9 cr\xe8me") << false << true;
        QTest::newRow("bracket literal") << QByteArray("[draft]*") << QByteArray("[draft] v2") << false << true;
        QTest::newRow("bracket no class") << QByteArray("[draft]*") << QByteArray("d v2") << false << false;
    }
    void matching()
    {
        QFETCH(QByteArray, pattern);
        QFETCH(QByteArray, path);
        QFETCH(bool, folder);
        QFETCH(bool, left);
        bool any = false;
        for (const Rule &rule : patternRules(pattern.toStdString(), false))
            any = any || matches(rule, path.toStdString(), folder);
        QCOMPARE(any, left);
    }

    void rsyncRules()
    {
        auto rules = [](const char *pattern) {
            QStringList out;
            for (const Rule &r : patternRules(pattern, false))
                out << QString::fromStdString(rsyncPattern(r));
            return out;
        };
        QCOMPARE(rules("*.tmp"), QStringList{QStringLiteral("*.tmp")});
        QCOMPARE(rules("docs/*.pdf"), QStringList{QStringLiteral("/docs/*.pdf")});
        QCOMPARE(rules("node_modules/"), QStringList{QStringLiteral("node_modules/")});
        QCOMPARE(rules("**/build/"), (QStringList{QStringLiteral("/**/build/"), QStringLiteral("build/")}));
        QCOMPARE(rules("[a]*\\"), QStringList{QStringLiteral("\\[a]*\\\\")});
        // A literal path: its wildcard characters are escaped when rsync
        // would read them as wildcards.
        QCOMPARE(QString::fromStdString(rsyncPattern(pathRule("/Photos/*2024*/", false))), QStringLiteral("/Photos/\\*2024\\*"));
        QCOMPARE(QString::fromStdString(rsyncPattern(pathRule("plain\\name", false))), QStringLiteral("/plain\\name"));
    }

    void versions()
    {
        QVERIFY(compareVersions("3.2.7", "3.5.0") < 0);
        QVERIFY(compareVersions("3.5.0", "3.5.0") == 0);
        QVERIFY(compareVersions("3.10.1", "3.5.0") > 0);
        QVERIFY(compareVersions("4.0", "3.5.0") > 0);
    }
};

QTEST_GUILESS_MAIN(TestPsyncPatterns)
#include "test_psyncpatterns.moc"
