// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <functional>

class QWidget;

// The pane's controls whose enabled state follows the lock and the master
// switch. Everything here needs the lock open; adding, deleting and backing
// up also need backups switched on; deleting needs two items, so the list
// never empties from the table.
struct OVPaneControls {
    QWidget *masterPopUp = nullptr;
    std::array<QWidget *, 3> statusButtons{};
    QWidget *addFolderButton = nullptr;
    QWidget *deleteFolderButton = nullptr;
    QWidget *optionsButton = nullptr;
    QWidget *backupButton = nullptr;

    // The switch's and the lock's pass: all but the backup button.
    void applySwitch(bool authorized, bool on, int itemCount) const;
    // After the items change. canBackUp (valid items, no backup running) is
    // asked only when the rest allows backing up.
    void applyItems(bool authorized, bool on, int itemCount, const std::function<bool()> &canBackUp) const;
};
