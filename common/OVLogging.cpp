// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVLogging.h"

Q_LOGGING_CATEGORY(OVLOG, "org.orvane.pane", QtInfoMsg)
