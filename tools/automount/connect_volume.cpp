// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// connect_volume --Orvane: Connect in Orvane's options. Only root mounts in
// /Volumes, so the volume the user connects is root's too: for a pane that
// holds the unlock, this has automount mount it as root for the calling user
// (whose keyring holds the password), and leave it mounted.
//
// Standard input, in parts: "server" (smb://...), "account", "volume".
// automount's one line on standard error says why a mount failed.

#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <unistd.h>

int main(int argc, char **argv)
{
    const ovhelper::Caller caller = ovhelper::start(argc, argv, "connect_volume");
    if (caller.uid == 0) {
        ovhelper::fail("refused: Connect mounts the volume for the user of a desktop session, not for root");
    }
    auto parts = ovhelper::readParts({"server", "account", "volume"}, 1024);
    for (const char *name : {"server", "account", "volume"}) {
        if (parts[name].empty() || parts[name].find('\0') != std::string::npos) {
            ovhelper::fail("refused: the input needs a server, an account and a volume");
        }
    }
    const passwd *user = getpwuid(caller.uid);
    if (!user) {
        ovhelper::fail("refused: the caller is no known user");
    }
    const std::string name = user->pw_name;
    // automount works for root alone: become root wholly, real ids too.
    if (setgroups(0, nullptr) != 0 || setresgid(0, 0, 0) != 0 || setresuid(0, 0, 0) != 0) {
        ovhelper::fail("cannot become root", errno);
    }
    ovhelper::done("connecting the volume %s of %s for %s", parts["volume"].c_str(), parts["server"].c_str(), name.c_str());
    const char *const args[] =
        {OVFixedPaths::AutomountPath, "--user", name.c_str(), "--connect", parts["server"].c_str(), parts["account"].c_str(), parts["volume"].c_str(), nullptr};
    const char *const env[] = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C", nullptr};
    execve(args[0], const_cast<char *const *>(args), const_cast<char *const *>(env));
    ovhelper::fail("cannot start automount", errno);
}
