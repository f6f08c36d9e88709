// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVSafetyNet.h"

#include "OVLocalizedStrings.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QUrl>

namespace
{
const QString FolderName = QStringLiteral("Safety Net Archives");
}

OVSafetyNet::OVSafetyNet(QObject *parent)
    : QObject(parent)
    , m_folder(defaultFolder())
{
}

QString OVSafetyNet::defaultFolder()
{
    return QDir::homePath() + QStringLiteral("/Documents/") + FolderName;
}

QString OVSafetyNet::folderForChoice(const QString &chosen)
{
    QString path = chosen;
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    if (QFileInfo(path).fileName() == FolderName) {
        return path;
    }
    if (!path.endsWith(QLatin1Char('/'))) {
        path += QLatin1Char('/');
    }
    return path + FolderName;
}

bool OVSafetyNet::folderExists() const
{
    return !m_folder.isEmpty() && QFileInfo(m_folder).isDir();
}

void OVSafetyNet::createSafetyNetFolder()
{
    if (m_folder.isEmpty() || QFileInfo::exists(m_folder) || QFileInfo(m_folder).isSymLink()) {
        return;
    }
    QDir().mkdir(m_folder);
}

void OVSafetyNet::openSafetyNetFolder()
{
    createSafetyNetFolder();
    QDesktopServices::openUrl(QUrl::fromLocalFile(m_folder));
}

bool OVSafetyNet::chooseSafetyNetFolder(QWidget *parent)
{
    QFileDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("safetyNetFolderDialog"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, OVLocalized("Choose"));
    dialog.setDirectory(folderExists() ? m_folder : QDir::homePath());
    dialog.setWindowModality(Qt::ApplicationModal);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return false;
    }
    m_folder = folderForChoice(dialog.selectedFiles().constFirst());
    createSafetyNetFolder();
    return true;
}
