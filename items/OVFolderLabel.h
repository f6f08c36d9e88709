// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QString>

// The label an item shows for a chosen folder: the start-up disk's name for
// "/", "Disk: Folder" for a folder inside a disk under /Volumes, /media/USER
// or /run/media/USER, and the folder's own name otherwise.
namespace OVFolderLabel
{
QString labelForPath(const QString &path);
// Which component of an absolute path names its disk ("/Volumes/DISK",
// "/media/USER/DISK", "/run/media/USER/DISK"), or -1 when it lies on none.
int diskComponent(const QString &path);
// The name of the disk the system started from: its label, else the host's name.
QString startupDiskName();
}
