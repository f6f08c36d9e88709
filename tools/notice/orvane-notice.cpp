// What a backup tells the user on their own display. The backup scripts run
// this as the user named in them:
//   orvane-notice --finished Daily complete|errors   the end-of-backup notice
//   orvane-notice --prompt Daily                     ask before a backup (exit 0: go, 1: skip)
//   orvane-notice --progress FILE Daily              a progress window while FILE exists
//   orvane-notice --idle                             print the seconds the user has been idle
// A manual run (which runs as "Daily") adds "manual" after --finished's and
// --progress's arguments; this program does not tell it apart yet.
// The notice follows the user's settings ("DisplayAlert", "AutoDismissAlert",
// "TimeValue", "TimeUnit", "PlaySound", "Sound").
#include "OVPropertyList.h"
#include "OVSoundMenu.h"
#include "ovconfig.h"

#include <QApplication>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTextStream>
#include <QTimer>
#include <QVBoxLayout>

#include <cstdio>

namespace
{
QVariantMap userSettings()
{
    const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/") + QStringLiteral(OV_BUNDLE_IDENTIFIER)
        + QStringLiteral(".plist");
    return OVPropertyList::fromFile(path).toMap();
}

QString frequencyWord(const QString &frequency)
{
    return frequency.toLower();
}

int finished(const QString &frequency, bool complete)
{
    const QVariantMap settings = userSettings();
    const bool display = settings.value(QStringLiteral("DisplayAlert"), true).toBool();
    const bool play = settings.value(QStringLiteral("PlaySound"), true).toBool();
    if (play) {
        OVSoundMenu::playNamedSound(settings.value(QStringLiteral("Sound"), QStringLiteral("Magic Bell")).toString(), QDir::homePath());
    }
    if (!display) {
        return 0;
    }
    QMessageBox notice(complete ? QMessageBox::Information : QMessageBox::Warning,
                       QStringLiteral("Orvane"),
                       complete ? QStringLiteral("The %1 backup is complete.").arg(frequencyWord(frequency))
                                : QStringLiteral("The %1 backup finished with errors. Orvane's status shows its log.").arg(frequencyWord(frequency)));
    if (settings.value(QStringLiteral("AutoDismissAlert"), false).toBool()) {
        // TimeUnit: 0 seconds, 1 minutes, 2 hours.
        static const int Seconds[] = {1, 60, 3600};
        const int unit = qBound(0, settings.value(QStringLiteral("TimeUnit"), 1).toInt(), 2);
        const qint64 delay = qMax<qint64>(1, settings.value(QStringLiteral("TimeValue"), 2).toLongLong()) * Seconds[unit] * 1000;
        QTimer::singleShot(static_cast<int>(qMin<qint64>(delay, 24LL * 3600 * 1000)), &notice, &QMessageBox::accept);
    }
    notice.exec();
    return 0;
}

int prompt(const QString &frequency)
{
    QMessageBox ask(QMessageBox::Question, QStringLiteral("Orvane"), QStringLiteral("A scheduled %1 backup is about to start.").arg(frequencyWord(frequency)));
    QPushButton *go = ask.addButton(QStringLiteral("Back Up Now"), QMessageBox::AcceptRole);
    ask.addButton(QStringLiteral("Skip This Backup"), QMessageBox::RejectRole);
    ask.setDefaultButton(go);
    // Nobody answers: the user is away, and the backup goes ahead.
    QTimer::singleShot(5 * 60 * 1000, go, &QPushButton::click);
    ask.exec();
    return ask.clickedButton() == go ? 0 : 1;
}

int progress(const QString &file, const QString &frequency)
{
    QWidget window;
    window.setWindowTitle(QStringLiteral("Orvane: %1 backup").arg(frequencyWord(frequency)));
    auto *layout = new QVBoxLayout(&window);
    auto *label = new QLabel(&window);
    auto *bar = new QProgressBar(&window);
    layout->addWidget(label);
    layout->addWidget(bar);
    window.resize(360, 90);
    window.show();
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        QFile status(file);
        if (!status.open(QIODevice::ReadOnly)) {
            QApplication::quit();
            return;
        }
        // "<files done> <files total> <bytes done> <bytes total> <source index> <source count>"
        const QStringList parts = QString::fromLatin1(status.readLine(4096)).trimmed().split(QLatin1Char(' '));
        if (parts.size() == 6) {
            bar->setRange(0, parts.at(1).toInt());
            bar->setValue(parts.at(0).toInt());
            label->setText(QStringLiteral("Backing up folder %1 of %2…").arg(parts.at(4), parts.at(5)));
        }
    });
    poll.start(500);
    return QApplication::exec();
}

int idle()
{
    QDBusInterface screenSaver(QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/ScreenSaver"), QStringLiteral("org.freedesktop.ScreenSaver"));
    const QDBusReply<uint> reply = screenSaver.call(QStringLiteral("GetSessionIdleTime"));
    if (!reply.isValid()) {
        return 1;
    }
    std::printf("%u\n", reply.value() / 1000);
    return 0;
}
}

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QStringList arguments = application.arguments();
    const QString mode = arguments.value(1);
    if ((mode == QLatin1String("--finished") || mode == QLatin1String("--progress")) && arguments.size() == 5
        && arguments.last() == QLatin1String("manual")) {
        arguments.removeLast();
    }
    if (mode == QLatin1String("--finished") && arguments.size() == 4) {
        return finished(arguments.at(2), arguments.at(3) == QLatin1String("complete"));
    }
    if (mode == QLatin1String("--prompt") && arguments.size() == 3) {
        return prompt(arguments.at(2));
    }
    if (mode == QLatin1String("--progress") && arguments.size() == 4) {
        return progress(arguments.at(2), arguments.at(3));
    }
    if (mode == QLatin1String("--idle") && arguments.size() == 2) {
        return idle();
    }
    QTextStream(stderr) << "usage: orvane-notice --finished FREQUENCY complete|errors | --prompt FREQUENCY | --progress FILE FREQUENCY | --idle\n";
    return 2;
}
