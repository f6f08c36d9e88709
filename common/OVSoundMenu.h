// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QIcon>
#include <QStringList>

class QComboBox;

// Fills the alert-sound pop-up with every ".aiff" file found (deep, in the
// file system's order) in the given folders, titled by its path relative
// to its folder without the extension. A separator goes before each folder
// after the first that holds anything at all; a title seen again replaces
// the earlier entry, so titles stay unique.
namespace OVSoundMenu
{
QStringList soundFolders(const QString &home);
void fill(QComboBox *popUp, const QStringList &folders, const QIcon &icon);
// The file of a sound by its menu title: the user's folder first, then the
// machine's, then the system's. Empty when there is none.
QString soundFile(const QString &title, const QString &home);
// Plays it through the desktop's sound server, without waiting.
void playNamedSound(const QString &title, const QString &home);
}
