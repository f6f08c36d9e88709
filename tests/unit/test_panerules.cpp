// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Small rules the user meets: who may unlock, the last-backup marker's date, when the module saves as its window goes.
#include "OVLock.h"
#include "OVMarker.h"
#include "OVSaveOnClose.h"
#include "OVStatusMonitor.h"
#include <QLocale>
#include <QTest>
#include <QVBoxLayout>

class TestPaneRules : public QObject
{
    Q_OBJECT

    struct Host {
        QWidget window;
        QWidget *module = new QWidget(&window);
        int saves = 0;
        Host()
        {
            (new QVBoxLayout(&window))->addWidget(module);
            new OVSaveOnClose(module, [this] {
                ++saves;
            });
        }
        void show()
        {
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
        }
    };

private Q_SLOTS:
    void adminGroups()
    {
        for (const char *groups : {"ann lpadmin\n", "ann admin", "ann cdrom sudo\n", "wheel"}) {
            QVERIFY2(OVLock::isAdminGroupList(QString::fromLatin1(groups)), groups);
        }
        QVERIFY(!OVLock::isAdminGroupList(QStringLiteral("ann sudoers wheelchair\n")) && !OVLock::isAdminGroupList(QString()));
    }

    void markerDates()
    {
        QCOMPARE(OVMarker::parse("07/04/06"), QDate(2006, 7, 4));
        QCOMPARE(OVMarker::parse("  12/31/05\n\n"), QDate(2005, 12, 31));
        QCOMPARE(OVMarker::parse("1/2/99"), QDate(1999, 1, 2));
        QCOMPARE(OVMarker::parse("01/02/68"), QDate(2068, 1, 2));
        for (const char *bad : {"", "yesterday", "13/01/05", "02/30/05", "12/31/2005", "12-31-05", "12/31/05/1", "1a/01/05", "+1/01/05"}) {
            QVERIFY2(!OVMarker::parse(bad), bad);
        }
        QCOMPARE(OVStatusMonitor::displayDate("12/31/05"), QLocale::system().toString(QDate(2005, 12, 31), QLocale::ShortFormat));
        // A manual run's line beside the daily marker is not a daily run.
        QCOMPARE(OVStatusMonitor::scheduledRun("manual 07/05/26 complete\nscheduled 07/04/26 caution\n"),
                 std::optional<QByteArrayList>({"07/04/26", "caution"}));
        QCOMPARE(OVStatusMonitor::scheduledRun("manual 07/05/26 complete\n"), std::optional<QByteArrayList>());
        QCOMPARE(OVStatusMonitor::scheduledRun("scheduled 07/04/26\n"), std::optional<QByteArrayList>());
    }

    // Once when the host window closes (a close, then a hide), again after it comes back, never when it is minimised.
    void savesOnceEachTimeTheWindowGoes()
    {
        Host host;
        host.show();
        host.window.close();
        QCOMPARE(host.saves, 1);
        host.show();
        host.window.hide();
        QCOMPARE(host.saves, 2);
        // The desktop hides a minimised window.
        host.show();
        host.window.showMinimized();
        host.window.hide();
        QCOMPARE(host.saves, 2);
        // A module that is its own window has no host to leave.
        QWidget alone;
        int saves = 0;
        new OVSaveOnClose(&alone, [&saves] {
            ++saves;
        });
        alone.show();
        QVERIFY(QTest::qWaitForWindowExposed(&alone));
        alone.close();
        QCOMPARE(saves, 0);
    }
};

QTEST_MAIN(TestPaneRules)
#include "test_panerules.moc"
