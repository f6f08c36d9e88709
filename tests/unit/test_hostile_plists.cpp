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

    void tooDeepIsRefusedBeforeParsing()
    {
        // Shallow lists still read: the check measures, it does not guess.
        QCOMPARE(OVPropertyList::fromData(deepBinary(10)).userType(), int(QMetaType::QVariantList));
        QCOMPARE(OVPropertyList::fromData(deepXml(10)).userType(), int(QMetaType::QVariantList));

        QElapsedTimer timer;
        timer.start();
        for (const QByteArray &data : {deepBinary(1000000), deepXml(1000000), deepBinary(100, true), deepBinary(5, true)}) {
            QVERIFY(data.size() < 16 * 1024 * 1024);
            QVERIFY(!OVPropertyList::fromData(data).isValid());
            QVERIFY(!OVItemArchive::unarchive(data));
        }
        QVERIFY2(timer.elapsed() < 5000, "refusing must not take long");

        // The settings domain: a deep file counts as no domain, and a save
        // replaces it.
        QDir().mkpath(QFileInfo(OVSettingsDomain::path()).absolutePath());
        QSaveFile file(OVSettingsDomain::path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(deepXml(1000000));
        QVERIFY(file.commit());
        QVERIFY(!OVSettingsDomain::read());
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("Master"), 0}}));
        QCOMPARE(OVSettingsDomain::read()->value(QStringLiteral("Master")).toLongLong(), 0);
        OVSettingsDomain::remove();
    }

    // A list whose arrays each hold the next one twice is 180 bytes and, as
    // libplist expands it, six gigabytes. Every reader refuses it from its
    // bytes alone, quickly, within a memory bound that the expansion would
    // break; so does one whose references repeat a long string. A list
    // within the bounds still reads.
    void sharedReferencesAreBoundedBeforeParsing()
    {
        QDir().mkpath(QFileInfo(OVSettingsDomain::path()).absolutePath());
        const OVHostile::AddressLimit limit(768 << 20);
        QElapsedTimer timer;
        timer.start();
        for (const QByteArray &data : {OVHostile::laughs(26), OVHostile::laughs(20), OVHostile::laughs(9, 1 << 20)}) {
            QVERIFY(data.size() < 2 << 20);
            QVERIFY(!OVPropertyList::fromData(data).isValid());
            QVERIFY(!OVItemArchive::unarchive(data));
            QSaveFile file(OVSettingsDomain::path());
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(data);
            QVERIFY(file.commit());
            QVERIFY(!OVSettingsDomain::read());
        }
        QVERIFY2(timer.elapsed() < 5000, "refusing must not take long");
        OVSettingsDomain::remove();
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
