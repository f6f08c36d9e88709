// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVBackupItem.h"

#include <QByteArray>
#include <QVector>
#include <optional>

// The item list as a keyed archive: the property list the platform's keyed
// archiver writes ("$archiver", "$version", "$top", "$objects"), with the
// list as an NSMutableArray of OVBackupItem objects. Written binary; read
// binary or XML, so an archive made on a Mac loads too.
class OVItemArchive
{
public:
    static QByteArray archive(const QVector<OVBackupItem> &items);
    // Nothing when the data is no archive of an item list.
    static std::optional<QVector<OVBackupItem>> unarchive(const QByteArray &data);

    static std::optional<QVector<OVBackupItem>> load(const QString &path);
};
