// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// orvane-restore [PATH]: the "Restore…" window on its own, as the file
// manager's "Restore an earlier version…" opens it. With --list or
// --restore, the same on the command line (OVRestoreCommand). It runs as
// the user and asks for no password: a user gets back only what the user
// may read.

#include "OVRestoreCommand.h"
#include "OVRestoreWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QIcon>
#include <QTextStream>

#include <cstdio>

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    if (OVRestoreCommand::wanted(arguments)) {
        // No display needed: a terminal, a script, a cron job.
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("orvane-restore"));
        QTextStream out(stdout);
        QTextStream err(stderr);
        return OVRestoreCommand::run(QCoreApplication::arguments(), OVRestoreSources::installed(), out, err);
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("orvane-restore"));
    QApplication::setApplicationDisplayName(QStringLiteral("Orvane"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("document-revert")));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Restores earlier versions of files and folders from Orvane's backups.\n"
                       "  orvane-restore --list [--at DATE] PATH\n"
                       "  orvane-restore --restore [--at DATE] [--to FOLDER] [--replace] PATH..."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("path"), QStringLiteral("A file or folder inside a backed-up folder."), QStringLiteral("[PATH]"));
    parser.process(app);

    const OVRestoreSources::Setup setup = OVRestoreSources::installed();
    QString path = parser.positionalArguments().value(0);
    if (path.isEmpty()) {
        path = QDir::homePath();
        for (const OVBackupItem &item : setup.items) {
            if (item.isComplete() && !item.sourcePath().isEmpty()) {
                path = item.sourcePath();
                break;
            }
        }
    }

    OVRestoreWindow window;
    window.setSetup(setup);
    window.offerConnect();
    window.openAt(path);
    window.show();
    return app.exec();
}
