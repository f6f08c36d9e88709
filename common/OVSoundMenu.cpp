// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVSoundMenu.h"

#include "ovfixedpaths.h"

#include <QComboBox>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>

namespace OVSoundMenu
{
QStringList soundFolders(const QString &home)
{
    return {QString::fromUtf8(OVFixedPaths::SystemSounds),
            QString::fromUtf8(OVFixedPaths::LibrarySounds),
            home + QLatin1Char('/') + QString::fromUtf8(OVFixedPaths::UserSounds)};
}

void fill(QComboBox *popUp, const QStringList &folders, const QIcon &icon)
{
    popUp->clear();
    for (int i = 0; i < folders.size(); ++i) {
        const QDir folder(folders.at(i));
        QDirIterator it(folder.path(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        bool first = true;
        while (it.hasNext()) {
            const QString path = it.next();
            if (first && i > 0) {
                popUp->insertSeparator(popUp->count());
            }
            first = false;
            const QFileInfo info = it.fileInfo();
            if (info.suffix() != QLatin1String("aiff") || info.completeBaseName().isEmpty()) {
                continue;
            }
            const QString relative = folder.relativeFilePath(path);
            const QString title = relative.left(relative.size() - int(qstrlen(".aiff")));
            const int existing = popUp->findText(title, Qt::MatchExactly);
            if (existing >= 0) {
                popUp->removeItem(existing);
            }
            popUp->addItem(icon, title);
        }
    }
}

QString soundFile(const QString &title, const QString &home)
{
    if (title.isEmpty() || title.contains(QLatin1String(".."))) {
        return QString();
    }
    QStringList folders = soundFolders(home);
    std::reverse(folders.begin(), folders.end());
    for (const QString &folder : qAsConst(folders)) {
        const QString file = folder + QLatin1Char('/') + title + QStringLiteral(".aiff");
        if (QFileInfo(file).isFile()) {
            return file;
        }
    }
    return QString();
}

void playNamedSound(const QString &title, const QString &home)
{
    const QString file = soundFile(title, home);
    if (!file.isEmpty()) {
        QProcess::startDetached(QStringLiteral("paplay"), {file});
    }
}
}
