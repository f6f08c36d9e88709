// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVFolderLabel.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>
#include <QSysInfo>

namespace OVFolderLabel
{
QString startupDiskName()
{
    const QString label = QStorageInfo::root().name();
    return label.isEmpty() ? QSysInfo::machineHostName() : label;
}

int diskComponent(const QString &path)
{
    if (!path.startsWith(QLatin1Char('/'))) {
        return -1;
    }
    const QStringList components = QDir::cleanPath(path).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    // Where disks are mounted: /Volumes/DISK (as on the Mac), and the
    // desktop's /media/USER/DISK and /run/media/USER/DISK.
    auto startsWith = [&components](std::initializer_list<const char *> prefix) {
        int i = 0;
        for (const char *name : prefix) {
            if (i >= components.size() || components.at(i) != QLatin1String(name)) {
                return false;
            }
            ++i;
        }
        return true;
    };
    int disk = -1;
    if (startsWith({"Volumes"})) {
        disk = 1;
    } else if (startsWith({"media"})) {
        disk = 2;
    } else if (startsWith({"run", "media"})) {
        disk = 3;
    }
    return disk >= 0 && disk < components.size() ? disk : -1;
}

QString labelForPath(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    if (clean == QLatin1String("/")) {
        return startupDiskName();
    }
    const int disk = diskComponent(clean);
    if (disk >= 0) {
        const QStringList components = clean.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        // Only a folder inside the disk: the disk itself keeps its own name.
        if (components.size() > disk + 1) {
            return QStringLiteral("%1: %2").arg(components.at(disk), components.last());
        }
    }
    return QFileInfo(clean).fileName();
}
}
