// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVPreview.h"

#include "OVExclusions.h"
#include "OVSettings.h"

#include <QFile>
#include <QFileInfo>

QStringList OVPreview::arguments(const OVBackupItem &item, const Options &options)
{
    QStringList arguments = {QStringLiteral("-n"), QStringLiteral("--preview")};
    if (options.mirror) {
        arguments.append(QStringLiteral("-d"));
    }
    if (options.remote) {
        arguments.append(QStringLiteral("-r"));
    }
    arguments += OVExclusions::psyncArguments(item.exclusions(), item.exclusionsRemovedFromBackup(), item.sourcePath());
    // As the runs do: the Safety Net folder is never copied from a source
    // that holds it.
    if (!options.safetyNetFolder.isEmpty()) {
        const QString net = QFileInfo(options.safetyNetFolder).canonicalFilePath();
        const QString source = QFileInfo(item.sourcePath()).canonicalFilePath();
        const QString inside = net.isEmpty() || source.isEmpty() ? QString() : OVExclusions::relativeTo(net, source);
        if (!inside.isEmpty()) {
            arguments.append(QStringLiteral("--exclude-path=") + inside);
        }
    }
    arguments.append(item.sourcePath());
    arguments.append(item.destPath());
    return arguments;
}

OVPreview::Options OVPreview::savedOptions(const OVBackupItem &item)
{
    const OVSettings settings = OVSettings::stored();
    const bool scheduled = item.hasFrequency(OVFrequency::Daily) || item.hasFrequency(OVFrequency::Weekly) || item.hasFrequency(OVFrequency::Monthly);
    const OVFrequency frequency = scheduled ? OVFrequency(item.frequencyColumn()) : OVFrequency::Manual;
    Options options;
    options.mirror = settings.mirrorFolders(frequency);
    options.remote = settings.remoteBackup(frequency);
    if (settings.safetyNet()) {
        options.safetyNetFolder = settings.safetyNetFolder();
    }
    return options;
}

QVector<OVPreview::Record> OVPreview::feed(const QByteArray &output)
{
    static const QByteArray Kinds[] = {QByteArrayLiteral("copy "), QByteArrayLiteral("replace "), QByteArrayLiteral("delete ")};
    static const QByteArray Message = QByteArrayLiteral("psync: ");
    m_pending += output;
    QVector<Record> records;
    int at = 0;
    for (;;) {
        const QByteArray rest = QByteArray::fromRawData(m_pending.constData() + at, m_pending.size() - at);
        if (rest.startsWith(Message)) {
            const int end = rest.indexOf('\n');
            if (end < 0) {
                break;
            }
            m_messages.append(QString::fromUtf8(rest.constData() + Message.size(), end - Message.size()));
            at += end + 1;
            continue;
        }
        const int end = rest.indexOf('\0');
        if (end < 0) {
            break;
        }
        const QByteArray text(rest.constData(), end);
        at += end + 1;
        Record record;
        int kind = 0;
        while (kind < KindCount && !text.startsWith(Kinds[kind])) {
            ++kind;
        }
        const int space = kind < KindCount ? text.indexOf(' ', Kinds[kind].size()) : -1;
        bool number = false;
        const QByteArray size = space < 0 ? QByteArray() : text.mid(Kinds[kind].size(), space - Kinds[kind].size());
        record.size = size.toLongLong(&number);
        if (space < 0 || !number || record.size < 0 || space + 1 >= text.size()) {
            ++m_unreadable;
            continue;
        }
        record.kind = Kind(kind);
        record.path = text.mid(space + 1);
        m_counts[kind] += 1;
        m_bytes[kind] += record.size;
        records.append(record);
    }
    m_pending.remove(0, at);
    return records;
}
