// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Property lists that would crash or stall the module at every start, for the items archive and the settings domain (test_update serves the update check one).
#include "../hostileplist.h"
#include "OVItemArchive.h"
#include "OVPropertyList.h"
#include "OVSettingsDomain.h"
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTest>

namespace
{
// A binary list of depth arrays, each holding the next: one-byte objects with 4-byte references, the way a hostile file packs a deep list small.
QByteArray deepBinary(quint32 depth, bool cycle = false)
{
    QVector<QByteArray> objects;
    for (quint32 i = 0; i < depth; ++i) {
        QByteArray array("\xa1");
        OVHostile::appendBigEndian(array, i + 1 < depth ? i + 1 : 0, 4);
        objects.append(array);
    }
    objects.last() = cycle ? objects.last() : QByteArray("\xa0"); // the deepest one empty, or back to the top
    return OVHostile::binaryList(objects, 4, 4);
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

    // Refused quickly, under a memory bound libplist's expansion would break (26 laughs: 180 bytes for 6 GB); a save replaces it.
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
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.commit());
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

    // More objects than short references reach (bench/items-archive.sh times it).
    void twentyThousandItems()
    {
        QVector<OVBackupItem> items(20000);
        for (int i = 0; i < items.size(); ++i) {
            items[i].setSourcePath(QStringLiteral("/home/user/folder %1").arg(i));
            items[i].setDestPath(QStringLiteral("/Volumes/Backup/folder %1").arg(i));
            items[i].setFrequencyColumn(i % 5);
        }
        QCOMPARE(OVItemArchive::unarchive(OVItemArchive::archive(items)), std::optional(items));
    }
};

QTEST_GUILESS_MAIN(TestHostilePlists)
#include "test_hostile_plists.moc"
