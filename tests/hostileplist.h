// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Hostile property lists and a memory bound to read them under, for the
// tests of every reader (the items archive, the settings domain, the update
// check).
#pragma once

#include <QByteArray>
#include <QFile>

#include <sys/resource.h>

namespace OVHostile
{
// "Billion laughs" as a binary list: levels arrays, each holding the next
// one twice, the last an ASCII string of leafBytes; 2^levels - 1 arrays and
// 2^(levels - 1) strings once expanded, in a few bytes per level.
inline QByteArray laughs(int levels, int leafBytes = 0)
{
    QByteArray data("bplist00");
    QByteArray offsets;
    for (int i = 0; i <= levels; ++i) {
        offsets.append(char(data.size() >> 8)).append(char(data.size() & 0xff));
        if (i < levels) {
            data.append(char(0xa2)).append(char(i + 1)).append(char(i + 1));
        } else {
            // The string's length as an integer object of four bytes.
            data.append(char(0x5f)).append(char(0x12));
            for (int b = 3; b >= 0; --b) {
                data.append(char((leafBytes >> (8 * b)) & 0xff));
            }
            data.append(QByteArray(leafBytes, 'a'));
        }
    }
    const int table = data.size();
    QByteArray trailer(32, '\0');
    trailer[6] = 2; // offsets of two bytes
    trailer[7] = 1; // references of one byte
    trailer[15] = char(levels + 1);
    for (int b = 0; b < 4; ++b) {
        trailer[31 - b] = char((table >> (8 * b)) & 0xff);
    }
    return data + offsets + trailer;
}

// Lowers the soft address-space limit to what the process has mapped now
// plus headroom, for as long as it lives (as "prlimit --as" would for the
// whole run): a reader that expands a list beyond its bounds fails here
// instead of taking the machine's memory.
class AddressLimit
{
public:
    explicit AddressLimit(rlim_t headroom)
    {
        getrlimit(RLIMIT_AS, &m_saved);
        rlimit lowered = m_saved;
        lowered.rlim_cur = mapped() + headroom;
        if (m_saved.rlim_max != RLIM_INFINITY && lowered.rlim_cur > m_saved.rlim_max) {
            lowered.rlim_cur = m_saved.rlim_max;
        }
        setrlimit(RLIMIT_AS, &lowered);
    }
    ~AddressLimit()
    {
        setrlimit(RLIMIT_AS, &m_saved);
    }
    AddressLimit(const AddressLimit &) = delete;
    AddressLimit &operator=(const AddressLimit &) = delete;

    // The bytes of address space the process has mapped (VmSize).
    static rlim_t mapped()
    {
        QFile status(QStringLiteral("/proc/self/status"));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : status.readAll().split('\n')) {
                if (line.startsWith("VmSize:")) {
                    return static_cast<rlim_t>(line.mid(7).trimmed().split(' ').value(0).toULongLong()) * 1024;
                }
            }
        }
        return 0;
    }

private:
    rlimit m_saved;
};
}
