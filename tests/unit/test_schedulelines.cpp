// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Orvane's cron and anacron lines, the pane's edit, which edits install_crontab lets through: a wrong line runs nothing.
#include "OVScheduleTables.h"
#include "ovtables.h"
#include <QTest>

using namespace OVScheduleTables;
using ovtables::Table;

namespace
{
const std::string DebianCrontab =
    "# /etc/crontab: system-wide crontab\n"
    "SHELL=/bin/sh\n"
    "PATH=/usr/local/sbin:/usr/local/bin:/sbin:/bin:/usr/sbin:/usr/bin\n"
    "\n"
    "17 *\t* * *\troot\tcd / && run-parts --report /etc/cron.hourly\n"
    "25 6\t* * *\troot\ttest -x /usr/sbin/anacron || ( cd / && run-parts --report /etc/cron.daily )\n"
    "#\n";

// cron's bounds: Sunday as 0, the 31st.
const Times SomeTimes{{{{30, 15}, {5, 0}, {45, 11}}}, 0, 31};

bool allowed(const QByteArray &installed, const QByteArray &proposed, Table table = Table::Cron)
{
    return ovtables::onlyOwnLinesDiffer(installed.toStdString(), proposed.toStdString(), table);
}
}

class TestScheduleLines : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void lineFormats()
    {
        const Times &t = SomeTimes;
        QCOMPARE(cronLine(OVFrequency::Daily, t), QByteArray("30\t15\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"\n"));
        QCOMPARE(cronLine(OVFrequency::Weekly, t), QByteArray("5\t0\t*\t*\t0\troot\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"\n"));
        QCOMPARE(cronLine(OVFrequency::Monthly, t), QByteArray("45\t11\t31\t*\t*\troot\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"\n"));
        QCOMPARE(anacronLine(OVFrequency::Weekly), QByteArray("7\t25\torvane.weekly\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"\n"));
        // The helper's own-line rule takes what the pane writes, each table its own kind.
        for (const OVFrequency frequency : {OVFrequency::Daily, OVFrequency::Weekly, OVFrequency::Monthly}) {
            QVERIFY(ovtables::isOwnLine(cronLine(frequency, t).chopped(1).toStdString(), Table::Cron));
            QVERIFY(ovtables::isOwnLine(anacronLine(frequency).chopped(1).toStdString(), Table::Anacron));
            QVERIFY(!ovtables::isOwnLine(cronLine(frequency, t).chopped(1).toStdString(), Table::Anacron));
        }
        const QByteArray daily = "30\t3\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"";
        QVERIFY(ovtables::isOwnLine("0\t0\t*\t*\t7\troot\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"", Table::Cron));
        for (const QByteArray &bad : {QByteArray(daily).replace("30\t3", "30\t24"),
                                      QByteArray(daily).replace("30\t3", "30\t03"),
                                      QByteArray(daily).replace("30\t3", "30 3"),
                                      QByteArray(daily).replace("root", "ann"),
                                      QByteArray(daily + "; rm -rf /"),
                                      QByteArray(daily + "\t"),
                                      QByteArray(daily).replace("*\t*\t*", "*\t*\t1"),
                                      QByteArray(daily).replace("orvane_daily", "other"),
                                      QByteArray("30\t3\t0\t*\t*\troot\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"")}) {
            QVERIFY2(!ovtables::isOwnLine(bad.toStdString(), Table::Cron), bad.constData());
        }
        QVERIFY(ovtables::isOwnLine("30\t30\torvane.monthly\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"", Table::Anacron));
        QVERIFY(!ovtables::isOwnLine("1\t5\torvane.daily\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"", Table::Anacron));
    }

    // The pane's edits, each one the helper lets through.
    void edits()
    {
        const Times &t = SomeTimes;
        const QByteArray daily = cronLine(OVFrequency::Daily, t);
        const QByteArray old = "0\t2\t*\t*\t*\troot\t\"" + scriptPath(OVFrequency::Daily) + "\"\n";
        const QByteArray mention = "# runs " + scriptPath(OVFrequency::Daily) + " daily\n";
        const QByteArray debian = QByteArray::fromStdString(DebianCrontab);
        // {table, the three schedules' lines, the table edited}
        const std::tuple<QByteArray, std::array<std::optional<QByteArray>, 3>, QByteArray> rows[] = {
            // Replaced where it stands; everything around it kept.
            {"A=1\n" + old + "B=2\n", {daily, {}, {}}, "A=1\n" + daily + "B=2\n"},
            // Appended at the end; with no final line end it joins the last line.
            {"A=1\n", {daily, {}, {}}, "A=1\n" + daily},
            {"A=1", {daily, {}, {}}, "A=1" + daily},
            {debian, {daily, {}, {}}, debian + daily},
            {debian + daily, {}, debian},
            {debian, {}, debian},
            // Deleted when its schedule has no item, also as the unterminated last line.
            {"A=1\n" + old + "B=2\n", {}, "A=1\nB=2\n"},
            {"A=1\n" + old.chopped(1), {}, "A=1\n"},
            // Only the first line holding the path is the pane's.
            {mention + old, {daily, {}, {}}, daily + old},
            {old + old, {}, old},
            // The three schedules, in order, each on its own.
            {"",
             {daily, cronLine(OVFrequency::Weekly, t), cronLine(OVFrequency::Monthly, t)},
             daily + cronLine(OVFrequency::Weekly, t) + cronLine(OVFrequency::Monthly, t)},
        };
        for (const auto &[table, lines, expected] : rows) {
            const QByteArray edited = edit(table, lines);
            QCOMPARE(edited, expected);
            QVERIFY2(allowed(table, edited), edited.constData());
        }
        const QByteArray anacron = "SHELL=/bin/sh\n1\t5\tcron.daily\trun-parts --report /etc/cron.daily\n";
        QVERIFY(allowed(anacron, anacron + anacronLine(OVFrequency::Weekly), Table::Anacron));
    }

    void refusesAnyOtherChange()
    {
        const QByteArray debian = QByteArray::fromStdString(DebianCrontab);
        const QByteArray daily = cronLine(OVFrequency::Daily, SomeTimes);
        QVERIFY(!allowed(debian, debian + "* * * * * root /tmp/evil\n") && !allowed(debian, "* * * * * root /tmp/evil\n" + debian));
        // Lines of the user's removed, changed or reordered.
        QVERIFY(!allowed(debian, QByteArray(debian).replace("SHELL=/bin/sh\n", "")) && !allowed(debian, QByteArray(debian).replace("17 *", "18 *")));
        QVERIFY(!allowed("A=1\nB=2\n", "B=2\nA=1\n"));
        // A crontab line in the anacron table is no own line there.
        QVERIFY(!allowed("SHELL=/bin/sh\n", "SHELL=/bin/sh\n" + daily, Table::Anacron));
        // A line that only mentions the path may go, never come.
        QVERIFY(!allowed(debian, debian + daily.chopped(1) + " && /tmp/evil\n"));
        // The join is allowed only onto the unterminated last line itself.
        QVERIFY(!allowed("A=1\n#", "A=1\nB=2" + daily));
    }
};

QTEST_GUILESS_MAIN(TestScheduleLines)
#include "test_schedulelines.moc"
