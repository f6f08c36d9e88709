// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What a backup tells the user, as desktop notifications and a KDE job in
// the user's own session. A backup script runs it as the user named in it,
// with the environment of one of that user's processes:
//
//   orvane-notice --finished FREQ complete|errors [manual]   the end-of-backup notice
//   orvane-notice --prompt FREQ [manual]                     ask before a backup
//   orvane-notice --progress FILE FREQ [manual]              the run's progress while FILE exists
//   orvane-notice --idle                                     print the seconds the user has been idle
//
// FREQ is "Daily", "Weekly" or "Monthly"; "manual" marks a manual run.
// The notices follow the user's settings (OVSettings): whether a notice is
// shown, when it closes by itself, and its sound.
//
// Exit status:
//   0  done; for --prompt: "Back Up Now"
//   1  --prompt: "Skip"
//   2  wrong arguments
//   3  nobody could be told or asked: no session bus address was given, the
//      bus or the desktop's notification (or job) server is not there, or the
//      prompt went unanswered for five minutes or was closed without an
//      answer. The scheduled backup then goes ahead, as it always has when
//      the user was away.
#include "OVBackupJob.h"
#include "OVNoticeText.h"
#include "OVSettings.h"
#include "OVSoundMenu.h"

#include <KIO/OpenUrlJob>
#include <KNotification>
#include <KUiServerV2JobTracker>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QDir>
#include <QPointer>
#include <QTimer>
#include <QUrl>

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
enum Status { Done = 0, Skip = 1, Usage = 2, NoAnswer = 3 };

const auto ComponentName = QStringLiteral("orvane");
const auto DesktopEntry = QStringLiteral("org.orvane.Orvane.notice");
const auto NotificationService = QStringLiteral("org.freedesktop.Notifications");
const auto JobViewService = QStringLiteral("org.kde.JobViewServer");
// How long the prompt waits for an answer.
constexpr int PromptMilliseconds = 5 * 60 * 1000;

void say(const QString &text)
{
    std::fprintf(stderr, "orvane-notice: %s\n", qPrintable(text));
}

// The user's own session bus, never a new one: without an address libdbus
// would "autolaunch" a private dbus-daemon (through dbus-launch) that no
// notification server listens on and that outlives the session. Decided
// before anything can touch D-Bus.
bool busGiven = false;

void findOwnSessionBus()
{
    QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (address.isEmpty()) {
        // The systemd user bus lives at a fixed place in the runtime folder.
        const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
        struct stat info;
        const QByteArray socket = runtime + "/bus";
        if (!runtime.isEmpty() && lstat(socket.constData(), &info) == 0 && S_ISSOCK(info.st_mode) && info.st_uid == getuid()) {
            address = "unix:path=" + socket;
            qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        }
    }
    busGiven = !address.isEmpty() && !address.contains("autolaunch:");
    if (!busGiven) {
        // libdbus autolaunches only on an X display.
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        qunsetenv("DISPLAY");
    }
}

bool useOwnSessionBus()
{
    if (!busGiven) {
        say(QStringLiteral("the user's session bus address (DBUS_SESSION_BUS_ADDRESS) was not given: nothing is shown"));
        return false;
    }
    if (!QDBusConnection::sessionBus().isConnected()) {
        say(QStringLiteral("cannot reach the user's session bus: %1").arg(QDBusConnection::sessionBus().lastError().message()));
        return false;
    }
    return true;
}

bool serverPresent(const QString &service, const QString &what)
{
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    if (bus->isServiceRegistered(service).value()) {
        return true;
    }
    const QDBusReply<QStringList> activatable = bus->call(QStringLiteral("ListActivatableNames"));
    if (activatable.isValid() && activatable.value().contains(service)) {
        return true;
    }
    say(QStringLiteral("no %1 (%2) runs in the user's session: nothing is shown").arg(what, service));
    return false;
}

// Ends the program when the notification server or the bus goes away, as
// it does when the user logs out: no notice outlives the session.
void endWithSession(const QString &service, Status status)
{
    auto *watcher = new QDBusServiceWatcher(service, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForUnregistration, qApp);
    QObject::connect(watcher, &QDBusServiceWatcher::serviceUnregistered, qApp, [status] {
        QCoreApplication::exit(status);
    });
    auto *check = new QTimer(qApp);
    QObject::connect(check, &QTimer::timeout, qApp, [status] {
        if (!QDBusConnection::sessionBus().isConnected()) {
            QCoreApplication::exit(status);
        }
    });
    check->start(10 * 1000);
}

