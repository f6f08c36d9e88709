// Runs the manual backup script the pane wrote to /tmp as root. The script
// runs from a private root-owned copy, so the /tmp file cannot change under
// it, with a fixed environment and without a shell.
#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <cerrno>
#include <sys/stat.h>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace ovhelper;

int main(int argc, char **argv)
{
    const Caller caller = start(argc, argv, "manual_backup");

    std::string script;
    if (!readCallerFile(caller, OVFixedPaths::TmpManualScript, 4 << 20, script)) {
        fail("nothing to run: /tmp/orvane_manual.rb does not exist");
    }
    if (!looksLikeScript(script)) {
        fail("refused: /tmp/orvane_manual.rb does not start with #!");
    }

    // Root owns the folder and only root may enter it.
    umask(077);
    char folderPath[] = "/tmp/orvane-manual.XXXXXX";
    if (!mkdtemp(folderPath)) {
        fail("cannot make a private folder", errno);
    }
    const int folder = openDirectory(folderPath);
    const std::string name = "orvane_manual.rb";
    replaceFileAt(folder, name.c_str(), script, 0700);
    const std::string scriptPath = std::string(folderPath) + "/" + name;

    const pid_t child = fork();
    if (child < 0) {
        fail("cannot start the backup", errno);
    }
    if (child == 0) {
        // A backup outlives the pane and the session that started it.
        setsid();
        const int nul = open("/dev/null", O_RDONLY);
        if (nul < 0 || dup2(nul, 0) < 0) {
            _exit(127);
        }
        close(nul);
        if (setgroups(0, nullptr) != 0 || setgid(0) != 0 || setuid(0) != 0) {
            _exit(127);
        }
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
        _exit(127);
    }

    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            fail("lost the backup process", errno);
        }
    }
    removeFileAt(folder, name.c_str());
    close(folder);
    rmdir(folderPath);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
        fail("cannot run /usr/bin/ruby");
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
