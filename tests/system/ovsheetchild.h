// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "ui_optionssheet.h"
#include <QTest>

// A control of the options sheet by its object name, typed as the .ui declares it; a renamed control fails instead of crashing.
template<typename T>
T sheetChild(QObject *sheet, const char *name)
{
    T child = sheet->findChild<T>(QLatin1String(name));
    if (!child) {
        qFatal("the options sheet has no control \"%s\"", name);
    }
    return child;
}
#define UI(sheet, name) sheetChild<decltype(Ui::OVOptionsSheet::name)>(sheet, #name)
