// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Which backup scripts root runs: only the bundle's template with its
// settings filled in. Before the template's code begins, a filled script
// may only assign literal values (strings, lists of strings, numbers,
// true/false) to the template's own settings; everything else is the
// template byte for byte. A string may hold any byte but no unescaped "#",
// so no interpolation, and so no code, can come in through a setting.
#pragma once

#include <string>

namespace ovscript
{
// Empty when script is the template filled in; otherwise why not.
std::string whyNotFilledTemplate(const std::string &templateText, const std::string &script);

// The installed template: the bundle's "backup_script.rb", read from
// root-owned folders only. Exits with a refusal when it cannot be read.
std::string installedTemplate();
}
