// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVBackupItem.h"

#include <QByteArray>
#include <QStringList>
#include <QVector>

#include <array>

// What the next run of an item would do, as the copy tool's dry run
// ("psync -n --preview") tells it: one record per entry, "KIND SIZE
// PATH\0", among the tool's own "psync: ..." lines.
class OVPreview
{
public:
    enum Kind {
        Copy,
        Replace,
        Delete,
        KindCount,
    };
    struct Record {
        Kind kind = Copy;
        qint64 size = 0;
        // Relative to the destination, raw bytes.
        QByteArray path;
    };
    // How the frequency's runs copy, and where the Safety Net lies.
    struct Options {
        bool mirror = false;
        bool remote = false;
        // The Safety Net folder when it is on (the runs leave it out of a
        // source that holds it); empty when it is off.
        QString safetyNetFolder;
    };

    // The tool's arguments for the item's dry run (source and destination last).
    static QStringList arguments(const OVBackupItem &item, const Options &options);
    // The item's frequency's options from the saved settings.
    static Options savedOptions(const OVBackupItem &item);

    // Takes the tool's output as it comes; returns the records it completes.
    QVector<Record> feed(const QByteArray &output);
    // The tool's own lines ("psync: full walk (...)"), as they came.
    QStringList messages() const
    {
        return m_messages;
    }
    // Output that is no record: a part left at the end, or a record of
    // another form (a newer tool's, say).
    int unreadable() const
    {
        return m_unreadable + (m_pending.isEmpty() ? 0 : 1);
    }
    qint64 count(Kind kind) const
    {
        return m_counts[kind];
    }
    qint64 bytes(Kind kind) const
    {
        return m_bytes[kind];
    }

private:
    QByteArray m_pending;
    QStringList m_messages;
    int m_unreadable = 0;
    std::array<qint64, KindCount> m_counts{};
    std::array<qint64, KindCount> m_bytes{};
};
