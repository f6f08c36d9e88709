// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QMessageBox>

// An alert over a window, as a sheet: window-modal, one OK button, texts from
// the strings table, gone when closed. name is its object name (tests find it).
namespace OVAlert
{
QMessageBox *show(QWidget *parent, QMessageBox::Icon icon, const char *titleKey, const char *messageKey, const QString &name);
}
