// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVStatusMonitor.h"

#include "OVBundle.h"
#include "OVLocalizedStrings.h"
#include "OVMarker.h"
#include "ovfixedpaths.h"
#include "ovstatus_debug.h"

#include <KAcceleratorManager>

#include <QFile>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
const auto &FilesOf = OVFixedPaths::Scheduled;

QString path(const char *fixed)
{
    return QString::fromUtf8(fixed);
}

QPixmap image(const char *name)
{
    return QPixmap(OVBundle::pathForResource(QString::fromLatin1(name), QStringLiteral("tiff")));
}
}

OVStatusMonitor::OVStatusMonitor(const std::array<Row, OVFixedPaths::ScheduledCount> &rows, std::function<bool()> isAuthorized, QObject *parent)
    : QObject(parent)
    , m_rows(rows)
    , m_isAuthorized(std::move(isAuthorized))
    , m_timer(new QTimer(this))
{
    m_timer->setInterval(5000);
    // The titles are values (a date, "None"), not commands: the desktop's
    // accelerator manager must not underline a letter of them.
    for (const Row &row : m_rows) {
        KAcceleratorManager::setNoAccel(row.button);
    }
    connect(m_timer, &QTimer::timeout, this, &OVStatusMonitor::updateLogButtons);
}

bool OVStatusMonitor::isBackupRunning()
{
    // A flag holds the PID of its run. It counts while that process is alive
    // and is a backup: root's ruby running a script. All of it is read from
    // /tmp and /proc, a few small files and no child process, and a planted
    // FIFO is opened without waiting, so the GUI thread never blocks.
    auto readSmall = [](const char *path, int flags, struct stat *info, qsizetype limit) -> std::optional<QByteArray> {
        const int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | flags);
        if (fd < 0) {
            return std::nullopt;
        }
        QByteArray data;
        if (::fstat(fd, info) == 0 && S_ISREG(info->st_mode)) {
            char buffer[4096];
            ssize_t got;
            while (data.size() < limit && (got = ::read(fd, buffer, sizeof buffer)) > 0) {
                data.append(buffer, int(got));
            }
        }
        ::close(fd);
        return data;
    };
    auto isRunningBackup = [&readSmall](const char *flag) {
        struct stat info {
        };
        const auto text = readSmall(flag, O_NOFOLLOW, &info, 64);
        // Only root's scripts make flags; a flag of anyone else is no run.
        if (!text || !S_ISREG(info.st_mode) || info.st_uid != 0) {
            return false;
        }
        bool number = false;
        const qlonglong pid = text->trimmed().toLongLong(&number);
        if (!number || pid <= 0) {
            return false;
        }
        const QByteArray process = QByteArray("/proc/") + QByteArray::number(pid);
        struct stat owner {
        };
        if (::stat(process.constData(), &owner) != 0 || owner.st_uid != 0) {
            return false;
        }
        struct stat ignored {
        };
        const auto commandLine = readSmall(QByteArray(process + "/cmdline").constData(), 0, &ignored, 1 << 16);
        if (!commandLine || commandLine->isEmpty()) {
            return false; // gone, or a zombie
        }
        const QList<QByteArray> arguments = commandLine->split('\0');
        const QByteArray program = arguments.first().mid(arguments.first().lastIndexOf('/') + 1);
        return program.startsWith("ruby") && std::any_of(arguments.cbegin() + 1, arguments.cend(), [](const QByteArray &a) {
                   return a.endsWith(".rb");
               });
    };
    for (std::size_t i = 0; i < m_running.size(); ++i) {
        m_running[i] = isRunningBackup(FilesOf[i].runFlag);
        struct stat info {
        };
        // Stale (or not a flag at all): ignored, and removed when we may; a
        // flag a run has only just made may not hold its PID yet.
        if (!m_running[i] && ::lstat(FilesOf[i].runFlag, &info) == 0 && info.st_mtime < ::time(nullptr) - 10 && ::unlink(FilesOf[i].runFlag) != 0) {
            qCDebug(OVLOG_STATUS) << "a stale run flag stays:" << FilesOf[i].runFlag << strerror(errno);
        }
    }
    return std::any_of(m_running.cbegin(), m_running.cend(), [](bool running) {
        return running;
    });
}

std::optional<QByteArrayList> OVStatusMonitor::scheduledRun(const QByteArray &lastRun)
{
    for (const QByteArray &line : lastRun.split('\n')) {
        const QByteArrayList fields = line.trimmed().split(' ');
        if (fields.size() == 3 && fields.at(0) == "scheduled") {
            return QByteArrayList{fields.at(1), fields.at(2)};
        }
    }
    return std::nullopt;
}

QString OVStatusMonitor::displayDate(const QByteArray &marker)
{
    const auto date = OVMarker::parse(marker);
    return date ? QLocale::system().toString(*date, QLocale::ShortFormat) : QString();
}

void OVStatusMonitor::updateLogButtons()
{
    const bool running = isBackupRunning();
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        QPushButton *button = m_rows[i].button;
        QLabel *status = m_rows[i].image;
        if (running && m_running[i]) {
            status->setPixmap(image("partial"));
            button->setText(OVLocalized("Working"));
            button->setToolTip(QString());
            button->setEnabled(false);
            continue;
        }
        // A manual run refreshes the daily marker; the scheduled runs' own
        // date and result stand beside it, when the scripts keep them.
        QFile lastRun(path(FilesOf[i].lastRun));
        if (lastRun.open(QIODevice::ReadOnly)) {
            const std::optional<QByteArrayList> run = scheduledRun(lastRun.read(1024));
            if (run) {
                const QString date = displayDate(run->at(0));
                button->setText(date.isEmpty() ? OVLocalized("None") : date);
                status->setPixmap(image(run->at(1) == "complete" ? "complete" : "caution"));
                button->setEnabled(m_isAuthorized());
                button->setToolTip(button->isEnabled() ? OVLocalized("ViewLog") : QString());
                continue;
            }
        }
        QFile marker(path(FilesOf[i].lastBackup));
        if (!marker.exists() || lastRun.exists()) {
            button->setText(OVLocalized("None"));
            button->setEnabled(false);
            button->setToolTip(QString());
            status->clear();
            continue;
        }
        QByteArray text;
        if (marker.open(QIODevice::ReadOnly)) {
            text = marker.read(256);
        } else {
            qCInfo(OVLOG_STATUS) << "cannot read the last-backup marker" << marker.fileName() << marker.errorString();
        }
        const QString date = displayDate(text);
        button->setText(date.isEmpty() ? OVLocalized("None") : date);
        status->setPixmap(image(QFile::exists(path(FilesOf[i].errors)) ? "caution" : "complete"));
        button->setEnabled(m_isAuthorized());
        button->setToolTip(button->isEnabled() ? OVLocalized("ViewLog") : QString());
    }
    Q_EMIT updated();
}

void OVStatusMonitor::startTimer(bool fireNow)
{
    m_timer->start();
    if (fireNow) {
        updateLogButtons();
    }
}

void OVStatusMonitor::stopTimer()
{
    m_timer->stop();
}

bool OVStatusMonitor::isTimerActive() const
{
    return m_timer->isActive();
}
