// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QString>
#include <QVariantMap>
#include <optional>

// The pane's persistent settings domain: one flat, typed dictionary
// (booleans, integers, strings) in the user's config folder, named by the
// bundle identifier. It is only ever replaced whole, never half-written.
class OVSettingsDomain
{
public:
    // "<config folder>/<bundle identifier>.plist".
    static QString path();
    // Nothing when the domain does not exist or cannot be read.
    static std::optional<QVariantMap> read();
    static bool replace(const QVariantMap &domain);
    static void remove();
};
