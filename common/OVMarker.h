// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QByteArray>
#include <QDate>
#include <optional>

// The last-backup marker a run writes: "%m/%d/%y", white space around it
// allowed; two-digit years from 69 are 19xx, the others 20xx, as strptime
// reads them. Read by the status and by Restore to date the copy.
namespace OVMarker
{
std::optional<QDate> parse(const QByteArray &text);
}
