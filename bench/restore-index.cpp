// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// restore-index ROOT: times the restore window's questions on the backups
// that restore-index.sh laid out under ROOT.

#include "OVRestoreSources.h"
#include "OVSettings.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString root = app.arguments().value(1);
    OVBackupItem item;
    item.setCheckColumn(true);
    item.setSourcePath(root + QStringLiteral("/source"));
    item.setDestPath(root + QStringLiteral("/disk/backup"));
    OVRestoreSources::Setup setup;
    setup.items = {item};
    OVSettings settings;
    settings.setSafetyNetFolder(root + QStringLiteral("/Safety Net Archives"));
    setup.settings = settings.domain();
    setup.supportFolder = root + QStringLiteral("/support");

    QTextStream out(stdout);
    QElapsedTimer timer;
    timer.start();
    const OVRestoreSources sources = OVRestoreSources::forPath(root + QStringLiteral("/source/big/file05000.txt"), setup);
    const QVector<OVVersion> versions = sources.index.versionsOf(sources.relativePath);
    out << "versions of one file: " << versions.size() << " versions in " << sources.index.snapshots().size() << " snapshots, " << timer.nsecsElapsed() / 1e6
        << " ms (archives found, index made, listed)\n";

    timer.restart();
    const QDateTime middle = sources.index.snapshot(15).time;
    const QVector<OVEntry> then = sources.index.listFolder(QStringLiteral("big"), middle);
    out << "folder of 10,000 files as of " << middle.toString(Qt::ISODate) << ": " << then.size() << " entries, " << timer.nsecsElapsed() / 1e6 << " ms\n";

    timer.restart();
    const QVector<OVEntry> now = sources.index.listFolder(QStringLiteral("big"));
    out << "folder of 10,000 files now and as backed up: " << now.size() << " entries, " << timer.nsecsElapsed() / 1e6 << " ms\n";
    return versions.size() == 31 && then.size() >= 10000 ? 0 : 1;
}
