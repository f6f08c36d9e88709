// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Property lists that would crash or stall the module at every start: nested
// far too deep (binary and XML, under the size cap) for the items archive and
// the settings domain, cycles, shared references that expand beyond memory,
// and the archive's class records as the keyed archiver writes them. Any
// user, no root. (The update check's reader is the same; test_update serves
// it a hostile file too.)
#include "../hostileplist.h"
#include "OVItemArchive.h"
#include "OVPropertyList.h"
#include "OVSettingsDomain.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTest>

namespace
{
// A binary list of depth arrays, each holding the next: one byte objects
// with 4-byte references, the way a hostile file packs a deep list small.
QByteArray deepBinary(quint32 depth, bool cycle = false)
{
    QByteArray data("bplist00");
    QVector<quint32> offsets;
    for (quint32 i = 0; i < depth; ++i) {
        offsets.append(static_cast<quint32>(data.size()));
        data.append(char(0xa1));
        const quint32 next = (i + 1 < depth) ? i + 1 : (cycle ? 0 : i);
        for (int b = 3; b >= 0; --b) {
            data.append(char((next >> (8 * b)) & 0xff));
        }
    }
    // The last array refers to itself unless it is a leaf: make it empty.
    if (!cycle) {
        data[static_cast<int>(offsets.last())] = char(0xa0);
    }
    const quint32 table = static_cast<quint32>(data.size());
    for (const quint32 offset : offsets) {
        for (int b = 3; b >= 0; --b) {
            data.append(char((offset >> (8 * b)) & 0xff));
        }
    }
    QByteArray trailer(32, '\0');
    trailer[6] = 4;
    trailer[7] = 4;
    for (int b = 0; b < 4; ++b) {
        trailer[15 - b] = char((depth >> (8 * b)) & 0xff);
        trailer[31 - b] = char((table >> (8 * b)) & 0xff);
    }
    return data + trailer;
}

QByteArray deepXml(int depth)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + QByteArray("<array>").repeated(depth)
        + QByteArray("</array>").repeated(depth) + "</plist>\n";
}
}

class TestHostilePlists : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
    }

    // Nested a million deep (binary and XML), cyclic, and shared references
    // that libplist would expand beyond memory (the laughs: 180 bytes for six
    // gigabytes; a long string repeated). Every reader refuses each from its
    // bytes alone, quickly, under a memory bound the expansion would break;
    // the settings domain counts it as none, and a save replaces it.
    void hostileListsAreRefused_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("deep binary") << deepBinary(1000000);
        QTest::newRow("deep XML") << deepXml(1000000);
        QTest::newRow("cycle") << deepBinary(100, true);
        QTest::newRow("short cycle") << deepBinary(5, true);
        QTest::newRow("laughs") << OVHostile::laughs(26);
        QTest::newRow("fewer laughs") << OVHostile::laughs(20);
        QTest::newRow("laughs of long strings") << OVHostile::laughs(9, 1 << 20);
    }
    void hostileListsAreRefused()
    {
        QFETCH(QByteArray, data);
        QVERIFY(data.size() < 16 * 1024 * 1024);
        QDir().mkpath(QFileInfo(OVSettingsDomain::path()).absolutePath());
        const OVHostile::AddressLimit limit(768 << 20);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!OVPropertyList::fromData(data).isValid());
        QVERIFY(!OVItemArchive::unarchive(data));
        QSaveFile file(OVSettingsDomain::path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(data);
        QVERIFY(file.commit());
        QVERIFY(!OVSettingsDomain::read());
        QVERIFY2(timer.elapsed() < 5000, "refusing must not take long");
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Master"), 0}}));
        QCOMPARE(OVSettingsDomain::read()->value(QStringLiteral("Master")).toLongLong(), 0);
        OVSettingsDomain::remove();
    }

    // Lists within the bounds still read: the checks measure, they do not guess.
    void boundedListsStillRead()
    {
        QCOMPARE(OVPropertyList::fromData(deepBinary(10)).userType(), int(QMetaType::QVariantList));
        QCOMPARE(OVPropertyList::fromData(deepXml(10)).userType(), int(QMetaType::QVariantList));
        QCOMPARE(OVPropertyList::fromData(OVHostile::laughs(18)).toList().size(), 2);
        QCOMPARE(OVPropertyList::fromData(OVHostile::laughs(6, 1 << 20)).toList().size(), 2);
    }

    void classesAreListsOfNames()
    {
        OVBackupItem item;
        item.setSourcePath(QStringLiteral("/home/a"));
        const QVariantList objects = OVPropertyList::fromData(OVItemArchive::archive({item})).toMap().value(QStringLiteral("$objects")).toList();
        QMap<QString, QStringList> classes;
        for (const QVariant &object : objects) {
            const QVariantMap map = object.toMap();
            if (map.contains(QStringLiteral("$classname"))) {
                QStringList names;
                const QVariantList list = map.value(QStringLiteral("$classes")).toList();
                for (const QVariant &name : list) {
                    names.append(name.toString());
                }
                classes.insert(map.value(QStringLiteral("$classname")).toString(), names);
            }
        }
        QCOMPARE(classes.value(QStringLiteral("OVBackupItem")), QStringList({QStringLiteral("OVBackupItem"), QStringLiteral("NSObject")}));
        QCOMPARE(classes.value(QStringLiteral("NSMutableArray")),
                 QStringList({QStringLiteral("NSMutableArray"), QStringLiteral("NSArray"), QStringLiteral("NSObject")}));
    }

    // More objects than short references reach (bench/items-archive.sh times it).
    void twentyThousandItems()
    {
        QVector<OVBackupItem> items(20000);
        for (int i = 0; i < items.size(); ++i) {
            items[i].setSourcePath(QStringLiteral("/home/user/folder %1").arg(i));
            items[i].setDestPath(QStringLiteral("/Volumes/Backup/folder %1").arg(i));
            items[i].setFrequencyColumn(i % 5);
        }
        const auto back = OVItemArchive::unarchive(OVItemArchive::archive(items));
        QVERIFY(back);
        QCOMPARE(back->size(), items.size());
        QCOMPARE(back->last().destPath(), items.last().destPath());
        QCOMPARE(back->at(12345).frequencyColumn(), items.at(12345).frequencyColumn());
    }
};

QTEST_GUILESS_MAIN(TestHostilePlists)
#include "test_hostile_plists.moc"
