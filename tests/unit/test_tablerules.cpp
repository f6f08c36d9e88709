// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Which crontab and anacrontab edits install_crontab lets through.
#include "ovtables.h"

#include <QTest>

using ovtables::Table;

static const std::string DebianCrontab =
    "# /etc/crontab: system-wide crontab\n"
    "SHELL=/bin/sh\n"
    "PATH=/usr/local/sbin:/usr/local/bin:/sbin:/bin:/usr/sbin:/usr/bin\n"
    "\n"
    "17 *\t* * *\troot\tcd / && run-parts --report /etc/cron.hourly\n"
    "25 6\t* * *\troot\ttest -x /usr/sbin/anacron || ( cd / && run-parts --report /etc/cron.daily )\n"
    "#\n";
static const std::string Daily = "30\t3\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"";
static const std::string Weekly = "0\t15\t*\t*\t0\troot\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"";
static const std::string Monthly = "45\t11\t31\t*\t*\troot\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"";

class TestTableRules : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void ownLineFormats()
    {
        QVERIFY(ovtables::isOwnLine(Daily, Table::Cron));
        QVERIFY(ovtables::isOwnLine(Weekly, Table::Cron));
        QVERIFY(ovtables::isOwnLine(Monthly, Table::Cron));
        QVERIFY(ovtables::isOwnLine("0\t0\t*\t*\t7\troot\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"", Table::Cron));
        for (const char *bad : {
                 "30\t24\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"",
                 "30\t03\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"",
                 "30 3\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"",
                 "30\t3\t*\t*\t*\tann\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"",
                 "30\t3\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"; rm -rf /",
                 "30\t3\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"\t",
                 "30\t3\t*\t*\t1\troot\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"",
                 "30\t3\t0\t*\t*\troot\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"",
                 "30\t3\t*\t*\t*\troot\t\"/Library/Application Support/Orvane/.daily/other.rb\"",
             }) {
            QVERIFY2(!ovtables::isOwnLine(bad, Table::Cron), bad);
        }
        QVERIFY(ovtables::isOwnLine("1\t20\torvane.daily\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"", Table::Anacron));
        QVERIFY(ovtables::isOwnLine("30\t30\torvane.monthly\t\"/Library/Application Support/Orvane/.monthly/orvane_monthly.rb\"", Table::Anacron));
        QVERIFY(!ovtables::isOwnLine("1\t5\torvane.daily\t\"/Library/Application Support/Orvane/.daily/orvane_daily.rb\"", Table::Anacron));
        QVERIFY(!ovtables::isOwnLine(Daily, Table::Anacron));
    }

    void acceptsEditsOfOwnLines()
    {
        const std::string withDaily = DebianCrontab + Daily + "\n";
        QVERIFY(ovtables::onlyOwnLinesDiffer(DebianCrontab, withDaily, Table::Cron));
        QVERIFY(ovtables::onlyOwnLinesDiffer(withDaily, DebianCrontab, Table::Cron));
        QVERIFY(ovtables::onlyOwnLinesDiffer(DebianCrontab, DebianCrontab, Table::Cron));
        QVERIFY(ovtables::onlyOwnLinesDiffer("", Weekly + "\n" + Monthly + "\n", Table::Cron));

        // Replaced where it stands, between the user's lines.
        const std::string middle = "SHELL=/bin/sh\n" + Daily + "\n#\n";
        std::string moved = middle;
        moved.replace(moved.find("30\t3"), 4, "5\t22");
        QVERIFY(ovtables::onlyOwnLinesDiffer(middle, moved, Table::Cron));

        // A user line that mentions the script path is the pane's to replace.
        const std::string mention = "# see /Library/Application Support/Orvane/.daily/orvane_daily.rb\nSHELL=/bin/sh\n";
        QVERIFY(ovtables::onlyOwnLinesDiffer(mention, Daily + "\nSHELL=/bin/sh\n", Table::Cron));

        // Appending to a table without a final line end joins the last line.
        QVERIFY(ovtables::onlyOwnLinesDiffer("SHELL=/bin/sh\n#", "SHELL=/bin/sh\n#" + Daily + "\n", Table::Cron));

        const std::string anacron = "SHELL=/bin/sh\n1\t5\tcron.daily\trun-parts --report /etc/cron.daily\n";
        QVERIFY(ovtables::onlyOwnLinesDiffer(anacron,
                                             anacron + "7\t25\torvane.weekly\t\"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb\"\n",
                                             Table::Anacron));
    }

    void refusesAnyOtherChange()
    {
        QVERIFY(!ovtables::onlyOwnLinesDiffer(DebianCrontab, DebianCrontab + "* * * * * root /tmp/evil\n", Table::Cron));
        QVERIFY(!ovtables::onlyOwnLinesDiffer(DebianCrontab, "* * * * * root /tmp/evil\n" + DebianCrontab, Table::Cron));
        // Lines of the user's removed, changed or reordered.
        std::string removed = DebianCrontab;
        removed.erase(removed.find("SHELL"), std::string("SHELL=/bin/sh\n").size());
        QVERIFY(!ovtables::onlyOwnLinesDiffer(DebianCrontab, removed, Table::Cron));
        std::string changed = DebianCrontab;
        changed.replace(changed.find("17 *"), 4, "18 *");
        QVERIFY(!ovtables::onlyOwnLinesDiffer(DebianCrontab, changed, Table::Cron));
        QVERIFY(!ovtables::onlyOwnLinesDiffer("A=1\nB=2\n", "B=2\nA=1\n", Table::Cron));
        // A crontab line in the anacron table is no own line there.
        QVERIFY(!ovtables::onlyOwnLinesDiffer("SHELL=/bin/sh\n", "SHELL=/bin/sh\n" + Daily + "\n", Table::Anacron));
        // A line that only mentions the path may go, never come.
        QVERIFY(!ovtables::onlyOwnLinesDiffer(DebianCrontab, DebianCrontab + Daily + " && /tmp/evil\n", Table::Cron));
        // The join is allowed only onto the unterminated last line itself.
        QVERIFY(!ovtables::onlyOwnLinesDiffer("A=1\n#", "A=1\nB=2" + Daily + "\n", Table::Cron));
    }
};

QTEST_GUILESS_MAIN(TestTableRules)
#include "test_tablerules.moc"
