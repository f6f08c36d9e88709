// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

// Writes the pane's hand-over files in /tmp. The path is removed and made
// anew exclusively, mode 0600, so a link planted there is never followed.
class OVTemporaryFile
{
public:
    static bool write(const QString &path, const QByteArray &contents);
    static void remove(const QString &path);
};
