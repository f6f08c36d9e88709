// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The item record, its keyed archive and the whole-list queries.
#include "OVBackupItem.h"
#include "OVBackupItemModel.h"
#include "OVItemArchive.h"
#include "OVPropertyList.h"
#include <QDir>
#include <QFile>
#include <QTest>

Q_DECLARE_METATYPE(OVBackupItem)

class TestBackupItems : public QObject
{
    Q_OBJECT

    static QByteArray platformArchive()
    {
        QFile file(QStringLiteral(OV_SOURCE_DIR "/tests/unit/data/apple-keyed-archive.xml"));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    // An editable table enables the tick box of an item with its labels.
    static OVBackupItem item(int frequency, bool checked, const char *source, const char *dest, bool toast = false, bool enabled = true)
    {
        OVBackupItem result;
        result.setFrequencyColumn(frequency);
        result.setCheckColumn(checked);
        result.setBackupSource(enabled ? QStringLiteral("source") : QString());
        result.setBackupDestination(enabled ? QStringLiteral("destination") : QString());
        result.setToast(toast);
        result.setSourcePath(QString::fromUtf8(source));
        result.setDestPath(QString::fromUtf8(dest));
        return result;
    }
private Q_SLOTS:
    // checkEnabled is never taken from the dictionary, nor are the paths.
    void initWithValues()
    {
        const OVBackupItem full = OVBackupItem::initWithValues(
            {{QStringLiteral("CheckEnabled"), true}, {QStringLiteral("BackupSource"), QStringLiteral("Home")}, {QStringLiteral("DestColumn"), 2}});
        QVERIFY(!full.checkEnabled() && full.sourcePath().isNull());
        QCOMPARE(full.backupSource(), QStringLiteral("Home"));
        QCOMPARE(full.destColumn(), 2);
    }

    void archiveRoundTrip()
    {
        OVBackupItem a = item(int(OVFrequency::Weekly), true, "/home/ann/Fotos \"2024\" #{x}", "/media/ann/Backup", false, true);
        a.setBackupSource(QStringLiteral("Fotos ✓"));
        a.setBackupDestination(QString(QLatin1String("")));
        a.setDestColumn(2);
        OVBackupItem b = item(OVBackupItem::NoSchedule, false, nullptr, nullptr, true, false);
        // Equal strings are stored once and shared. What an item leaves out travels with it, the entries removed from the backup a part of it.
        OVBackupItem c = a;
        c.setFrequencyColumn(int(OVFrequency::Manual));
        c.setExclusions({QStringLiteral("/home/ann/.cache"), QStringLiteral("*.tmp"), QStringLiteral("Fotos \"2024\"/**/Roh ✓/")},
                        {QStringLiteral("*.tmp"), QStringLiteral("not an entry")});
        QCOMPARE(c.exclusionsRemovedFromBackup(), QStringList({QStringLiteral("*.tmp")}));
        const QVector<OVBackupItem> items{a, b, c};
        const QByteArray data = OVItemArchive::archive(items);
        QVERIFY(data.startsWith("bplist00"));
        const auto back = OVItemArchive::unarchive(data);
        QCOMPARE(back, std::optional(items));
        // An empty label stays empty, an absent one absent.
        QVERIFY(!back->at(0).backupDestination().isNull() && back->at(1).backupSource().isNull());
        QCOMPARE(OVItemArchive::unarchive(OVItemArchive::archive({})), std::optional(QVector<OVBackupItem>()));
        // The keyed archiver's layout, which a Mac reads back; an item without exclusions is archived as before them.
        QVariantMap root = OVPropertyList::fromData(data).toMap();
        QCOMPARE(root.value(QStringLiteral("$archiver")).toString(), QStringLiteral("NSKeyedArchiver"));
        QCOMPARE(root.value(QStringLiteral("$version")).toInt(), 100000);
        QVariantList objects = root.value(QStringLiteral("$objects")).toList();
        QCOMPARE(objects.first().toString(), QStringLiteral("$null"));
        QCOMPARE(objects.count(QVariant(QStringLiteral("Fotos ✓"))), 1);
        QCOMPARE(objects.at(2).toMap().value(QStringLiteral("OVFrequencyColumn")).toInt(), 1);
        int withExclusions = 0;
        QMap<QString, QStringList> classes;
        for (QVariant &object : objects) {
            QVariantMap map = object.toMap();
            classes.insert(map.value(QStringLiteral("$classname")).toString(), map.value(QStringLiteral("$classes")).toStringList());
            if (map.contains(QStringLiteral("OVCheckColumn"))) {
                const bool has = map.contains(QStringLiteral("OVExclusions"));
                withExclusions += has ? 1 : 0;
                QCOMPARE(map.size(), has ? 13 : 11);
                // Exclusions that are no list of strings: no item list at all.
                map.insert(QStringLiteral("OVExclusions"), map.value(QStringLiteral("OVCheckColumn")));
                object = map;
            }
        }
        QCOMPARE(withExclusions, 1);
        QCOMPARE(classes.value(QStringLiteral("OVBackupItem")).join(QLatin1Char(' ')), QStringLiteral("OVBackupItem NSObject"));
        QCOMPARE(classes.value(QStringLiteral("NSMutableArray")).join(QLatin1Char(' ')), QStringLiteral("NSMutableArray NSArray NSObject"));
        root.insert(QStringLiteral("$objects"), objects);
        QVERIFY(!OVItemArchive::unarchive(OVPropertyList::toBinary(root)));
    }

    // A new item leaves out the user's Trash and cache where its source holds them; an item loaded from the archive keeps what it had.
    void newItemsLeaveOutTrashAndCache()
    {
        const QString home = QDir::homePath();
        const QStringList defaults = {home + QStringLiteral("/.local/share/Trash"), home + QStringLiteral("/.cache")};
        OVBackupItemModel model;
        model.setItems({item(int(OVFrequency::Daily), true, nullptr, "/media/ann/Backup")});
        model.createNewBackupItem();
        model.setFolder(1, OVBackupItemModel::ChooseSourceTag, home, QStringLiteral("home"));
        QCOMPARE(model.item(1).exclusions(), defaults);
        QCOMPARE(model.index(1, OVBackupItemModel::SourceColumn).data(OVBackupItemModel::ExclusionsRole).toStringList(), defaults);
        // Another source holds neither; a third holds them again, once.
        model.setExclusions(1, model.item(1).exclusions() + QStringList{QStringLiteral("*.iso")}, {});
        model.setFolder(1, OVBackupItemModel::ChooseSourceTag, home + QStringLiteral("/Documents"), QStringLiteral("Documents"));
        QCOMPARE(model.item(1).exclusions(), QStringList({QStringLiteral("*.iso")}));
        model.setFolder(1, OVBackupItemModel::ChooseSourceTag, QStringLiteral("/"), QStringLiteral("/"));
        QCOMPARE(model.item(1).exclusions(), QStringList({QStringLiteral("*.iso")}) + defaults);
        model.setFolder(0, OVBackupItemModel::ChooseSourceTag, home, QStringLiteral("home"));
        QVERIFY(model.item(0).exclusions().isEmpty());
        // The user may take a default away.
        model.setExclusions(1, {QStringLiteral("*.iso")}, {});
        QCOMPARE(model.item(1).exclusions(), QStringList({QStringLiteral("*.iso")}));
    }

    void readsArchiveWrittenByThePlatform()
    {
        const QByteArray xml = platformArchive();
        OVBackupItem first = item(int(OVFrequency::Daily), true, "/Users/ann/Documents", "/Volumes/Backup/Documents");
        first.setCheckEnabled(true);
        first.setBackupSource(QStringLiteral("Documents"));
        first.setBackupDestination(QStringLiteral("Backup: Documents"));
        OVBackupItem second = item(int(OVFrequency::Manual), false, "/Users/ann/Documents", nullptr, true, false);
        second.setBackupSource(first.backupSource());
        second.setDestColumn(2);
        // The same archive in binary form, as libplist turns it back out.
        for (const QByteArray &data : {xml, OVPropertyList::toBinary(OVPropertyList::fromData(xml))}) {
            QCOMPARE(OVItemArchive::unarchive(data), std::optional(QVector<OVBackupItem>({first, second})));
        }
    }

    void refusesWhatIsNoItemList_data()
    {
        QTest::addColumn<QByteArray>("data");
        const QByteArray xml = platformArchive();
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("garbage") << QByteArray("not a property list at all");
        QTest::newRow("truncated binary") << OVItemArchive::archive({OVBackupItem()}).left(40);
        QTest::newRow("plain dictionary") << OVPropertyList::toBinary(QVariantMap{{QStringLiteral("a"), 1}});
        QTest::newRow("other class") << QByteArray(xml).replace("<string>OVBackupItem</string>", "<string>NSDate</string>");
        QTest::newRow("reference out of range") << QByteArray(xml).replace("<integer>10</integer>", "<integer>99</integer>");
        QTest::newRow("root not an array") << QByteArray(xml).replace("<integer>1</integer>", "<integer>3</integer>");
        QTest::newRow("path not a string") << QByteArray(xml).replace("<integer>10</integer>", "<integer>6</integer>");
    }

    void refusesWhatIsNoItemList()
    {
        QFETCH(QByteArray, data);
        QVERIFY(!OVItemArchive::unarchive(data));
    }

    // Which scheduled scripts the items ask for; may a manual backup start (with Toast installed, and without).
    void whatTheItemsAskFor_data()
    {
        QTest::addColumn<QVector<OVBackupItem>>("items");
        QTest::addColumn<QString>("scheduled");
        QTest::addColumn<bool>("manualWithToast");
        QTest::addColumn<bool>("manualWithoutToast");
        const int daily = int(OVFrequency::Daily), manual = int(OVFrequency::Manual);
        const auto row = [](const char *name, const QVector<OVBackupItem> &items, const char *scheduled, bool withToast, bool withoutToast) {
            QTest::newRow(name) << items << QString::fromLatin1(scheduled) << withToast << withoutToast;
        };
        row("none", {}, "", false, false);
        row("unticked, incomplete", {item(daily, false, "/a", "/b"), item(daily, true, "/a", nullptr)}, "", false, false);
        // The Toast flag alone counts for a schedule, checkEnabled not looked at.
        row("Toast, not enabled", {item(daily, true, "/a", nullptr, true, false)}, "daily", false, false);
        row("no schedule", {item(OVBackupItem::NoSchedule, true, "/a", "/b"), item(int(OVFrequency::Monthly), true, "/a", "/b")}, "monthly", false, false);
        row("only scheduled", {item(daily, true, "/a", "/b"), item(int(OVFrequency::Weekly), true, "/a", "/b")}, "daily weekly", false, false);
        row("manual", {item(manual, true, "/a", "/b")}, "", true, true);
        // Any ticked, enabled and incomplete item spoils it, whatever its frequency.
        row("manual and incomplete", {item(manual, true, "/a", "/b"), item(daily, true, nullptr, "/b")}, "", false, false);
        row("incomplete not enabled", {item(manual, true, "/a", "/b"), item(daily, true, nullptr, "/b", false, false)}, "", true, true);
        row("manual to Toast", {item(manual, true, "/a", nullptr, true)}, "", true, false);
        row("manual not enabled", {item(manual, true, "/a", "/b", false, false)}, "", false, false);
    }
    void whatTheItemsAskFor()
    {
        QFETCH(QVector<OVBackupItem>, items);
        OVBackupItemModel model;
        model.setEditable(true);
        model.setItems(items);
        QStringList scheduled;
        for (const char *type : {"daily", "weekly", "monthly"}) {
            if (model.hasBackupType(QLatin1String(type))) {
                scheduled.append(QLatin1String(type));
            }
        }
        QTEST(scheduled.join(QLatin1Char(' ')), "scheduled");
        QTEST(model.validateBackupItems(true), "manualWithToast");
        QTEST(model.validateBackupItems(false), "manualWithoutToast");
    }
};

QTEST_GUILESS_MAIN(TestBackupItems)
#include "test_backupitems.moc"
