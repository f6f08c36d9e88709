// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What a backup tells the user, as desktop notifications and a KDE job in
// the user's own session. A backup script runs it as the user named in it,
// with the environment of one of that user's processes:
//
//   orvane-notice --finished FREQ complete|errors|caution [manual]
//                                  the end-of-backup notice; what the run
//                                  reported comes on standard input
//   orvane-notice --prompt FREQ [manual]          ask before a backup
//   orvane-notice --progress FILE FREQ [manual]   the run's progress while FILE exists
//   orvane-notice --ask-deletions COUNT BACKUP SOURCE FREQ [manual]
//                                  ask whether a mirror may delete COUNT files
//   orvane-notice --idle           print the seconds the user has been idle
//
// FREQ is "Daily", "Weekly" or "Monthly"; "manual" marks a manual run.
// The notices follow the user's settings ("DisplayAlert", "AutoDismissAlert",
// "TimeValue", "TimeUnit", "PlaySound", "Sound").
//
// Every program ends when its notification is gone: closed, expired, ended
// by its own time-out, replaced by the next end notice of the same kind of
// run, or, for --progress and --ask-deletions, when the run that started it
// ends (a pipe on standard input from the run closes). An end notice nobody
// closes goes after a day at most.
//
// Exit status:
//   0  done; for --prompt: "Back Up Now"; for --ask-deletions: "Delete"
//   1  --prompt: "Skip"; --ask-deletions: "Keep"
//   2  wrong arguments; --ask-deletions: closed or unanswered within ten
//      minutes, or the run ended first (nothing is deleted)
//   3  nobody could be told or asked: no session bus address was given, the
//      bus or the desktop's notification (or job) server is not there, or the
//      prompt went unanswered for five minutes or was closed without an
//      answer. The scheduled backup then goes ahead, as it always has when
//      the user was away.
#include "OVBackupJob.h"
#include "OVNoticeText.h"
#include "OVSettingsDomain.h"
#include "OVSettingsTable.h"
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
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>
#include <QUrl>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
enum Status { Done = 0, Skip = 1, Usage = 2, NoAnswer = 3 };
// --ask-deletions: the answers, and none (which keeps every file).
enum Deletions { Delete = 0, Keep = 1, Unanswered = 2 };

const auto ComponentName = QStringLiteral("orvane");
const auto DesktopEntry = QStringLiteral("org.orvane.Orvane.notice");
const auto NotificationService = QStringLiteral("org.freedesktop.Notifications");
const auto JobViewService = QStringLiteral("org.kde.JobViewServer");
// How long the prompt waits for an answer.
constexpr int PromptMilliseconds = 5 * 60 * 1000;
// How long the question about deletions waits; the run waits a little more.
constexpr int AskMilliseconds = 10 * 60 * 1000;
// The longest an end notice stays when nobody closes it.
constexpr qint64 LongestNoticeMilliseconds = 24 * 3600 * 1000;

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

bool inputIs(bool (*kind)(mode_t))
{
    struct stat info;
    return ::fstat(STDIN_FILENO, &info) == 0 && kind(info.st_mode);
}

bool isPipe(mode_t mode)
{
    return S_ISFIFO(mode);
}

bool isPipeOrFile(mode_t mode)
{
    return S_ISFIFO(mode) || S_ISREG(mode);
}

// When standard input is a pipe from the run, its end is the run's end
// (however the run ended, killed too): END is called then.
void endWithRun(const std::function<void()> &end)
{
    if (!inputIs(isPipe)) {
        return;
    }
    auto *notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [notifier, end] {
        char buffer[512];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
            notifier->setEnabled(false);
            end();
        }
    });
}

// What the run reported, from standard input when the run gave a pipe or a
// file: 4 KiB at most, waiting two seconds at most.
QByteArray runReport()
{
    QByteArray report;
    if (!inputIs(isPipeOrFile)) {
        return report;
    }
    QElapsedTimer waited;
    waited.start();
    char buffer[1024];
    while (report.size() < 4096) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const qint64 left = 2000 - waited.elapsed();
        if (left <= 0 || ::poll(&input, 1, static_cast<int>(left)) <= 0) {
            break;
        }
        const ssize_t got = ::read(STDIN_FILENO, buffer, qMin<size_t>(sizeof buffer, 4096 - report.size()));
        if (got <= 0) {
            break;
        }
        report.append(buffer, static_cast<int>(got));
    }
    return report;
}

