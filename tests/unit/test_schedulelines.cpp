// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Orvane's lines in the crontab and the anacron table, and the edit that
// puts them in: a wrong field or a lost line means cron runs nothing, or
// runs something else. Any user. (The times the settings stand for:
// test_optionssheet, against the menus' titles.)
#include "OVScheduleTables.h"

#include <QTest>

using namespace OVScheduleTables;

class TestScheduleLines : public QObject
{
    Q_OBJECT

    static Times someTimes()
    {
        Times times;
        times.at = {{{30, 15}, {5, 0}, {45, 11}}};
        times.weekday = 6;
        times.dayOfMonth = 28;
        return times;
    }

private Q_SLOTS:
    void lineFormats()
    {
        const Times t = someTimes();
        QCOMPARE(cronLine(OVFrequency::Daily, t), QByteArray("30\t15\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"\n"));
        QCOMPARE(cronLine(OVFrequency::Weekly, t), QByteArray("5\t0\t*\t*\t6\troot\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"\n"));
        QCOMPARE(cronLine(OVFrequency::Monthly, t), QByteArray("45\t11\t28\t*\t*\troot\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"\n"));
        QCOMPARE(anacronLine(OVFrequency::Weekly), QByteArray("7\t25\torvane.weekly\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"\n"));
    }

    void edits()
    {
        const Times t = someTimes();
        const QByteArray daily = cronLine(OVFrequency::Daily, t);
        const QByteArray old = "0\t2\t*\t*\t*\troot\t\"" + scriptPath(OVFrequency::Daily) + "\"\n";
        // Replaced where it stands; everything around it kept.
        QCOMPARE(edit("A=1\n" + old + "B=2\n", {daily, {}, {}}), "A=1\n" + daily + "B=2\n");
        // Appended at the end; with no final line end it joins the last line.
        QCOMPARE(edit("A=1\n", {daily, {}, {}}), "A=1\n" + daily);
        QCOMPARE(edit("A=1", {daily, {}, {}}), "A=1" + daily);
        // Deleted when its schedule has no item, also as the unterminated last line.
        QCOMPARE(edit("A=1\n" + old + "B=2\n", {}), QByteArray("A=1\nB=2\n"));
        QCOMPARE(edit("A=1\n" + old.chopped(1), {}), QByteArray("A=1\n"));
        // Only the first line holding the path is the pane's.
        const QByteArray mention = "# runs " + scriptPath(OVFrequency::Daily) + " daily\n";
        QCOMPARE(edit(mention + old, {daily, {}, {}}), daily + old);
        QCOMPARE(edit(old + old, {}), old);
        // The three schedules, in order, each on its own.
        QCOMPARE(edit(QByteArray(), {daily, cronLine(OVFrequency::Weekly, t), cronLine(OVFrequency::Monthly, t)}),
                 daily + cronLine(OVFrequency::Weekly, t) + cronLine(OVFrequency::Monthly, t));
    }
};

QTEST_MAIN(TestScheduleLines)
#include "test_schedulelines.moc"