KNotification *notification(const QString &event, const QString &title, const QString &text)
{
    auto *notice = new KNotification(event, KNotification::Persistent);
    notice->setComponentName(ComponentName);
    notice->setIconName(QStringLiteral("orvane"));
    notice->setTitle(title);
    notice->setText(text);
    // Set here, not in the .notifyrc: an urgency read from there comes after
    // sending and makes KNotification send the notice a second time.
    notice->setUrgency(KNotification::NormalUrgency);
    return notice;
}

void openLog(const QString &log, int *pending)
{
    ++*pending;
    auto *job = new KIO::OpenUrlJob(QUrl::fromLocalFile(log), QStringLiteral("text/plain"));
    QObject::connect(job, &KJob::result, qApp, [job, log, pending] {
        if (job->error()) {
            say(QStringLiteral("cannot open %1: %2").arg(log, job->errorString()));
        }
        if (--*pending == 0) {
            QCoreApplication::exit(Done);
        }
    });
    job->start();
}

int finished(const QString &frequency, const QString &kind, bool complete)
{
    const OVSettings settings = OVSettings::stored();
    if (settings.playSound()) {
        OVSoundMenu::playNamedSound(settings.sound(), QDir::homePath());
    }
    if (!settings.displayAlert()) {
        return Done;
    }
    if (!useOwnSessionBus() || !serverPresent(NotificationService, QStringLiteral("notification server"))) {
        return NoAnswer;
    }
    endWithSession(NotificationService, Done);
    const QString log = OVNoticeText::logFile(frequency);
    QPointer<KNotification> notice = complete
        ? notification(QStringLiteral("backupComplete"), QStringLiteral("Backup complete"), OVNoticeText::completeText(kind))
        : notification(QStringLiteral("backupErrors"), QStringLiteral("Backup finished with errors"), OVNoticeText::errorsText(kind));
    // Opening the log may outlast the notice; the program ends when both are done.
    static int pending = 1;
    if (!complete) {
        notice->setUrgency(KNotification::HighUrgency);
        notice->setActions({QStringLiteral("Show Log")});
        QObject::connect(notice, &KNotification::action1Activated, qApp, [log] {
            openLog(log, &pending);
        });
    }
    QObject::connect(notice, &KNotification::closed, qApp, [] {
        if (--pending == 0) {
            QCoreApplication::exit(Done);
        }
    });
    if (const std::optional<qint64> delay = OVNoticeText::dismissDelay(settings.domain())) {
        QTimer::singleShot(static_cast<int>(*delay), notice, [notice] {
            notice->close();
            // The server confirms the close; if it never does, stop anyway.
            QTimer::singleShot(5000, qApp, [] {
                QCoreApplication::exit(Done);
            });
        });
    }
    notice->sendEvent();
    return QApplication::exec();
}

int prompt(const QString &kind)
{
    if (!useOwnSessionBus() || !serverPresent(NotificationService, QStringLiteral("notification server"))) {
        return NoAnswer;
    }
    endWithSession(NotificationService, NoAnswer);
    QPointer<KNotification> ask = notification(QStringLiteral("promptBeforeBackup"), QStringLiteral("Backup about to start"), OVNoticeText::promptText(kind));
    ask->setUrgency(KNotification::HighUrgency);
    ask->setActions({QStringLiteral("Back Up Now"), QStringLiteral("Skip")});
    static Status answer = NoAnswer;
    QObject::connect(ask, &KNotification::action1Activated, qApp, [] {
        answer = Done;
    });
    QObject::connect(ask, &KNotification::action2Activated, qApp, [] {
        answer = Skip;
    });
    QObject::connect(ask, &KNotification::closed, qApp, [] {
        QCoreApplication::exit(answer);
    });
    static bool timedOut = false;
    QTimer::singleShot(PromptMilliseconds, qApp, [ask] {
        timedOut = true;
        say(QStringLiteral("nobody answered within five minutes: the backup goes ahead"));
        if (ask) {
            ask->close();
        }
        QTimer::singleShot(5000, qApp, [] {
            QCoreApplication::exit(NoAnswer);
        });
    });
    ask->sendEvent();
    const int status = QApplication::exec();
    if (status == NoAnswer && !timedOut) {
        say(QStringLiteral("the prompt was closed without an answer: the backup goes ahead"));
    }
    return status;
}

