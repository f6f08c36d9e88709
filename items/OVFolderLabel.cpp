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

QString labelForPath(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    if (clean == QLatin1String("/")) {
        return startupDiskName();
    }
    // "/Volumes/Disk/Folder" is "/", "Volumes", "Disk", "Folder".
    const QStringList components = clean.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (clean.startsWith(QLatin1Char('/')) && components.size() + 1 > 3 && components.first() == QLatin1String("Volumes")) {
        return QStringLiteral("%1: %2").arg(components.at(1), components.last());
    }
    return QFileInfo(clean).fileName();
}
}
