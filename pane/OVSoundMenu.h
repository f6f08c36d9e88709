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
}