// Closes the notification and ends with STATUS once the server confirms
// it, or after five seconds if it never does.
void closeAndExit(const QPointer<KNotification> &notice, int status)
{
    if (notice) {
        QObject::connect(notice, &KNotification::closed, qApp, [status] {
            QCoreApplication::exit(status);
        });
        notice->close();
    }
    QTimer::singleShot(notice ? 5000 : 0, qApp, [status] {
        QCoreApplication::exit(status);
    });
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

int finished(const QString &frequency, const QString &kind, const QString &result)
{
    const bool complete = result == QLatin1String("complete");
    const QByteArray report = runReport();
    const QVariantMap settings = OVSettingsDomain::read().value_or(QVariantMap());
    if (OVSettingsTable::value(settings, "PlaySound").toBool()) {
        OVSoundMenu::playNamedSound(OVSettingsTable::value(settings, "Sound").toString(), QDir::homePath());
    }
    if (!OVSettingsTable::value(settings, "DisplayAlert").toBool()) {
        return Done;
    }
    if (!useOwnSessionBus() || !serverPresent(NotificationService, QStringLiteral("notification server"))) {
        return NoAnswer;
    }
    endWithSession(NotificationService, Done);
    const QString log = OVNoticeText::logFile(frequency);
    QPointer<KNotification> notice;
    if (complete) {
        notice = notification(QStringLiteral("backupComplete"), QStringLiteral("Backup complete"), OVNoticeText::completeText(kind));
    } else if (result == QLatin1String("errors")) {
        notice = notification(QStringLiteral("backupErrors"),
                              QStringLiteral("Backup finished with errors"),
                              OVNoticeText::withDetails(OVNoticeText::errorsText(kind), report));
    } else {
        notice = notification(QStringLiteral("backupCaution"),
                              QStringLiteral("Backup needs your attention"),
                              OVNoticeText::withDetails(OVNoticeText::cautionText(kind), report));
    }
    // Opening the log may outlast the notice; the program ends when both are done.
    static int pending = 1;
    if (!complete) {
        notice->setUrgency(KNotification::HighUrgency);
        // The logs are for administrators; others have the report above.
        if (::access(QFile::encodeName(log).constData(), R_OK) == 0) {
            notice->setActions({QStringLiteral("Show Log")});
            QObject::connect(notice, &KNotification::action1Activated, qApp, [log] {
                openLog(log, &pending);
            });
        }
    }
    QObject::connect(notice, &KNotification::closed, qApp, [] {
        if (--pending == 0) {
            QCoreApplication::exit(Done);
        }
    });
    const qint64 delay = OVNoticeText::dismissDelay(settings).value_or(LongestNoticeMilliseconds);
    QTimer::singleShot(static_cast<int>(qMin(delay, LongestNoticeMilliseconds)), qApp, [notice] {
        closeAndExit(notice, Done);
    });
    // The next end notice of this kind of run takes this one's place.
    const QString name = OVNoticeText::finishedServiceName(kind);
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    QObject::connect(bus, &QDBusConnectionInterface::serviceUnregistered, qApp, [name, notice](const QString &lost) {
        if (lost == name) {
            closeAndExit(notice, Done);
        }
    });
    bus->registerService(name, QDBusConnectionInterface::ReplaceExistingService, QDBusConnectionInterface::AllowReplacement);
    notice->sendEvent();
    return QApplication::exec();
}

int askDeletions(qulonglong count, const QString &backup, const QString &source, const QString &kind)
{
    if (!useOwnSessionBus() || !serverPresent(NotificationService, QStringLiteral("notification server"))) {
        return NoAnswer;
    }
    endWithSession(NotificationService, Status(Unanswered));
    QPointer<KNotification> ask = notification(QStringLiteral("askDeletions"),
                                               QStringLiteral("Delete files from the %1 backup?").arg(kind),
                                               OVNoticeText::askDeletionsText(count, backup, source));
    ask->setUrgency(KNotification::HighUrgency);
    ask->setActions({QStringLiteral("Delete"), QStringLiteral("Keep")});
    static int answer = Unanswered;
    QObject::connect(ask, &KNotification::action1Activated, qApp, [] {
        answer = Delete;
    });
    QObject::connect(ask, &KNotification::action2Activated, qApp, [] {
        answer = Keep;
    });
    QObject::connect(ask, &KNotification::closed, qApp, [] {
        QCoreApplication::exit(answer);
    });
    QTimer::singleShot(AskMilliseconds, qApp, [ask] {
        say(QStringLiteral("nobody answered within ten minutes: nothing is deleted"));
        closeAndExit(ask, Unanswered);
    });
    endWithRun([ask] {
        say(QStringLiteral("the backup that asked is over: nothing is deleted"));
        answer = Unanswered;
        closeAndExit(ask, Unanswered);
    });
    ask->sendEvent();
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
    endWithRun([job] {
        job->end();
    });
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
        QStringLiteral("usage: orvane-notice --finished FREQ complete|errors|caution [manual] | --prompt FREQ [manual]"
                       " | --progress FILE FREQ [manual] | --ask-deletions COUNT BACKUP SOURCE FREQ [manual] | --idle"
                       "   (FREQ: Daily, Weekly or Monthly)"));
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
        if (kind && (result == QLatin1String("complete") || result == QLatin1String("errors") || result == QLatin1String("caution"))) {
            return finished(arguments.at(1), *kind, result);
        }
    }
    if (mode == QLatin1String("--prompt") && count == 2) {
        if (const std::optional<QString> kind = OVNoticeText::kindOfRun(arguments.at(1), manual)) {
            return prompt(*kind);
        }
    }
    if (mode == QLatin1String("--ask-deletions") && count == 5) {
        bool number = false;
        const qulonglong files = arguments.at(1).toULongLong(&number);
        const std::optional<QString> kind = OVNoticeText::kindOfRun(arguments.at(4), manual);
        if (number && files > 0 && kind && !arguments.at(2).isEmpty() && !arguments.at(3).isEmpty()) {
            return askDeletions(files, arguments.at(2), arguments.at(3), *kind);
        }
    }
    if (mode == QLatin1String("--progress") && count == 3 && !arguments.at(1).isEmpty()) {
        if (const std::optional<QString> kind = OVNoticeText::kindOfRun(arguments.at(2), manual)) {
            return progress(arguments.at(1), *kind);
        }
    }
    return usage();
}
