// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QColor>
#include <QPalette>

// The pale tint of the table's stripes and the schedule bars: the
// palette's highlight colour, mixed 80 % toward white.
inline QColor ovStripeTint(const QPalette &palette)
{
    const QColor highlight = palette.color(QPalette::Active, QPalette::Highlight);
    constexpr double level = 0.8;
    return QColor::fromRgbF(highlight.redF() + (1.0 - highlight.redF()) * level,
                            highlight.greenF() + (1.0 - highlight.greenF()) * level,
                            highlight.blueF() + (1.0 - highlight.blueF()) * level);
}
