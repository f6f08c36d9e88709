// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// What the journal's client and daemon say to each other over the daemon's
// socket: one datagram each way, fields ended by NUL (paths are bytes but
// never hold one). A cut's entries travel in a memory file passed with the
// answer, so a long list never blocks the daemon on a slow reader.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace ovjournal::wire
{
constexpr std::size_t MaxMessage = 256 * 1024;

// Requests: "cut" SOURCE DESTINATION IDENTITY SETTINGS, "commit" SOURCE
// DESTINATION NUMBER, "status", "stop".
// Answers: "journal" NUMBER COUNT (+ the entries' file), "full" NUMBER
// REASON, "ok", "refused" REASON, "status" TEXT.
constexpr char Cut[] = "cut";
constexpr char Commit[] = "commit";
constexpr char Status[] = "status";
constexpr char Stop[] = "stop";
constexpr char Journal[] = "journal";
constexpr char Full[] = "full";
constexpr char Ok[] = "ok";
constexpr char Refused[] = "refused";
// The entries' file: "E PATH" or "A PATH", each ended by NUL (see Cut).
constexpr char EntryMark = 'E';
constexpr char FolderAloneMark = 'A';

std::string pack(std::initializer_list<std::string> fields);
// False unless text is fields each ended by NUL.
bool unpack(const std::string &text, std::vector<std::string> &fields);

// The settings as one field: each "LENGTH:BYTES", so no list of settings
// reads the same as another.
std::string joinSettings(const std::vector<std::string> &settings);

// A source or destination path as the journal keys it: without trailing
// slashes ("/" stays "/").
std::string key(std::string path);

bool number(const std::string &text, unsigned long long &value);
}
