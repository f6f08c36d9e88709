// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// Hostile property lists, and a memory bound to read them under.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QVector>

#include <sys/resource.h>

namespace OVHostile
{
inline void appendBigEndian(QByteArray &data, quint64 value, int bytes)
{
    for (int b = bytes - 1; b >= 0; --b) {
        data.append(char((value >> (8 * b)) & 0xff));
    }
}

// A binary list of these encoded objects, the first the top one.
inline QByteArray binaryList(const QVector<QByteArray> &objects, int offsetBytes, int referenceBytes)
{
    QByteArray data("bplist00");
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        appendBigEndian(offsets, data.size(), offsetBytes);
        data += object;
    }
    QByteArray trailer(6, '\0');
    trailer.append(char(offsetBytes)).append(char(referenceBytes));
    appendBigEndian(trailer, objects.size(), 8);
    appendBigEndian(trailer, 0, 8);
    appendBigEndian(trailer, data.size(), 8);
    return data + offsets + trailer;
}

// "Billion laughs": levels arrays, each holding the next one twice, the last a string of leafBytes; 2^levels - 1 arrays and 2^(levels - 1) strings expanded.
inline QByteArray laughs(int levels, int leafBytes = 0)
{
    QVector<QByteArray> objects;
    for (int i = 0; i < levels; ++i) {
        objects.append(QByteArray("\xa2").append(char(i + 1)).append(char(i + 1)));
    }
    QByteArray leaf("\x5f\x12"); // a string, its length an integer of four bytes
    appendBigEndian(leaf, leafBytes, 4);
    objects.append(leaf + QByteArray(leafBytes, 'a'));
    return binaryList(objects, 2, 1);
}

// Caps the address space at what is mapped now plus headroom: a reader expanding a list fails instead of taking the machine.
class AddressLimit
{
public:
    explicit AddressLimit(rlim_t headroom)
    {
        QFile file(QStringLiteral("/proc/self/status"));
        file.open(QIODevice::ReadOnly);
        const QByteArray status = file.readAll();
        const int at = status.indexOf("\nVmSize:") + 8;
        const rlim_t mapped = status.mid(at, status.indexOf(" kB", at) - at).trimmed().toULongLong() * 1024;
        getrlimit(RLIMIT_AS, &m_saved);
        const rlimit lowered{qMin(mapped + headroom, m_saved.rlim_max), m_saved.rlim_max};
        setrlimit(RLIMIT_AS, &lowered);
    }
    ~AddressLimit()
    {
        setrlimit(RLIMIT_AS, &m_saved);
    }

private:
    rlimit m_saved;
};
}
