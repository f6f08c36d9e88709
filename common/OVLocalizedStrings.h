// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QHash>
#include <QString>

// The bundle's default strings table, "Localizable.strings": lines of the
// form "Key" = "Value"; with C comments. A missing key gives "".
class OVLocalizedStrings
{
public:
    static QString localizedString(const QString &key);

    // Parses a strings table; exposed for tests.
    static QHash<QString, QString> parse(const QString &text);
};

// Shorthand used throughout the pane.
inline QString OVLocalized(const char *key)
{
    return OVLocalizedStrings::localizedString(QString::fromLatin1(key));
}
