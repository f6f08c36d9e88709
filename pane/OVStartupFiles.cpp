// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVStartupFiles.h"

#include "OVBundle.h"
#include "ovfixedpaths.h"
#include "ovpane_debug.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace OVStartupFiles
{
void installAlertSound(const QString &home)
{
    const QString target = home + QLatin1Char('/') + QString::fromUtf8(OVFixedPaths::UserSounds) + QStringLiteral("/Magic Bell.aiff");
    if (QFileInfo::exists(target) || QFileInfo(target).isSymLink()) {
        return;
    }
    const QString bell = OVBundle::pathForResource(QStringLiteral("Magic Bell"), QStringLiteral("aiff"));
    if (QFileInfo(target).dir().exists() && !QFile::copy(bell, target)) {
        qCInfo(OVLOG_PANE) << "cannot copy the alert sound to" << target;
    }
}

static void createFolder(const char *path, bool groupWritable)
{
    struct stat st;
    if (::lstat(path, &st) == 0) {
        return;
    }
    if (::mkdir(path, 0775) != 0) {
        // Not root: the install made them, or a helper makes them again.
        qCDebug(OVLOG_PANE) << "cannot make" << path << strerror(errno);
        return;
    }
    if (groupWritable) {
        // mkdir's mode passes through the umask; the folders must be 0775.
        ::chmod(path, 0775);
    }
}

void createSupportFolders()
{
    createFolder(OVFixedPaths::ApplicationSupportFolder, false);
    createFolder(OVFixedPaths::SupportFolder, true);
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        createFolder(files.folder, true);
    }
}

bool manualBackupIsSetUserId()
{
    struct stat st;
    return ::stat(OVFixedPaths::ManualBackupToolPath, &st) == 0 && (st.st_mode & S_ISUID);
}

void removeLeftoverScripts()
{
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        ::unlink(files.tmpScript);
    }
}
}
