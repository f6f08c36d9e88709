// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The pane's launcher against the installed helpers, in the sandbox as
// root (who needs no unlock): each tool's result and its refusal line come
// back through the signal, in launch order, also of a tool that cannot
// start, and waitForAll holds until the queue is done.
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

class TestLauncher : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void resultsReachTheSignal()
    {
        OVToolLauncher *launcher = OVToolLauncher::instance();
        QSignalSpy finished(launcher, &OVToolLauncher::toolFinished);
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool, QByteArrayLiteral("not a property list"));
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool, QByteArrayLiteral("bplist00 items"));
        OVToolLauncher::launch(OVFixedPaths::InstallScriptsTool, OVToolLauncher::parts({{"daily", "#!/bin/sh\nid\n"}}));
        OVToolLauncher::launch("no_such_tool");
        QVERIFY(launcher->isBusy());
        QVERIFY(launcher->waitForAll(30000));
        QVERIFY(!launcher->isBusy());
        QCOMPARE(finished.count(), 4);
        const struct {
            const char *tool;
            bool ok;
            const char *message;
        } expected[] = {
            {"archive_table", false, "archive_table: refused: the item list is not a property list"},
            {"archive_table", true, ""},
            {"install_scripts", false, "not Orvane's backup script"},
            {"no_such_tool", false, "no_such_tool: cannot be started"},
        };
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(finished.at(i).at(0).toString(), QLatin1String(expected[i].tool));
            QCOMPARE(finished.at(i).at(1).toBool(), expected[i].ok);
            QVERIFY2(finished.at(i).at(2).toString().contains(QLatin1String(expected[i].message)), qPrintable(finished.at(i).at(2).toString()));
        }
        QCOMPARE(finished.at(0).at(2).toString(), QLatin1String(expected[0].message));
        QFile archive(QString::fromUtf8(OVFixedPaths::ItemsArchive));
        QVERIFY(archive.open(QIODevice::ReadOnly));
        QCOMPARE(archive.readAll(), QByteArray("bplist00 items"));
    }
};

QTEST_GUILESS_MAIN(TestLauncher)
#include "test_launcher.moc"
