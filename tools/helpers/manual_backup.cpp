// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// Starts the manual backup script the pane hands over on standard input, as
// root. Only Orvane's own template with its settings filled in is run, from
// a private root-owned copy, with a fixed environment and without a shell.
// The helper returns once the backup has started; the backup goes on in a
// session of its own, and what it does goes to its log.
#include "ovhelper.h"
#include "ovscript.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ovhelper;

static void toDevNull()
{
    const int nul = open("/dev/null", O_RDWR);
    if (nul < 0 || dup2(nul, 0) < 0 || dup2(nul, 1) < 0 || dup2(nul, 2) < 0) {
        _exit(127);
    }
    if (nul > 2) {
        close(nul);
    }
}

int main(int argc, char **argv)
{
    start(argc, argv, "manual_backup");

    const std::string script = readInput(4 << 20);
    const std::string why = ovscript::whyNotFilledTemplate(ovscript::installedTemplate(), script);
    if (!why.empty()) {
        fail(("refused: the manual script: " + why).c_str());
    }

    // Root owns the folder and only root may enter it.
    umask(077);
    char folderPath[] = "/tmp/orvane-manual.XXXXXX";
    if (!mkdtemp(folderPath)) {
        fail("cannot make a private folder", errno);
    }
    const int folder = openRootFolder(folderPath, false);
    const std::string name = "orvane_manual.rb";
    replaceFileAt(folder, name.c_str(), script, 0700);
    const std::string scriptPath = std::string(folderPath) + "/" + name;

    // The grandchild tells through this pipe whether ruby could be started:
    // it closes on exec, or carries the errno.
    int started[2];
    if (pipe2(started, O_CLOEXEC) != 0) {
        fail("cannot start the backup", errno);
    }
    const pid_t keeper = fork();
    if (keeper < 0) {
        fail("cannot start the backup", errno);
    }
    if (keeper == 0) {
        // A backup outlives the pane and the session that started it.
        setsid();
        toDevNull();
        if (setgroups(0, nullptr) != 0 || setgid(0) != 0 || setuid(0) != 0) {
            _exit(127);
        }
        const pid_t backup = fork();
        if (backup == 0) {
            close(started[0]);
            char *const arguments[] = {const_cast<char *>("ruby"), const_cast<char *>(scriptPath.c_str()), nullptr};
            char *const environment[] = {
                const_cast<char *>("PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"),
                const_cast<char *>("HOME=/root"),
                const_cast<char *>("USER=root"),
                const_cast<char *>("LOGNAME=root"),
                const_cast<char *>("SHELL=/bin/sh"),
                const_cast<char *>("LANG=C.UTF-8"),
                nullptr,
            };
            execve("/usr/bin/ruby", arguments, environment);
            const int error = errno;
            (void)!write(started[1], &error, sizeof error);
            _exit(127);
        }
        close(started[0]);
        close(started[1]);
        int status = 0;
        while (backup > 0 && waitpid(backup, &status, 0) < 0 && errno == EINTR) { }
        removeFileAt(folder, name.c_str());
        close(folder);
        rmdir(folderPath);
        done("the manual backup ended with status %d", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
        _exit(0);
    }
    close(started[1]);
    int error = 0;
    ssize_t n;
    while ((n = read(started[0], &error, sizeof error)) < 0 && errno == EINTR) { }
    if (n > 0) {
        fail("cannot run /usr/bin/ruby", error);
    }
    done("started the manual backup (process %d)", static_cast<int>(keeper));
    return 0;
}
