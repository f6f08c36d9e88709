// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What an item leaves out: paths and patterns matched as the copy tool
// takes them, the tool's options, and the preview's records as the tool
// writes them.
#include "OVExcludeEdit.h"
#include "OVExclusions.h"
#include "OVPreview.h"

#include <QTemporaryDir>
#include <QTest>

class TestExclusions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pathsAndPatterns()
    {
        const QString source = QStringLiteral("/home/ann");
        const auto words = [](const char *text) {
            return QString::fromLatin1(text).split(QLatin1Char(' '));
        };
        const OVExclusions exclusions(words("/home/ann/.cache /home/ann/Musik/ /home/annette/x *.tmp node_modules build/ Projekte/*/out Fotos/**/Roh "
                                            "Kopie?.odt [a]+.txt"),
                                      source);
        const struct {
            const char *path;
            bool isDir;
            bool excluded;
        } rows[] = {
            {".cache", true, true},
            {".cachet", false, false},
            {"Musik/Bach/01.flac", false, true},
            // Outside the source: ignored, as the script ignores it.
            {"../annette/x", false, false},
            {"notes.tmp", false, true},
            {"notes.tmp.txt", false, false},
            {"a/node_modules/lib/index.js", false, true},
            {"build", true, true},
            {"build", false, false},
            {"Projekte/App/out/a.o", false, true},
            {"Projekte/App/src/out", true, false},
            {"x/Projekte/App/out", true, false},
            {"Fotos/Roh", true, true},
            {"Fotos2/x/Roh", true, false},
            {"Kopie1.odt", false, true},
            {"Kopie12.odt", false, false},
            {"[a]+.txt", false, true},
            {"a+.txt", false, false},
            {"Ünïcødé/ščř.tmp", false, true},
            {"", true, false},
        };
        for (const auto &row : rows) {
            QVERIFY2(exclusions.excludes(QString::fromUtf8(row.path), row.isDir) == row.excluded, row.path);
        }
        QVERIFY(!OVExclusions({}, source).excludes(QStringLiteral("a"), false));
        QCOMPARE(OVExclusions::relativeTo(QStringLiteral("/home/ann/a/"), source), QStringLiteral("a"));
        QVERIFY(OVExclusions::relativeTo(QStringLiteral("/home/anna"), source).isNull());
        QCOMPARE(OVExclusions::relativeTo(QStringLiteral("/etc/x"), QStringLiteral("/")), QStringLiteral("etc/x"));

        // The copy tool's options: paths relative to the source, removed
        // ones dropped, outside ones left out.
        QCOMPARE(OVExclusions::psyncArguments(words("/home/ann/.cache *.iso /home/ann/Alt /srv/x tmp/"), words("*.iso /home/ann/Alt"), source),
                 words("--exclude-path=.cache --drop=*.iso --drop-path=Alt --exclude=tmp/"));
        // (A new item's defaults: test_backupitems.)
    }

    // The file manager's Exclude and Include: every item whose source holds
    // the path, a path entry of its own, what else leaves it out said.
    void excludeAndIncludeFromTheFileManager()
    {
        using Outcome = OVExcludeEdit::Outcome;
        const auto item = [](int frequency, const char *source, const char *destination) {
            OVBackupItem item;
            item.setCheckColumn(true);
            item.setFrequencyColumn(frequency);
            item.setSourcePath(QString::fromUtf8(source));
            item.setDestPath(QString::fromUtf8(destination));
            return item;
        };
        QVector<OVBackupItem> items = {item(0, "/home/ann", "/backup/daily"),
                                       item(1, "/home/ann/", "/backup/weekly"),
                                       item(0, "/srv", "/backup/srv"),
                                       item(OVBackupItem::NoSchedule, "/home/ann", "/backup/none")};
        items[1].setExclusions({QStringLiteral("*.iso"), QStringLiteral("/home/ann/Musik/")});
        const QString videos = QStringLiteral("/home/ann/Videos");

        Outcome outcome = OVExcludeEdit::exclude(&items, videos, false);
        QCOMPARE(outcome.kind, Outcome::Changed);
        QCOMPARE(outcome.sources.size(), 2);
        QCOMPARE(items[0].exclusions(), QStringList({videos}));
        QCOMPARE(items[1].exclusions().last(), videos);
        QVERIFY(items[2].exclusions().isEmpty() && items[3].exclusions().isEmpty());
        QCOMPARE(OVExcludeEdit::exclude(&items, videos + QStringLiteral("/2024/"), true).kind, Outcome::AlreadyThere);
        QCOMPARE(OVExcludeEdit::exclude(&items, QStringLiteral("/home/ann"), false).kind, Outcome::NotInAnyItem);
        QCOMPARE(OVExcludeEdit::exclude(&items, QStringLiteral("/etc/fstab"), false).kind, Outcome::NotInAnyItem);
        QCOMPARE(OVExcludeEdit::exclude(&items, QStringLiteral("/home/ann/Alt"), true).kind, Outcome::Changed);
        QCOMPARE(items[0].exclusionsRemovedFromBackup(), QStringList({QStringLiteral("/home/ann/Alt")}));

        outcome = OVExcludeEdit::include(&items, videos);
        QCOMPARE(outcome.kind, Outcome::Changed);
        QVERIFY(!items[0].exclusions().contains(videos) && !items[1].exclusions().contains(videos));
        QCOMPARE(OVExcludeEdit::include(&items, QStringLiteral("/home/ann/Alt")).kind, Outcome::Changed);
        QVERIFY(items[0].exclusionsRemovedFromBackup().isEmpty());
        QCOMPARE(OVExcludeEdit::include(&items, QStringLiteral("/home/ann/Musik")).kind, Outcome::Changed);
        QCOMPARE(items[1].exclusions(), QStringList({QStringLiteral("*.iso")}));
        QCOMPARE(OVExcludeEdit::include(&items, videos).kind, Outcome::AlreadyThere);
        // Left out by a pattern, which stays: said, with the pattern.
        outcome = OVExcludeEdit::include(&items, QStringLiteral("/home/ann/Filme/x.iso"));
        QCOMPARE(outcome.kind, Outcome::StillExcluded);
        QCOMPARE(outcome.by, QStringLiteral("*.iso"));
    }

    void cacheDirTags()
    {
        QTemporaryDir dir;
        const auto tag = [&dir](const char *folder, const QByteArray &content) {
            QDir().mkpath(dir.filePath(QLatin1String(folder)));
            QFile file(dir.filePath(QLatin1String(folder) + QStringLiteral("/CACHEDIR.TAG")));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(content);
        };
        tag("real", "Signature: 8a477f597d28d172789f06886806bc55\n# made by a program\n");
        tag("short", "Signature: 8a477f597d28d172789f06886806bc5");
        tag("other", "Signature: 00000000000000000000000000000000\n");
        for (const char *folder : {"real", "short", "other", "none"}) {
            QVERIFY2(OVExclusions::hasCacheDirTag(dir.filePath(QLatin1String(folder))) == !qstrcmp(folder, "real"), folder);
        }
    }

    // Records as the tool writes them ("KIND SIZE PATH\0"), among its own
    // lines, in pieces cut anywhere.
    void previewRecords()
    {
        const QByteArray output = QByteArrayLiteral(
            "psync: full walk (first run to this destination)\n"
            "copy 12 a.txt\0"
            "replace 4096 Ünïcødé/b c.odt\0"
            "copy 0 leer\0"
            "delete 7 old/line\nbreak\0"
            "psync: not copied: /home/ann/usb is another disk mounted inside the source\n"
            "rename 1 x\0"
            "copy -1 y\0"
            "delete 3 \0"
            "copy 5 z.bin\0"
            "copy 9 unfinished");
        for (int piece : {1, 7, 1000}) {
            OVPreview preview;
            QVector<OVPreview::Record> records;
            for (int at = 0; at < output.size(); at += piece) {
                records += preview.feed(output.mid(at, piece));
            }
            QCOMPARE(records.size(), 5);
            QCOMPARE(records[1].kind, OVPreview::Replace);
            QCOMPARE(records[1].size, qint64(4096));
            QCOMPARE(records[1].path, QByteArray("Ünïcødé/b c.odt"));
            QCOMPARE(records[3].path, QByteArray("old/line\nbreak"));
            QCOMPARE(preview.count(OVPreview::Copy), qint64(3));
            QCOMPARE(preview.bytes(OVPreview::Copy), qint64(17));
            QCOMPARE(preview.count(OVPreview::Delete), qint64(1));
            QCOMPARE(preview.messages(),
                     QStringList({QStringLiteral("full walk (first run to this destination)"),
                                  QStringLiteral("not copied: /home/ann/usb is another disk mounted inside the source")}));
            // Three records of another form and the unfinished one.
            QCOMPARE(preview.unreadable(), 4);
        }

        // The dry run of an item: its options, its exclusions, the Safety
        // Net inside its source left out, source and destination last.
        QTemporaryDir dir;
        QDir().mkpath(dir.filePath(QStringLiteral("home/Documents/Safety Net Archives")));
        OVBackupItem item;
        item.setSourcePath(dir.filePath(QStringLiteral("home")));
        item.setDestPath(QStringLiteral("/Volumes/Backup/home"));
        item.setExclusions({QStringLiteral("*.tmp"), dir.filePath(QStringLiteral("home/.cache"))}, {QStringLiteral("*.tmp")});
        OVPreview::Options options;
        options.mirror = true;
        options.safetyNetFolder = dir.filePath(QStringLiteral("home/Documents/Safety Net Archives"));
        QCOMPARE(OVPreview::arguments(item, options),
                 QStringList({QStringLiteral("-n"),
                              QStringLiteral("--preview"),
                              QStringLiteral("-d"),
                              QStringLiteral("--drop=*.tmp"),
                              QStringLiteral("--exclude-path=.cache"),
                              QStringLiteral("--exclude-path=Documents/Safety Net Archives"),
                              item.sourcePath(),
                              item.destPath()}));
    }
};

QTEST_GUILESS_MAIN(TestExclusions)
#include "test_exclusions.moc"
