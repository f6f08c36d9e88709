// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVNoticeText.h"

#include "OVSettingsTable.h"

#include <QByteArrayList>
#include <QStringList>

namespace OVNoticeText
{
std::optional<QString> kindOfRun(const QString &frequency, bool manual)
{
    if (frequency != QLatin1String("Daily") && frequency != QLatin1String("Weekly") && frequency != QLatin1String("Monthly")) {
        return std::nullopt;
    }
    return manual ? QStringLiteral("manual") : frequency.toLower();
}

QString completeText(const QString &kind)
{
    return QStringLiteral("The %1 backup is complete.").arg(kind);
}

QString errorsText(const QString &kind)
{
    return QStringLiteral("The %1 backup finished with errors.").arg(kind);
}

QString cautionText(const QString &kind)
{
    return QStringLiteral("The %1 backup finished, but something needs your attention.").arg(kind);
}

QString withDetails(const QString &headline, const QByteArray &details)
{
    QStringList lines{headline.toHtmlEscaped()};
    const QByteArrayList given = details.split('\n');
    for (const QByteArray &line : given) {
        // A path may be any bytes; a line may be long. Five of them at most.
        const QString text = QString::fromUtf8(line).trimmed();
        if (!text.isEmpty() && lines.size() <= 5) {
            lines << (text.size() > 300 ? text.left(299) + QChar(0x2026) : text).toHtmlEscaped();
        }
    }
    // Markup: a line break is a tag (the server's plain text has it as one).
    return lines.join(QStringLiteral("<br/>"));
}

QString askDeletionsText(qulonglong count, const QString &backup, const QString &source)
{
    const QString files = count == 1 ? QStringLiteral("1 file") : QStringLiteral("%1 files").arg(count);
    return QStringLiteral("%1 in %2 %3 no longer in %4. Delete %5 from the backup?")
        .arg(files,
             backup.toHtmlEscaped(),
             count == 1 ? QStringLiteral("is") : QStringLiteral("are"),
             source.toHtmlEscaped(),
             count == 1 ? QStringLiteral("it") : QStringLiteral("them"));
}

QString finishedServiceName(const QString &kind)
{
    return QStringLiteral("org.orvane.Orvane.notice.finished.") + kind;
}

QString promptText(const QString &kind)
{
    if (kind == QLatin1String("manual")) {
        return QStringLiteral("A manual backup is about to start.");
    }
    return QStringLiteral("A scheduled %1 backup is about to start. If nobody answers, it starts in five minutes.").arg(kind);
}

QString jobTitle(const QString &kind)
{
    QString title = QStringLiteral("%1 backup").arg(kind);
    title[0] = title.at(0).toUpper();
    return title;
}

QString logFile(const QString &frequency)
{
    return QStringLiteral("/var/log/orvane_%1.log").arg(frequency.toLower());
}

std::optional<qint64> dismissDelay(const QVariantMap &settings)
{
    if (!OVSettingsTable::value(settings, "AutoDismissAlert").toBool()) {
        return std::nullopt;
    }
    static const qint64 unitSeconds[] = {1, 60, 3600};
    const int unit = qBound(0, OVSettingsTable::value(settings, "TimeUnit").toInt(), 2);
    // The options allow 1 to 999; a day is the most any notice waits.
    const qint64 value = qBound<qint64>(1, OVSettingsTable::value(settings, "TimeValue").toLongLong(), 999);
    return qMin<qint64>(value * unitSeconds[unit], 24 * 3600) * 1000;
}

unsigned long Progress::percent() const
{
    const auto share = [](qulonglong done, qulonglong total) {
        return static_cast<unsigned long>(qMin<long double>(100.0L, 100.0L * done / total));
    };
    if (bytesTotal > 0) {
        return share(bytesDone, bytesTotal);
    }
    if (filesTotal > 0) {
        return share(filesDone, filesTotal);
    }
    return 0;
}

QString Progress::folderText() const
{
    if (sourceCount < 2) {
        return QString();
    }
    // A line still at 0 (before the first folder) shows the first.
    const qulonglong folder = qBound<qulonglong>(1, sourceIndex, sourceCount);
    return QStringLiteral("%1 of %2").arg(folder).arg(sourceCount);
}

std::optional<Progress> parseProgress(const QByteArray &line)
{
    const QByteArray trimmed = line.endsWith('\n') ? line.left(line.size() - 1) : line;
    const QByteArrayList fields = trimmed.split(' ');
    if (fields.size() != 6) {
        return std::nullopt;
    }
    qulonglong values[6];
    for (int i = 0; i < 6; ++i) {
        const QByteArray &field = fields.at(i);
        bool ok = !field.isEmpty();
        for (const char c : field) {
            ok = ok && c >= '0' && c <= '9';
        }
        values[i] = ok ? field.toULongLong(&ok) : 0;
        if (!ok) {
            return std::nullopt;
        }
    }
    return Progress{values[0], values[1], values[2], values[3], values[4], values[5]};
}
}
