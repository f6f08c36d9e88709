#pragma once

#include <QString>

// The label an item shows for a chosen folder: the start-up disk's name for
// "/", "Volume: Folder" for a folder deep in a volume under /Volumes, and the
// folder's own name otherwise.
namespace OVFolderLabel
{
QString labelForPath(const QString &path);
// The name of the disk the system started from: its label, else the host's name.
QString startupDiskName();
}
