#include "OVStatusMonitor.h"

#include "OVBundle.h"
#include "OVLocalizedStrings.h"
#include "ovfixedpaths.h"

#include <KAcceleratorManager>

#include <QFile>
#include <QLabel>
#include <QLocale>
#include <QProcess>
#include <QPushButton>
#include <QTimer>

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

OVStatusMonitor::OVStatusMonitor(const std::array<Row, 3> &rows, std::function<bool()> isAuthorized, QObject *parent)
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

QString OVStatusMonitor::rootProcesses()
{
    QProcess ps;
    ps.start(QStringLiteral("/bin/ps"), {QStringLiteral("-U"), QStringLiteral("root")});
    if (!ps.waitForFinished(5000)) {
        ps.kill();
        ps.waitForFinished();
        return QString();
    }
    return QString::fromLatin1(ps.readAllStandardOutput());
}

bool OVStatusMonitor::isBackupRunning()
{
    if (!rootProcesses().contains(QLatin1String("ruby"))) {
        for (const OVFixedPaths::FrequencyFiles &files : FilesOf) {
            QFile::remove(path(files.runFlag));
        }
    }
    for (int i = 0; i < 3; ++i) {
        m_running[i] = QFile::exists(path(FilesOf[i].runFlag));
    }
    return m_running[0] || m_running[1] || m_running[2];
}

std::optional<QDate> OVStatusMonitor::parseMarker(const QByteArray &text)
{
    const QList<QByteArray> parts = text.trimmed().split('/');
    if (parts.size() != 3) {
        return std::nullopt;
    }
    int numbers[3];
    for (int i = 0; i < 3; ++i) {
        const QByteArray &part = parts.at(i);
        bool ok = false;
        numbers[i] = part.toInt(&ok);
        if (!ok || part.isEmpty() || part.size() > 2 || !std::all_of(part.cbegin(), part.cend(), ::isdigit)) {
            return std::nullopt;
        }
    }
    const int year = numbers[2] >= 69 ? 1900 + numbers[2] : 2000 + numbers[2];
    const QDate date(year, numbers[0], numbers[1]);
    return date.isValid() ? std::optional<QDate>(date) : std::nullopt;
}

QString OVStatusMonitor::displayDate(const QByteArray &marker)
{
    const auto date = parseMarker(marker);
    return date ? QLocale::system().toString(*date, QLocale::ShortFormat) : QString();
}

void OVStatusMonitor::updateLogButtons()
{
    const bool running = isBackupRunning();
    for (int i = 0; i < 3; ++i) {
        QPushButton *button = m_rows[i].button;
        QLabel *status = m_rows[i].image;
        if (running && m_running[i]) {
            status->setPixmap(image("partial"));
            button->setText(OVLocalized("Working"));
            button->setToolTip(QString());
            button->setEnabled(false);
            continue;
        }
        QFile marker(path(FilesOf[i].lastBackup));
        if (!marker.exists()) {
            button->setText(OVLocalized("None"));
            button->setEnabled(false);
            button->setToolTip(QString());
            status->clear();
            continue;
        }
        QByteArray text;
        if (marker.open(QIODevice::ReadOnly)) {
            text = marker.read(256);
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
