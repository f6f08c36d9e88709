// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QString>
#include <QStringList>

// The disc-burning application Toast Titanium, found by its creator code
// "CDr3" among the application bundles.
class OVToast
{
public:
    struct Detection {
        bool installed = false;
        // The bundle's path as its file URL reads with "%20" turned into
        // spaces and "file://localhost" taken off; other escapes stay.
        QString fullPath;
        // Its file name without the extension, e.g. "Toast Titanium".
        QString applicationName;
    };

    // "/Applications" and "~/Applications".
    static QStringList applicationFolders();
    // The first bundle (".app" with a Contents/Info.plist) in the folders, or
    // one level below them, whose "CFBundleSignature" is "CDr3"; installed
    // when it is named exactly "Toast Titanium" at a version above 5.
    static Detection detect(const QStringList &folders);
};
