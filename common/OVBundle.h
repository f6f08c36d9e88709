// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QString>
#include <QVariant>

// The pane's bundle folder. Resources and the Info.plist values are found
// here by name; no other code spells the bundle's location.
class OVBundle
{
public:
    static QString bundlePath();
    static QString resourcesPath();
    // "<Resources>/<name>.<type>", or "<Resources>/<name>" for an empty type.
    static QString pathForResource(const QString &name, const QString &type);
    static QString toolPath(const QString &tool);

    static QVariantMap infoDictionary();
    // The bundle identifier names the settings domain. Without a readable
    // Info.plist the identifier the pane was built with stands in, so the
    // user's settings are still found.
    static QString identifier();
    static QString shortVersion();
};
