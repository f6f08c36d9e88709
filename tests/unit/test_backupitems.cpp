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

class TestBackupItems : public QObject
{
    Q_OBJECT

    static OVBackupItem item(int frequency, bool checked, const char *source, const char *dest, bool toast = false, bool enabled = true)
    {
        OVBackupItem result;
        result.setFrequencyColumn(frequency);
        result.setCheckColumn(checked);
        // An editable table enables the tick box of an item with its labels.
        if (enabled) {
            result.setBackupSource(QStringLiteral("source"));
            result.setBackupDestination(QStringLiteral("destination"));
        }
        result.setToast(toast);
        if (source) {
            result.setSourcePath(QString::fromUtf8(source));
        }
        if (dest) {
            result.setDestPath(QString::fromUtf8(dest));
        }
        return result;
    }

private Q_SLOTS:
    // checkEnabled is never taken from the dictionary; paths never set.
    // (The default item a first start makes: test_startup.)
    void initWithValues()
    {
        const OVBackupItem full = OVBackupItem::initWithValues(
            {{QStringLiteral("CheckEnabled"), true}, {QStringLiteral("BackupSource"), QStringLiteral("Home")}, {QStringLiteral("DestColumn"), 2}});
        QVERIFY(!full.checkEnabled());
        QCOMPARE(full.backupSource(), QStringLiteral("Home"));
        QCOMPARE(full.destColumn(), 2);
        QVERIFY(full.sourcePath().isNull());
    }

