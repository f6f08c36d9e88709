// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The pane's launcher against the installed helpers, in the sandbox as
// root (who needs no unlock): each tool's result and its refusal line come
// back through the signal, in launch order, and waitForAll holds until the
// queue is done.
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
        QVERIFY(launcher->isBusy());
        QVERIFY(launcher->waitForAll(30000));
        QVERIFY(!launcher->isBusy());
        QCOMPARE(finished.count(), 3);

        QCOMPARE(finished.at(0).at(0).toString(), QStringLiteral("archive_table"));
        QCOMPARE(finished.at(0).at(1).toBool(), false);
        QCOMPARE(finished.at(0).at(2).toString(), QStringLiteral("archive_table: refused: the item list is not a property list"));

        QCOMPARE(finished.at(1).at(1).toBool(), true);
        QFile archive(QString::fromUtf8(OVFixedPaths::ItemsArchive));
        QVERIFY(archive.open(QIODevice::ReadOnly));
        QCOMPARE(archive.readAll(), QByteArray("bplist00 items"));

        QCOMPARE(finished.at(2).at(0).toString(), QStringLiteral("install_scripts"));
        QCOMPARE(finished.at(2).at(1).toBool(), false);
        QVERIFY(finished.at(2).at(2).toString().contains(QStringLiteral("not Orvane's backup script")));
    }

    void aToolThatCannotStart()
    {
        QSignalSpy finished(OVToolLauncher::instance(), &OVToolLauncher::toolFinished);
        OVToolLauncher::launch("no_such_tool");
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(1).toBool(), false);
        QVERIFY(finished.at(0).at(2).toString().startsWith(QStringLiteral("no_such_tool: cannot be started")));
    }
};

QTEST_GUILESS_MAIN(TestLauncher)
#include "test_launcher.moc"
