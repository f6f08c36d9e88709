// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The plugin's entry point; the module itself lives in the static library
// that the tests link too.
#include "OVOrvanePref.h"

#include <KPluginFactory>

K_PLUGIN_CLASS_WITH_JSON(OVOrvanePref, "kcm_orvane.json")

#include "kcm_orvane.moc"