    void archiveRoundTrip()
    {
        OVBackupItem a = item(int(OVFrequency::Weekly), true, "/home/ann/Fotos \"2024\" #{x}", "/media/ann/Backup", false, true);
        a.setBackupSource(QStringLiteral("Fotos ✓"));
        a.setBackupDestination(QString(QLatin1String("")));
        a.setSourceColumn(0);
        a.setDestColumn(2);
        OVBackupItem b = item(OVBackupItem::NoSchedule, false, nullptr, nullptr, true, false);
        // Equal strings are stored once and shared. What an item leaves out
        // travels with it, the entries removed from the backup a part of it.
        OVBackupItem c = a;
        c.setFrequencyColumn(int(OVFrequency::Manual));
        c.setExclusions({QStringLiteral("/home/ann/.cache"), QStringLiteral("*.tmp"), QStringLiteral("Fotos \"2024\"/**/Roh ✓/")},
                        {QStringLiteral("*.tmp"), QStringLiteral("not an entry")});
        QCOMPARE(c.exclusionsRemovedFromBackup(), QStringList({QStringLiteral("*.tmp")}));
        const QVector<OVBackupItem> items{a, b, c};

        const QByteArray data = OVItemArchive::archive(items);
        QVERIFY(data.startsWith("bplist00"));
        const auto back = OVItemArchive::unarchive(data);
        QVERIFY(back);
        QCOMPARE(*back, items);
        // An empty label stays empty, an absent one absent.
        QVERIFY(!back->at(0).backupDestination().isNull());
        QVERIFY(back->at(1).backupSource().isNull());
        QVERIFY(OVItemArchive::unarchive(OVItemArchive::archive({}))->isEmpty());

        // The keyed archiver's layout, which a Mac reads back; an item
        // without exclusions is archived as before them.
        QVariantMap root = OVPropertyList::fromData(data).toMap();
        QCOMPARE(root.value(QStringLiteral("$archiver")).toString(), QStringLiteral("NSKeyedArchiver"));
        QCOMPARE(root.value(QStringLiteral("$version")).toInt(), 100000);
        QVariantList objects = root.value(QStringLiteral("$objects")).toList();
        QCOMPARE(objects.first().toString(), QStringLiteral("$null"));
        QCOMPARE(objects.count(QVariant(QStringLiteral("Fotos ✓"))), 1);
        QCOMPARE(objects.at(2).toMap().value(QStringLiteral("OVFrequencyColumn")).toInt(), 1);
        int withExclusions = 0;
        for (QVariant &object : objects) {
            QVariantMap map = object.toMap();
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
        root.insert(QStringLiteral("$objects"), objects);
        QVERIFY(!OVItemArchive::unarchive(OVPropertyList::toBinary(root)));
    }

    // A new item leaves out the user's Trash and cache where its source
    // holds them; an item loaded from the archive keeps what it had.
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
        QFile file(QStringLiteral(OV_SOURCE_DIR "/tests/unit/data/apple-keyed-archive.xml"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray xml = file.readAll();
        // The same archive in binary form, as libplist turns it back out.
        for (const QByteArray &data : {xml, OVPropertyList::toBinary(OVPropertyList::fromData(xml))}) {
            const auto items = OVItemArchive::unarchive(data);
            QVERIFY(items);
            QCOMPARE(items->size(), 2);
            const OVBackupItem &first = items->at(0);
            QVERIFY(first.checkColumn() && first.checkEnabled() && !first.toast());
            QCOMPARE(first.backupSource(), QStringLiteral("Documents"));
            QCOMPARE(first.backupDestination(), QStringLiteral("Backup: Documents"));
            QCOMPARE(first.sourcePath(), QStringLiteral("/Users/ann/Documents"));
            QCOMPARE(first.destPath(), QStringLiteral("/Volumes/Backup/Documents"));
            const OVBackupItem &second = items->at(1);
            QCOMPARE(second.frequencyColumn(), int(OVFrequency::Manual));
            QCOMPARE(second.destColumn(), 2);
            QVERIFY(second.toast());
            QCOMPARE(second.backupSource(), QStringLiteral("Documents"));
            QVERIFY(second.backupDestination().isNull());
            QVERIFY(second.destPath().isNull());
            QCOMPARE(second.sourcePath(), QStringLiteral("/Users/ann/Documents"));
        }
    }

    void refusesWhatIsNoItemList_data()
    {
        QTest::addColumn<QByteArray>("data");
        QFile file(QStringLiteral(OV_SOURCE_DIR "/tests/unit/data/apple-keyed-archive.xml"));
        file.open(QIODevice::ReadOnly);
        const QByteArray xml = file.readAll();
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("garbage") << QByteArray("not a property list at all");
        QTest::newRow("truncated binary") << OVItemArchive::archive({OVBackupItem()}).left(40);
        QTest::newRow("plain dictionary") << OVPropertyList::toBinary(QVariantMap{{QStringLiteral("a"), 1}});
        QTest::newRow("other class") << QByteArray(xml).replace("<string>OVBackupItem</string>", "<string>NSDate</string>");
        QTest::newRow("reference out of range") << QByteArray(xml).replace("<integer>10</integer>", "<integer>99</integer>");
        QTest::newRow("root not an array") << QByteArray(xml).replace("<key>root</key>\n\t\t<dict><key>CF$UID</key><integer>1</integer>",
                                                                      "<key>root</key>\n\t\t<dict><key>CF$UID</key><integer>3</integer>");
        QTest::newRow("path not a string") << QByteArray(xml).replace("<integer>10</integer>", "<integer>6</integer>");
    }

    void refusesWhatIsNoItemList()
    {
        QFETCH(QByteArray, data);
        QVERIFY(!OVItemArchive::unarchive(data));
    }

    void hasBackupType()
    {
        OVBackupItemModel model;
        QVERIFY(!model.hasBackupType(QStringLiteral("daily")));

        model.setItems({item(int(OVFrequency::Daily), false, "/a", "/b"), item(int(OVFrequency::Daily), true, "/a", nullptr)});
        QVERIFY(!model.hasBackupType(QStringLiteral("daily")));

        // The Toast flag alone counts, whether Toast is installed or not,
        // and checkEnabled is not looked at.
        model.setItems({item(int(OVFrequency::Daily), true, "/a", nullptr, true, false)});
        QVERIFY(model.hasBackupType(QStringLiteral("daily")));
        QVERIFY(!model.hasBackupType(QStringLiteral("weekly")));

        model.setItems({item(OVBackupItem::NoSchedule, true, "/a", "/b"), item(int(OVFrequency::Monthly), true, "/a", "/b")});
        QVERIFY(model.hasBackupType(QStringLiteral("monthly")));
        QVERIFY(!model.hasBackupType(QStringLiteral("daily")) && !model.hasBackupType(QStringLiteral("weekly")));
    }

    void validateBackupItems()
    {
        OVBackupItemModel model;
        model.setEditable(true);
        // Only a manual item can be backed up now.
        model.setItems({item(int(OVFrequency::Daily), true, "/a", "/b"), item(int(OVFrequency::Weekly), true, "/a", "/b")});
        QVERIFY(!model.validateBackupItems(true));
        model.setItems({item(int(OVFrequency::Manual), true, "/a", "/b")});
        QVERIFY(model.validateBackupItems(false));

        // Any ticked, enabled and incomplete item spoils it, whatever its frequency.
        model.setItems({item(int(OVFrequency::Manual), true, "/a", "/b"), item(int(OVFrequency::Daily), true, nullptr, "/b")});
        QVERIFY(!model.validateBackupItems(true));
        // Unless it is unticked or not enabled.
        model.setItems({item(int(OVFrequency::Manual), true, "/a", "/b"), item(int(OVFrequency::Daily), true, nullptr, "/b", false, false)});
        QVERIFY(model.validateBackupItems(true));

        // A Toast destination counts only while Toast is installed.
        model.setItems({item(int(OVFrequency::Manual), true, "/a", nullptr, true)});
        QVERIFY(model.validateBackupItems(true));
        QVERIFY(!model.validateBackupItems(false));
        model.setItems({item(int(OVFrequency::Manual), true, "/a", "/b", false, false)});
        QVERIFY(!model.validateBackupItems(true));
    }
};

QTEST_GUILESS_MAIN(TestBackupItems)
#include "test_backupitems.moc"
