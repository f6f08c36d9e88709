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
    void matching()
    {
        // {pattern, path, a folder, left out}
        const std::tuple<std::string, std::string, bool, bool> rows[] = {
            // A name at any depth, as the last part only; "**" in a name is "*", "?" one character.
            {"*.tmp", "a.tmp", false, true},
            {"*.tmp", "x/y/a.tmp", false, true},
            {"*.tmp", "a.tmp/b", false, false},
            {"**.tmp", "x/a.tmp", false, true},
            {"?.log", "d/a.log", false, true},
            {"?.log", "ab.log", false, false},
            // Folders only.
            {"node_modules/", "p/node_modules", true, true},
            {"node_modules/", "p/node_modules", false, false},
            // A path from the top, anchored: "*" stops at "/", "**" crosses it, "**/" is any folders or none.
            {"docs/*.pdf", "docs/a.pdf", false, true},
            {"docs/*.pdf", "x/docs/a.pdf", false, false},
            {"docs/*.pdf", "docs/x/a.pdf", false, false},
            {"docs/**.pdf", "docs/x/a.pdf", false, true},
            {"**/build/", "a/b/build", true, true},
            {"**/build/", "build", true, true},
            {"src/**/gen", "src/gen", false, true},
            {"/cache", "x/cache", false, false},
            // Bytes, not text (invalid UTF-8); "[" and "\" are plain characters.
            {"caf\xe9*", "d/caf\xe9 cr\xe8me", false, true},
            {"[draft]*", "[draft] v2", false, true},
            {"[draft]*", "d v2", false, false},
        };
        for (const auto &[pattern, path, folder, left] : rows) {
            bool any = false;
            for (const Rule &rule : patternRules(pattern, false))
                any = any || matches(rule, path, folder);
            QVERIFY2(any == left, (pattern + " on " + path).c_str());
        }
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
        // A literal path: its wildcard characters are escaped when rsync would read them as wildcards.
        QCOMPARE(QString::fromStdString(rsyncPattern(pathRule("/Photos/*2024*/", false))), QStringLiteral("/Photos/\\*2024\\*"));
        QCOMPARE(QString::fromStdString(rsyncPattern(pathRule("plain\\name", false))), QStringLiteral("/plain\\name"));
        // rsync's version, compared by number.
        QVERIFY(compareVersions("3.2.7", "3.5.0") < 0 && compareVersions("3.5.0", "3.5.0") == 0);
        QVERIFY(compareVersions("3.10.1", "3.5.0") > 0 && compareVersions("4.0", "3.5.0") > 0);
    }
};

QTEST_GUILESS_MAIN(TestPsyncPatterns)
#include "test_psyncpatterns.moc"
