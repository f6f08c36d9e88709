// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The journal's bookkeeping: when a destination may copy a list and when it must walk fully; the script reader; turning a cut into rsync's lists.
#include "book.h"
#include "cutlist.h"
#include "scripts.h"
#include <QTemporaryDir>
#include <QTest>
#include <fcntl.h>
#include <set>
#include <unistd.h>

using namespace ovjournal;

namespace
{
constexpr std::int64_t Day = 24 * 3600;
const std::string S = "/home/u";

std::set<std::string> paths(const Decision &d)
{
    std::set<std::string> all;
    for (const Entry &e : d.entries) {
        all.insert((e.folder ? "R " : "F ") + e.path);
    }
    return all;
}

// A successful copy to destination A (on disk1) or B (on disk2).
Decision copied(Book &book, const std::string &destination, std::int64_t t = 1000 * Day)
{
    const Decision d = book.cut(S, destination, destination == "A" ? "disk1" : "disk2", "", "", t);
    book.commit(S, destination, d.number, t);
    return d;
}

// A book whose destination A is up to date after a first full run.
Book started()
{
    Book book;
    book.start(0, "restarted", 1000 * Day);
    copied(book, "A");
    return book;
}
}

class TestJournalBook : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void listsWhatChangedSinceTheLastSuccess()
    {
        Book book;
        book.start(0, "restarted", 1000 * Day);
        book.note(S, "before", false); // nobody needs it yet
        Decision d = book.cut(S, "A", "disk1", "", "", 1000 * Day);
        QCOMPARE(d.fullWalk, std::string("first run to this destination"));
        // Changes during the first copy belong to the next cut.
        book.note(S, "during", false);
        QVERIFY(book.commit(S, "A", d.number, 1000 * Day).empty());
        book.note(S, "new", true);
        book.note(S, "new/inside", false); // copied with its new folder
        d = book.cut(S, "A", "disk1", "", "", 1000 * Day);
        QVERIFY(d.fullWalk.empty());
        QCOMPARE(paths(d), (std::set<std::string>{"F during", "R new"}));
        // A failed copy is not committed: its entries come again.
        book.note(S, "later", false);
        d = book.cut(S, "A", "disk1", "", "", 1000 * Day);
        QCOMPARE(paths(d), (std::set<std::string>{"F during", "R new", "F later"}));
        QVERIFY(book.commit(S, "A", d.number, 1000 * Day).empty());
        d = book.cut(S, "A", "disk1", "", "", 1000 * Day);
        QVERIFY(d.fullWalk.empty() && d.entries.empty());
        // Only the latest cut may be committed.
        const Decision newer = book.cut(S, "A", "disk1", "", "", 1000 * Day);
        QVERIFY(!book.commit(S, "A", d.number, 1000 * Day).empty());
        QVERIFY(book.commit(S, "A", newer.number, 1000 * Day).empty());
    }

    void twoDestinationsInTurnEachGetWhatTheyLack()
    {
        Book book = started();
        copied(book, "B");
        book.note(S, "one", false);
        copied(book, "A");
        book.note(S, "two", false);
        QCOMPARE(paths(copied(book, "B")), (std::set<std::string>{"F one", "F two"}));
        QCOMPARE(paths(copied(book, "A")), (std::set<std::string>{"F two"}));
        // Nothing is kept that no destination still lacks.
        QCOMPARE(book.records(S), std::size_t(0));
    }

    void fullWalk_data()
    {
        QTest::addColumn<QByteArray>("lost"); // the journal lost track: of everything, of this source
        QTest::addColumn<QByteArray>("identity");
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QByteArray>("blocked");
        QTest::addColumn<int>("later");
        QTest::addColumn<QString>("reason");
        const auto row = [](const char *name, const char *lost, const char *id, const char *settings, const char *blocked, int later, const char *why) {
            QTest::newRow(name) << QByteArray(lost) << QByteArray(id) << QByteArray(settings) << QByteArray(blocked) << later << QString::fromUtf8(why);
        };
        row("lost track of everything", "overflow", "disk1", "", "", 0, "overflow");
        row("lost track of this source", "moved", "disk1", "", "", 0, "moved");
        row("another disk at the same path", "", "disk2", "", "", 0, "the destination is not the folder the last backup went to (another disk?)");
        row("other settings", "", "disk1", "--exclude=*.o", "", 0, "the backup's settings changed since its last run");
        row("a week since the last full walk", "", "disk1", "", "", 7 * Day, "a full check once a week");
        row("the clock went back", "", "disk1", "", "", -60, "a full check once a week");
        row("not watched", "", "disk1", "", "on FUSE", 0, "on FUSE");
        row("restarted", "restarted", "disk1", "", "", 0, "the journal was restarted");
    }
    void fullWalk()
    {
        QFETCH(QByteArray, lost);
        QFETCH(int, later);
        QFETCH(QString, reason);
        const std::int64_t t = 1000 * Day + later;
        QFETCH(QByteArray, identity);
        QFETCH(QByteArray, settings);
        QFETCH(QByteArray, blocked);
        const auto cut = [&](Book &book, std::int64_t when) {
            return book.cut(S, "A", identity.toStdString(), settings.toStdString(), blocked.toStdString(), when);
        };
        Book book = started();
        book.note(S, "file", false);
        if (lost == "overflow") {
            book.lose("overflow");
        } else if (lost == "moved") {
            book.lose(S, "moved");
            book.lose("/elsewhere", "elsewhere"); // no matter to S
        } else if (lost == "restarted") {
            Book reloaded;
            QVERIFY(reloaded.load(book.save()));
            reloaded.start(reloaded.current(), "the journal was restarted", t);
            QVERIFY(reloaded.current() > book.current());
            book = reloaded;
        }
        const Decision d = cut(book, t);
        QCOMPARE(QString::fromStdString(d.fullWalk), reason);
        QVERIFY(d.entries.empty());
        // Once that full walk succeeded, the journal lists again.
        QVERIFY(book.commit(S, "A", d.number, t).empty());
        book.note(S, "after", false);
        QCOMPARE(cut(book, t + 60).fullWalk.empty(), blocked.isEmpty());
    }

    void unwantedChangesAreNotKept()
    {
        Book book = started();
        // A week without a full walk: the next cut walks anyway, so nothing is kept, even if the clock later says otherwise.
        book.note(S, "x", false);
        copied(book, "B", 1008 * Day);
        QCOMPARE(book.cut(S, "A", "disk1", "", "", 1001 * Day).fullWalk, std::string("a full check once a week"));
        Book fresh;
        fresh.start(0, "restarted", 0);
        fresh.note(S, "x", false);
        QCOMPARE(fresh.records(S), std::size_t(0));
    }

    void readsTheSourcesOfAFilledScript()
    {
        const std::string script =
            "#!/usr/bin/ruby\nfrequency = \"Daily\"\nsourceFolders = []\n#ov_sourceFolders\n"
            "sourceFolders = [ \"/home/a \\\"quoted\\\" \\#1\", \"/home/b\\\\c/\", \"/odd\\n\", \"/new\nline\" ]\n"
            "destFolders = [ \"/backup\" ]\n\nclass OrvaneBackup\nsourceFolders = [ \"/not/a/setting\" ]\n";
        const std::vector<std::string> expected = {"/home/a \"quoted\" #1", "/home/b\\c", "/new\nline"};
        QCOMPARE(scripts::sourcesOf(script), expected);
        QVERIFY(scripts::sourcesOf("sourceFolders = [ \"/x\" ]\n").empty());
    }

    void settlesACutAgainstTheSource()
    {
        QTemporaryDir dir;
        const std::string top = dir.path().toStdString();
        auto run = [&](const char *command) {
            QCOMPARE(system(("cd '" + top + "' && " + command).c_str()), 0);
        };
        run("mkdir -p moved/deep kept gone2 && touch moved/deep/f kept/f plain && ln -s kept link");
        const int fd = open(top.c_str(), O_RDONLY | O_DIRECTORY);
        QVERIFY(fd >= 0);
        CutList list = settle(fd,
                              {{"moved", true},
                               {"moved/deep/f", false},
                               {"kept/f", false},
                               {"kept", false},
                               {"gone", false},
                               {"gone/below", false},
                               {"link/f", false},
                               {"plain", true},
                               {".", false}});
        QVERIFY(list.fullWalk.empty());
        QCOMPARE(list.entries, (std::vector<std::string>{"gone", "kept/f", "moved", "plain"}));
        QCOMPARE(list.foldersAlone, (std::vector<std::string>{"kept", "."}));
        list = settle(fd, {{"kept/f", false}});
        QCOMPARE(list.entries, (std::vector<std::string>{"kept/f"}));
        QVERIFY(list.foldersAlone.empty());
        // A file whose other name is not in the list would be split.
        run("ln kept/f other");
        QVERIFY(!settle(fd, {{"kept/f", false}}).fullWalk.empty());
        QVERIFY(settle(fd, {{"kept/f", false}, {"other", false}}).fullWalk.empty());
        QVERIFY(!settle(fd, {{"moved", true}, {"kept/f", false}}).fullWalk.empty());
        run("ln other moved/deep/g");
        QVERIFY(settle(fd, {{"moved", true}, {"kept/f", false}, {"other", false}}).fullWalk.empty());
        close(fd);
        QVERIFY(pathBefore("a", "a/b") && pathBefore("a/b", "a!") && pathBefore("a/z", "a0"));
    }
};

QTEST_GUILESS_MAIN(TestJournalBook)
#include "test_journalbook.moc"
