// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// What an item leaves out, matched as the copy tool takes it; the preview's records as the tool writes them.
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
            return QString::fromUtf8(text).split(QLatin1Char(' '));
        };
        const OVExclusions exclusions(words("/home/ann/.cache /home/ann/Musik/ /home/annette/x *.tmp node_modules build/ Projekte/*/out Fotos/**/Roh "
                                            "Kopie?.odt [a]+.txt"),
                                      source);
        // A final "/" marks a folder; "../annette/x" is outside the source, ignored as the script ignores it.
        const auto excludes = [&exclusions](const QString &path) {
            return exclusions.excludes(path.endsWith(QLatin1Char('/')) ? path.chopped(1) : path, path.endsWith(QLatin1Char('/')));
        };
        for (const QString &path : words(".cache/ Musik/Bach/01.flac notes.tmp a/node_modules/lib/index.js build/ Projekte/App/out/a.o Fotos/Roh/ "
                                         "Kopie1.odt [a]+.txt Ünïcødé/ščř.tmp")) {
            QVERIFY2(excludes(path), qPrintable(path));
        }
        for (const QString &path : words(".cachet ../annette/x notes.tmp.txt build Projekte/App/src/out/ x/Projekte/App/out/ Fotos2/x/Roh/ Kopie12.odt "
                                         "a+.txt /")) {
            QVERIFY2(!excludes(path), qPrintable(path));
        }
        QVERIFY(!OVExclusions({}, source).excludes(QStringLiteral("a"), false));
        QCOMPARE(OVExclusions::relativeTo(QStringLiteral("/home/ann/a/"), source), QStringLiteral("a"));
        QVERIFY(OVExclusions::relativeTo(QStringLiteral("/home/anna"), source).isNull());
        QCOMPARE(OVExclusions::relativeTo(QStringLiteral("/etc/x"), QStringLiteral("/")), QStringLiteral("etc/x"));
        // The copy tool's options: paths relative to the source, removed ones dropped, outside ones left out.
        QCOMPARE(OVExclusions::psyncArguments(words("/home/ann/.cache *.iso /home/ann/Alt /srv/x tmp/"), words("*.iso /home/ann/Alt"), source),
                 words("--exclude-path=.cache --drop=*.iso --drop-path=Alt --exclude=tmp/"));
    }

    // The file manager's Exclude and Include: every item whose source holds the path; what else leaves it out said.
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
        const std::pair<const char *, QByteArray> tags[] = {{"real", "Signature: 8a477f597d28d172789f06886806bc55\n# made by a program\n"},
                                                            {"short", "Signature: 8a477f597d28d172789f06886806bc5"},
                                                            {"other", "Signature: 00000000000000000000000000000000\n"}};
        for (const auto &[folder, content] : tags) {
            QDir().mkpath(dir.filePath(QLatin1String(folder)));
            QFile file(dir.filePath(QLatin1String(folder) + QStringLiteral("/CACHEDIR.TAG")));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        }
        for (const char *folder : {"real", "short", "other", "none"}) {
            QVERIFY2(OVExclusions::hasCacheDirTag(dir.filePath(QLatin1String(folder))) == !qstrcmp(folder, "real"), folder);
        }
    }

    // Records as the tool writes them ("KIND SIZE PATH\0"), among its own lines, in pieces cut anywhere.
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
            QCOMPARE(preview.messages().join(QLatin1Char('|')),
                     QStringLiteral("full walk (first run to this destination)|not copied: /home/ann/usb is another disk mounted inside the source"));
            // Three records of another form and the unfinished one.
            QCOMPARE(preview.unreadable(), 4);
        }
        // The dry run of an item: its options, its exclusions, the Safety Net inside its source left out, source and destination last.
        QTemporaryDir dir;
        QDir().mkpath(dir.filePath(QStringLiteral("home/Documents/Safety Net Archives")));
        OVBackupItem item;
        item.setSourcePath(dir.filePath(QStringLiteral("home")));
        item.setDestPath(QStringLiteral("/Volumes/Backup/home"));
        item.setExclusions({QStringLiteral("*.tmp"), dir.filePath(QStringLiteral("home/.cache"))}, {QStringLiteral("*.tmp")});
        OVPreview::Options options;
        options.mirror = true;
        options.safetyNetFolder = dir.filePath(QStringLiteral("home/Documents/Safety Net Archives"));
        QCOMPARE(OVPreview::arguments(item, options).join(QLatin1Char('|')),
                 QStringLiteral("-n|--preview|-d|--drop=*.tmp|--exclude-path=.cache|--exclude-path=Documents/Safety Net Archives|") + item.sourcePath()
                     + QLatin1Char('|') + item.destPath());
    }
};

QTEST_GUILESS_MAIN(TestExclusions)
#include "test_exclusions.moc"
