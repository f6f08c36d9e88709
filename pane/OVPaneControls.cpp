// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVPaneControls.h"

#include <QWidget>

void OVPaneControls::applySwitch(bool authorized, bool on, int itemCount) const
{
    masterPopUp->setEnabled(authorized);
    for (QWidget *status : statusButtons) {
        status->setEnabled(authorized);
    }
    addFolderButton->setEnabled(on && authorized);
    deleteFolderButton->setEnabled(on && authorized && itemCount > 1);
    optionsButton->setEnabled(authorized);
}

void OVPaneControls::applyItems(bool authorized, bool on, int itemCount, const std::function<bool()> &canBackUp) const
{
    deleteFolderButton->setEnabled(on && authorized && itemCount > 1);
    backupButton->setEnabled(on && authorized && canBackUp());
}
