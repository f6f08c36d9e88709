// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVSafetyNet.h"

#include "OVLocalizedStrings.h"
#include "OVSettings.h"
#include "ovsafetynet_debug.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QUrl>

OVSafetyNet::OVSafetyNet(OVSettings *settings, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
{
}

QString OVSafetyNet::defaultFolder()
{
    return OVSettings::defaultSafetyNetFolder();
}

QString OVSafetyNet::safetyNetFolder() const
{
    return m_settings->safetyNetFolder();
}

void OVSafetyNet::setSafetyNetFolder(const QString &folder)
{
    m_settings->setSafetyNetFolder(folder);
}

QString OVSafetyNet::folderForChoice(const QString &chosen)
{
    const QString folderName = QFileInfo(defaultFolder()).fileName();
    QString path = chosen;
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    if (QFileInfo(path).fileName() == folderName) {
        return path;
    }
    if (!path.endsWith(QLatin1Char('/'))) {
        path += QLatin1Char('/');
    }
    return path + folderName;
}

bool OVSafetyNet::folderExists() const
{
    return QFileInfo(safetyNetFolder()).isDir();
}

void OVSafetyNet::createSafetyNetFolder()
{
    const QString folder = safetyNetFolder();
    if (QFileInfo::exists(folder) || QFileInfo(folder).isSymLink()) {
        return;
    }
    if (!QDir().mkdir(folder)) {
        qCInfo(OVLOG_SAFETYNET) << "cannot make the Safety Net folder" << folder << "(its parent may be missing)";
    }
}

void OVSafetyNet::openSafetyNetFolder()
{
    createSafetyNetFolder();
    QDesktopServices::openUrl(QUrl::fromLocalFile(safetyNetFolder()));
}

bool OVSafetyNet::chooseSafetyNetFolder(QWidget *parent)
{
    QFileDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("safetyNetFolderDialog"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, OVLocalized("Choose"));
    dialog.setDirectory(folderExists() ? safetyNetFolder() : QDir::homePath());
    dialog.setWindowModality(Qt::ApplicationModal);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return false;
    }
    setSafetyNetFolder(folderForChoice(dialog.selectedFiles().constFirst()));
    createSafetyNetFolder();
    return true;
}
