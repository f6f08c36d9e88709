// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVAlert.h"

#include "OVLocalizedStrings.h"

namespace OVAlert
{
QMessageBox *show(QWidget *parent, QMessageBox::Icon icon, const char *titleKey, const char *messageKey, const QString &name)
{
    auto *alert = new QMessageBox(icon, OVLocalized(titleKey), OVLocalized(messageKey), QMessageBox::NoButton, parent);
    alert->setObjectName(name);
    alert->addButton(OVLocalized("OK"), QMessageBox::AcceptRole);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
    return alert;
}
}
