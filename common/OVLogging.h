// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QLoggingCategory>

// The pane's own messages ("QT_LOGGING_RULES=org.orvane.pane.debug=true").
Q_DECLARE_LOGGING_CATEGORY(OVLOG)
