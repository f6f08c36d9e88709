// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

// What assistive technology learns of a table view's cells: Qt's own table
// never reports a cell disabled, so a tick box drawn disabled (its check
// cannot be changed) would read as usable. This one reports it disabled, as
// it reports a cell that is not enabled; otherwise it tells what Qt's does
// (name, check state, selection, focus).
namespace OVAccessibleTable
{
// Serves the table views of this class from now on.
void install(const char *className);
}