int progress(const QString &file, const QString &kind)
{
    if (!useOwnSessionBus() || !serverPresent(JobViewService, QStringLiteral("job progress server"))) {
        return NoAnswer;
    }
    endWithSession(JobViewService, Done);
    KUiServerV2JobTracker tracker;
    auto *job = new OVBackupJob(file, OVNoticeText::jobTitle(kind));
    job->setProperty("desktopFileName", DesktopEntry);
    job->setProperty("immediateProgressReporting", true);
    QObject::connect(job, &KJob::result, qApp, [] {
        // The tracker's last calls carry no reply; a round trip behind them
        // makes sure they left before the program ends.
        QTimer::singleShot(0, qApp, [] {
            QDBusConnection::sessionBus().interface()->isServiceRegistered(JobViewService);
            QCoreApplication::exit(Done);
        });
    });
    tracker.registerJob(job);
    job->start();
    return QApplication::exec();
}

int idle()
{
    if (!useOwnSessionBus()) {
        return NoAnswer;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.ScreenSaver"),
                                                       QStringLiteral("/ScreenSaver"),
                                                       QStringLiteral("org.freedesktop.ScreenSaver"),
                                                       QStringLiteral("GetSessionIdleTime"));
    const QDBusReply<uint> reply = QDBusConnection::sessionBus().call(call);
    if (!reply.isValid()) {
        say(QStringLiteral("the desktop does not tell how long the user has been idle: %1").arg(reply.error().message()));
        return NoAnswer;
    }
    std::printf("%u\n", reply.value() / 1000);
    return Done;
}

int usage()
{
    say(
        QStringLiteral("usage: orvane-notice --finished FREQ complete|errors [manual] | --prompt FREQ [manual]"
                       " | --progress FILE FREQ [manual] | --idle   (FREQ: Daily, Weekly or Monthly)"));
    return Usage;
}
}

int main(int argc, char **argv)
{
    findOwnSessionBus();
    QStringList arguments;
    for (int i = 1; i < argc; ++i) {
        arguments << QString::fromLocal8Bit(argv[i]);
    }
    // Notifications and jobs go over D-Bus: no window is ever drawn, so no
    // display is needed. Given as an argument, not in the environment, which
    // the log viewer inherits.
    char platform[] = "-platform";
    char offscreen[] = "offscreen";
    char *qtArguments[] = {argv[0], platform, offscreen, nullptr};
    int qtArgc = 3;
    QApplication application(qtArgc, qtArguments);
    QApplication::setApplicationName(ComponentName);
    QApplication::setApplicationDisplayName(QStringLiteral("Orvane"));
    QGuiApplication::setDesktopFileName(DesktopEntry);

    const QString mode = arguments.value(0);
    const bool manual = arguments.size() > 1 && arguments.last() == QLatin1String("manual");
    const int count = arguments.size() - (manual ? 1 : 0);
    if (mode == QLatin1String("--idle") && arguments.size() == 1) {
        return idle();
    }
    if (mode == QLatin1String("--finished") && count == 3) {
        const QString result = arguments.at(2);
        const std::optional<QString> kind = OVNoticeText::kindOfRun(arguments.at(1), manual);
        if (kind && (result == QLatin1String("complete") || result == QLatin1String("errors"))) {
            return finished(arguments.at(1), *kind, result == QLatin1String("complete"));
        }
    }
    if (mode == QLatin1String("--prompt") && count == 2) {
        if (const std::optional<QString> kind = OVNoticeText::kindOfRun(arguments.at(1), manual)) {
            return prompt(*kind);
        }
    }
    if (mode == QLatin1String("--progress") && count == 3 && !arguments.at(1).isEmpty()) {
        if (const std::optional<QString> kind = OVNoticeText::kindOfRun(arguments.at(2), manual)) {
            return progress(arguments.at(1), *kind);
        }
    }
    return usage();
}
