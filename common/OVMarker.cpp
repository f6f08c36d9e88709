// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVMarker.h"

#include <QList>
#include <algorithm>
#include <cctype>

namespace OVMarker
{
std::optional<QDate> parse(const QByteArray &text)
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
}
