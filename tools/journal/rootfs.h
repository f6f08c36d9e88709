// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Root's file work, by descriptor: the journal's own folders and files, and
// looking into users' folders without following anything they planted.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace ovjournal::rootfs
{
// Opens a folder of root's, refusing a link in any component and any
// component that someone but root could change. With create, missing
// components are made (root's, 0755; the last one mode lastMode). -1 and
// errno when it cannot.
int openRootFolder(const std::string &path, bool create, mode_t lastMode = 0700);

// Reads a regular file of root's that no one else may write, inside dir.
// False (errno set) when it cannot.
bool readFileAt(int dir, const char *name, std::size_t maxSize, std::string &contents);

// Replaces dir/name in one step (root's, 0600): a new file beside it,
// synced, renamed over it, the folder synced. False (errno set) on failure.
bool replaceFileAt(int dir, const char *name, const std::string &contents);

// openat2 below dir: no link, no "..", no other file system.
int openBeneath(int dir, const std::string &path, int flags);
}
