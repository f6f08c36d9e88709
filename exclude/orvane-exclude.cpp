// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// orvane-exclude --exclude|--include [--remove-from-backup|--keep-in-backup]
//                [--no-dialogs] PATH...
//
// Dolphin's "Exclude from Backups" and "Include in Backups": the files and
// folders become (or stop being) exclusions of the items whose source holds
// them. The change reaches what root runs as every change does: after an
// administrator's password (polkit's unlock action, asked for this
// process), the item list and the scripts are rebuilt and handed to the
// archive_table and install_scripts helpers, started as this process's own
// children. Exit status: 0 done, 1 a path is in no item's source or stays
// left out, 2 nothing was changed (no password, a helper failed).

#include "OVExcludeEdit.h"
#include "OVItemArchive.h"
#include "OVLocalizedStrings.h"
#include "OVScriptBuilder.h"
#include "OVSettings.h"
#include "OVToast.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"

#include <KNotification>
#include <PolkitQt1/Authority>
#include <PolkitQt1/Subject>

#include <QApplication>
#include <QCommandLineParser>
#include <QIcon>
#include <QMessageBox>
#include <QPushButton>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace
{
enum Status {
    Done = 0,
    NotAll = 1,
    NotChanged = 2,
};

class Run : public QObject
{
public:
    bool dialogs = true;
    bool excluding = true;

    // Says what happened, on standard error and, unless told not to, in a
    // dialog.
    void tell(QMessageBox::Icon icon, const QStringList &lines)
    {
        QTextStream err(stderr);
        for (const QString &line : lines) {
            err << line << '\n';
        }
        err.flush();
        if (dialogs && !lines.isEmpty()) {
            QMessageBox box(icon, OVLocalized(excluding ? "ExcludeTitle" : "IncludeTitle"), lines.join(QLatin1Char('\n')));
            box.exec();
        }
    }

    // Asks polkit for the unlock for this process, with the desktop's
    // password dialog; calls granted with the answer.
    void authorize(const std::function<void(bool, const QString &)> &granted)
    {
        using PolkitQt1::Authority;
        Authority *authority = Authority::instance();
        connect(authority, &Authority::checkAuthorizationFinished, this, [authority, granted](Authority::Result result) {
            QString why;
            if (authority->hasError() || result == Authority::Unknown) {
                why = OVLocalized("ExcludeNoPolkit");
                authority->clearError();
            } else if (result == Authority::Challenge) {
                why = OVLocalized("ExcludeNoAgent");
            } else if (result != Authority::Yes) {
                why = OVLocalized("ExcludeRefused");
            }
            granted(why.isEmpty(), why);
        });
        authority->checkAuthorization(QString::fromLatin1(OVFixedPaths::UnlockAction),
                                      PolkitQt1::UnixProcessSubject(QCoreApplication::applicationPid()),
                                      Authority::AllowUserInteraction);
    }
};
}

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("orvane-exclude"));
    QApplication::setApplicationDisplayName(QStringLiteral("Orvane"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("orvane")));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Leaves files and folders out of Orvane's backups, or takes them back in."));
    parser.addHelpOption();
    const QCommandLineOption excludeOption(QStringLiteral("exclude"), QStringLiteral("Leave the paths out of the backups."));
    const QCommandLineOption includeOption(QStringLiteral("include"), QStringLiteral("Take the paths back into the backups."));
    const QCommandLineOption removeOption(QStringLiteral("remove-from-backup"), QStringLiteral("Remove what earlier backups copied of them too."));
    const QCommandLineOption keepOption(QStringLiteral("keep-in-backup"), QStringLiteral("Keep what earlier backups copied of them."));
    const QCommandLineOption quietOption(QStringLiteral("no-dialogs"), QStringLiteral("Ask nothing, show nothing: say it on standard error."));
    parser.addOptions({excludeOption, includeOption, removeOption, keepOption, quietOption});
    parser.addPositionalArgument(QStringLiteral("path"), QStringLiteral("A file or folder inside a backed-up folder."), QStringLiteral("PATH..."));
    parser.process(app);

    Run run;
    run.dialogs = !parser.isSet(quietOption);
    run.excluding = parser.isSet(excludeOption);
    const QStringList paths = parser.positionalArguments();
    if (parser.isSet(excludeOption) == parser.isSet(includeOption) || paths.isEmpty() || (parser.isSet(removeOption) && parser.isSet(keepOption))) {
        run.tell(QMessageBox::Critical, {parser.helpText()});
        return NotChanged;
    }

    const auto loaded = OVItemArchive::load(QString::fromLatin1(OVFixedPaths::ItemsArchive));
    if (!loaded) {
        run.tell(QMessageBox::Critical, {OVLocalized("ExcludeNoItems")});
        return NotChanged;
    }
    QVector<OVBackupItem> items = *loaded;

    // Whether what earlier runs copied goes from the backup too: asked once.
    bool removeFromBackup = parser.isSet(removeOption);
    if (run.excluding && !parser.isSet(removeOption) && !parser.isSet(keepOption)) {
        if (!run.dialogs) {
            run.tell(QMessageBox::Critical, {OVLocalized("ExcludeSayWhich")});
            return NotChanged;
        }
        QMessageBox question(QMessageBox::Question,
                             OVLocalized("ExclusionAskTitle"),
                             OVLocalized("ExclusionAsk").arg(paths.join(QStringLiteral("”, “"))),
                             QMessageBox::NoButton);
        question.setInformativeText(OVLocalized("ExclusionAskDetail"));
        QPushButton *remove = question.addButton(OVLocalized("ExclusionRemoveFromBackup"), QMessageBox::DestructiveRole);
        QPushButton *keep = question.addButton(OVLocalized("ExclusionKeepInBackup"), QMessageBox::AcceptRole);
        QPushButton *cancel = question.addButton(QMessageBox::Cancel);
        question.setDefaultButton(keep);
        question.exec();
        if (question.clickedButton() == cancel) {
            return NotChanged;
        }
        removeFromBackup = question.clickedButton() == remove;
    }

    QStringList lines;
    bool changed = false;
    int status = Done;
    for (const QString &path : paths) {
        const OVExcludeEdit::Outcome outcome = run.excluding ? OVExcludeEdit::exclude(&items, path, removeFromBackup) : OVExcludeEdit::include(&items, path);
        lines.append(OVExcludeEdit::describe(outcome, path, run.excluding));
        changed = changed || outcome.kind == OVExcludeEdit::Outcome::Changed;
        if (outcome.kind == OVExcludeEdit::Outcome::NotInAnyItem || outcome.kind == OVExcludeEdit::Outcome::StillExcluded) {
            status = NotAll;
        }
    }
    if (!changed) {
        run.tell(status == Done ? QMessageBox::Information : QMessageBox::Warning, lines);
        return status;
    }

    // As the module saves: the item list first, then the scripts (only
    // while backups are on), each by its helper once polkit said yes.
    const OVSettings settings = OVSettings::stored();
    const QByteArray archive = OVItemArchive::archive(items);
    const bool backupsOn = settings.master() == 0;
    const auto scripts = backupsOn ? OVScriptBuilder::buildScheduledScripts(items, settings, OVToast::detect(OVToast::applicationFolders()).applicationName)
                                   : QList<QPair<QByteArray, QByteArray>>();
    int pending = backupsOn ? 2 : 1;
    QStringList failures;
    QObject::connect(OVToolLauncher::instance(), &OVToolLauncher::toolFinished, &run, [&](const QString &tool, bool ok, const QString &message) {
        if (!ok) {
            failures.append(OVLocalized(QString(tool + QStringLiteral("Failed")).toLatin1().constData()) + message);
        }
        if (--pending == 0) {
            app.exit(0);
        }
    });
    run.authorize([&](bool granted, const QString &why) {
        if (!granted) {
            failures.append(OVLocalized("ExcludeNotChanged") + QLatin1Char(' ') + why);
            app.exit(0);
            return;
        }
        OVToolLauncher::launch(OVFixedPaths::ArchiveTableTool, archive);
        if (backupsOn) {
            OVToolLauncher::launch(OVFixedPaths::InstallScriptsTool, OVToolLauncher::parts(scripts));
        }
    });
    app.exec();
    if (!failures.isEmpty()) {
        run.tell(QMessageBox::Critical, failures);
        return NotChanged;
    }
    if (status != Done) {
        run.tell(QMessageBox::Warning, lines);
        return status;
    }
    // Done: a passing notice, not a dialog to dismiss.
    QTextStream(stderr) << lines.join(QLatin1Char('\n')) << '\n';
    if (run.dialogs) {
        KNotification *notice = KNotification::event(KNotification::Notification,
                                                     OVLocalized(run.excluding ? "ExcludeTitle" : "IncludeTitle"),
                                                     lines.join(QLatin1Char('\n')),
                                                     QStringLiteral("orvane"));
        QObject::connect(notice, &KNotification::closed, &app, &QCoreApplication::quit);
        // Shown by the desktop; the program need not wait long for it.
        QTimer::singleShot(5000, &app, &QCoreApplication::quit);
        app.exec();
    }
    return status;
}
