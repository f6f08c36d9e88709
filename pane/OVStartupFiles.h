// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QString>

// The file-system work of the pane's start-up. Every failure is ignored:
// later writes into a missing folder fail in their own place.
namespace OVStartupFiles
{
// Copies the bundle's "Magic Bell" sound to ~/Library/Sounds unless one is
// there. The folder itself is not created.
void installAlertSound(const QString &home);
// "/Library/Application Support", then the support folder and its three
// schedule folders, each with mode 0775, each only when missing.
void createSupportFolders();
// The scripts older versions handed over in /tmp, left behind.
void removeLeftoverScripts();
// manual_backup carries its set-user-ID bit (false when it cannot be read).
bool manualBackupIsSetUserId();
}
