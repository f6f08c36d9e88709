// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// psync: copies the contents of each source onto the existing target with
// rsync, and does root's own file work around it (the work folder, the
// Safety Net, held deletions, the remote volume's side store) by
// descriptor. See docs/engine.md.

#include "changes.h"
#include "firstcopy.h"
#include "fsops.h"
#include "options.h"
#include "patterns.h"
#include "rsync.h"
#include "safetynet.h"
#include "state.h"
#include "walk.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace psync;

namespace
{

enum Status { Done = 0, Warnings = 1, Failed = 2, Held = 3, Full = 4 };

const char WorkName[] = ".psync-work";
const char SideStore[] = ".psync-attributes";

int fail(const std::string &why)
{
    std::fflush(stdout);
    std::fprintf(stderr, "psync: %s\n", why.c_str());
    return Failed;
}

void say(const std::string &line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string fdPath(int fd, const char *below = nullptr)
{
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (below)
        path += std::string("/") + below;
    return path;
}

std::string withSlash(std::string path)
{
    if (path.empty() || path.back() != '/')
        path += '/';
    return path;
}

std::string absolute(const std::string &path)
{
    char *real = ::realpath(path.c_str(), nullptr);
    std::string out = real ? real : path;
    std::free(real);
    return out;
}

// Whether a run of psync's own left this folder at the target's top: a
// folder named like its work folder, private to root where the volume
// holds owners, and no source's own entry of that name.
bool isOurLeftover(int target, const std::string &name, const std::set<std::string> &sourceTops)
{
    if (name.compare(0, sizeof WorkName - 1, WorkName) != 0 || sourceTops.count(name))
        return false;
    struct stat st {
    };
    if (::fstatat(target, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode))
        return false;
    return !holdsOwners(target) || (st.st_uid == 0 && (st.st_mode & 077) == 0);
}

struct Run {
    Options o;
    std::vector<std::string> sources;
    std::string target;
    Fd targetFd;
    dev_t targetDevice = 0;
    std::vector<Rule> rules;
    WalkResult walk;
    PairState state;
    Fd work, tmp;
    std::string workName;
    SafetyNet net;
    bool haveNet = false;
    bool topReached = false; // the net's owner could reach the target
    bool warnings = false;
    std::map<std::string, Attributes> oldOwners; // the side store before this run
    std::string filterText;

    std::vector<std::string> baseArguments(bool metadataEverywhere) const
    {
        std::vector<std::string> a{"--archive", "--one-file-system", "--numeric-ids"};
        if (o.remote) {
            // A share: no links, devices, owners or modes; times to two seconds.
            a.insert(a.end(), {"--no-links", "--no-devices", "--no-specials", "--no-owner", "--no-group", "--no-perms", "--modify-window=2"});
        } else {
            // Times to the nanosecond: rsync's default compares whole seconds.
            a.insert(a.end(), {"--hard-links", "--sparse", "--modify-window=-1"});
            if (metadataEverywhere)
                a.insert(a.end(), {"--acls", "--xattrs"});
        }
        if (o.checksum)
            a.push_back("--checksum");
        if (o.force)
            a.push_back("--force");
        if (o.dryRun)
            a.push_back("--dry-run");
        if (o.quiet)
            a.push_back("--quiet");
        if (o.verbose)
            a.push_back("--out-format=%i %n");
        if (o.progress)
            a.push_back("--info=progress2");
        // Below the target, as rsync walks it from there refusing links: a
        // descriptor's path here would cost rsync a walk from "/" per file.
        if (tmp)
            a.push_back("--temp-dir=" + workName + "/tmp");
        if (!o.backupDir.empty())
            a.insert(a.end(), {"--backup", "--backup-dir=" + o.backupDir});
        else if (work && keepsAside())
            a.insert(a.end(), {"--backup", "--backup-dir=" + fdPath(work.get(), "kept")});
        return a;
    }

    // Whether what the copy replaces or deletes is kept aside in the work
    // folder (for the Safety Net, or deletions that may be held).
    bool keepsAside() const
    {
        return o.backupDir.empty() && (haveNet || (o.mirror && o.holdDeletions));
    }

    // The rules in rsync's filter syntax, first match wins.
    void buildFilter(bool dropsWithoutMirror)
    {
        std::string &f = filterText;
        auto rule = [&f](const std::string &text) {
            f += text;
            f += '\0';
        };
        if (!workName.empty())
            rule("P /" + workName + "/");
        rule(std::string("P /") + SideStore);
        for (const Rule &r : rules) {
            if (!r.drop)
                rule("- " + rsyncPattern(r));
        }
        for (const std::string &folder : walk.cacheFolders)
            rule("- " + rsyncPattern(pathRule(folder, false)) + "/");
        for (const std::string &clash : walk.caseClashes)
            rule("- " + rsyncPattern(pathRule(clash, false)));
        for (const Rule &r : rules) {
            if (r.drop)
                rule("H " + rsyncPattern(r));
        }
        if (dropsWithoutMirror) {
            // Only what is dropped goes, with all below it; the rest stays.
            for (const Rule &r : rules) {
                if (!r.drop)
                    continue;
                const std::string p = rsyncPattern(r);
                rule("R " + p);
                rule("R " + p + (p.back() == '/' ? "***" : "/***"));
            }
            rule("P *");
        }
    }
};

// What a killed run left: its temporary files go, its kept files go back
// where their place is free, and the rest to the Safety Net or away.
int recoverLeftover(Run &run, const std::string &name, bool &handedOver)
{
    Fd left = openFolder(run.targetFd.get(), name);
    if (!left)
        return Done;
    std::string why;
    Fd kept(::openat(left.get(), "kept", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (kept) {
        const unsigned long back = putBack(kept.get(), run.targetFd.get(), why);
        if (back)
            say("psync: put back " + std::to_string(back) + " files an interrupted run had held");
        if (run.haveNet) {
            std::string used;
            const std::string targetPath = absolute(run.target).substr(1);
            if (!unlinkKept(kept.get(), why))
                return fail("the earlier versions an interrupted run kept at " + run.target + " could not be copied apart (" + why
                            + "); they stay there for the next run");
            sortKept(kept.get(), run.targetFd.get(), run.net, run.topReached);
            if (!handOver(run.net, left.get(), targetPath, run.o.remote ? &run.oldOwners : nullptr, run.topReached, used, why))
                return fail("the earlier versions an interrupted run kept at " + run.target + " could not be moved into the Safety Net (" + why
                            + "); they stay there for the next run");
            handedOver = true;
        }
    }
    if (!removeTree(run.targetFd.get(), name, run.targetDevice, why))
        return fail("the work folder an interrupted run left at " + run.target + " could not be cleared (" + why + ")");
    return Done;
}

std::map<std::string, Attributes> readSideStore(int target)
{
    std::map<std::string, Attributes> owners;
    std::string data;
    if (!readFile(target, SideStore, data))
        return owners;
    for (size_t at = 0; at < data.size();) {
        size_t end = data.find('\0', at);
        if (end == std::string::npos)
            end = data.size();
        const std::string record = data.substr(at, end - at);
        at = end + 1;
        unsigned mode = 0, uid = 0, gid = 0;
        int used = 0;
        if (std::sscanf(record.c_str(), "%o %u %u %n", &mode, &uid, &gid, &used) == 3 && used > 0)
            owners[record.substr(static_cast<size_t>(used))] = Attributes{static_cast<mode_t>(mode), uid, gid};
    }
    return owners;
}

// A name as rsync prints it (unusual bytes as \#ooo), as bytes again,
// without a folder's trailing "/".
std::string unescaped(const std::string &raw)
{
    std::string path;
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '\\' && i + 4 < raw.size() && raw[i + 1] == '#') {
            path += static_cast<char>(std::strtol(raw.substr(i + 2, 3).c_str(), nullptr, 8));
            i += 4;
        } else {
            path += raw[i];
        }
    }
    if (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// The preview's records, from rsync's itemized lines on OUTPUT.
int preview(Run &run, const std::vector<std::string> &arguments, const std::vector<int> &inherit)
{
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0)
        return fail("the preview could not start");
    // rsync writes "%i %l %n" lines; unusual bytes come as \#ooo.
    std::vector<std::string> args = arguments;
    args.push_back("--out-format=%i %l %n");
    RsyncCommand command{args, inherit};
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(out[1], 1);
        const auto results = runRsync({command});
        ::_exit(results[0].status < 0 ? 127 : results[0].status);
    }
    ::close(out[1]);
    FILE *lines = ::fdopen(out[0], "r");
    char *line = nullptr;
    size_t capacity = 0;
    ssize_t length;
    while ((length = ::getline(&line, &capacity, lines)) > 0) {
        std::string text(line, static_cast<size_t>(length));
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        // "%i" is eleven characters wide ("*deleting" padded).
        if (text.size() < 14)
            continue;
        std::string item = text.substr(0, 11);
        item.erase(item.find_last_not_of(' ') + 1);
        const bool itemized = item == "*deleting" || (item.size() == 11 && std::strchr("<>ch.", item[0]) && std::strchr("fdLDS", item[1]));
        if (!itemized)
            continue;
        const size_t sizeEnd = text.find(' ', 12);
        if (sizeEnd == std::string::npos)
            continue;
        std::string size = text.substr(12, sizeEnd - 12);
        const std::string raw = text.substr(sizeEnd + 1);
        const std::string path = unescaped(raw);
        if (path == "." || path == "./")
            continue;
        std::string kind;
        if (item == "*deleting") {
            kind = "delete";
            struct stat st {
            };
            const int at = openBeneath(run.targetFd.get(), path, O_PATH | O_NOFOLLOW);
            size = (at >= 0 && ::fstat(at, &st) == 0 && !S_ISDIR(st.st_mode)) ? std::to_string(st.st_size) : "0";
            if (at >= 0)
                ::close(at);
        } else if (item.size() >= 3 && (item[0] == '>' || item[0] == 'c')) {
            kind = item.find('+') != std::string::npos ? "copy" : "replace";
        } else if (item.size() >= 2 && item[0] == 'h') {
            kind = "copy";
        } else {
            continue;
        }
        std::string record = kind + " " + (size.empty() ? "0" : size) + " " + path;
        std::fwrite(record.data(), 1, record.size() + 1, stdout);
    }
    std::free(line);
    std::fclose(lines);
    std::fflush(stdout);
    int status = 0;
    ::waitpid(child, &status, 0);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 2;
    if (code == 0)
        return run.warnings ? Warnings : Done;
    if (code == 23 || code == 24) {
        std::fprintf(stderr, "psync: some files could not be read, so the preview is not complete\n");
        return Warnings;
    }
    return fail("the preview failed: " + rsyncFailure(code));
}

int copyRun(Run &run)
{
    Options &o = run.o;
    // Sources and target.
    for (size_t i = 0; i + 1 < o.operands.size(); ++i) {
        struct stat st {
        };
        if (::stat(o.operands[i].c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
            return fail("the source " + o.operands[i] + " is not a folder");
        run.sources.push_back(o.operands[i]);
    }
    run.target = o.operands.back();
    run.targetFd = Fd(::open(run.target.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat targetStat {
    };
    if (!run.targetFd || ::fstat(run.targetFd.get(), &targetStat) != 0)
        return fail("the target " + run.target + " does not exist or is not a folder" + (errno == ELOOP ? " (it is a symbolic link)" : ""));
    run.targetDevice = targetStat.st_dev;

    if (!o.safetyNet.empty() && !o.dryRun) {
        std::string why;
        if (!openSafetyNet(o.safetyNet, o.safetyNetOwner, run.net, why))
            return fail(why);
        run.net.archive = o.archive;
        run.net.keep = o.keep;
        run.haveNet = true;
    }

    // What is left out.
    for (const std::string &p : o.excludes)
        for (const Rule &r : patternRules(p, false))
            run.rules.push_back(r);
    for (const std::string &p : o.excludePaths)
        run.rules.push_back(pathRule(p, false));
    for (const std::string &p : o.drops)
        for (const Rule &r : patternRules(p, true))
            run.rules.push_back(r);
    for (const std::string &p : o.dropPaths)
        run.rules.push_back(pathRule(p, true));
    if (!o.backupDir.empty())
        run.rules.push_back(pathRule(o.backupDir, false));
    // A target inside a source is never copied into itself.
    const std::string realTarget = absolute(run.target);
    run.topReached = run.haveNet && mayReach(run.net, realTarget, run.targetFd.get());
    for (const std::string &source : run.sources) {
        const std::string top = withSlash(absolute(source));
        if (realTarget.compare(0, top.size(), top) == 0 && realTarget.size() > top.size())
            run.rules.push_back(pathRule(realTarget.substr(top.size()), false));
    }

    StateStore store(run.sources, realTarget);
    run.state = store.load();
    const ChangeDecision decision = decideChanges(o, run.sources, realTarget, run.targetFd.get(), run.rules, run.state);
    // A preview's stdout holds its records alone.
    if (o.preview)
        std::fprintf(stderr, "%s\n", describe(decision).c_str());
    else
        say(describe(decision));

    // The target's top: empty (a first copy), or with an earlier run's work.
    std::set<std::string> sourceTops;
    for (const std::string &source : run.sources) {
        Fd s(::open(source.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (s)
            for (const std::string &n : listFolder(s.get()))
                sourceTops.insert(n);
    }
    std::vector<std::string> leftovers;
    bool empty = true;
    for (const std::string &name : listFolder(run.targetFd.get())) {
        if (isOurLeftover(run.targetFd.get(), name, sourceTops))
            leftovers.push_back(name);
        else if (name != SideStore)
            empty = false;
    }

    // A first copy into an empty target on a local disk: psync's own copy,
    // which walks as it copies. Not with rsync's per-file lines or its
    // content check.
    const bool ownFirstCopy =
        empty && !o.dryRun && !o.remote && !o.checksum && !o.verbose && run.sources.size() == 1 && decision.fullWalk && isLocalDisk(run.targetFd.get());
    const bool metadataBeside = !o.remote && !o.dryRun && decision.fullWalk;
    auto walkAll = [&] {
        WalkOptions walkOptions;
        walkOptions.rules = &run.rules;
        // A remote volume says what it cannot keep before the copy; elsewhere
        // the metadata is read beside the copy (MetadataWalk).
        walkOptions.metadata = !metadataBeside;
        walkOptions.remote = o.remote;
        walkOptions.statAll = o.remote || empty;
        if (o.remote && run.sources.size() == 1) {
            walkOptions.racyFrom = run.state.racyFrom;
            walkOptions.racyUntil = run.state.racyUntil;
        }
        if (decision.fullWalk) {
            for (const std::string &source : run.sources)
                walkSource(source, walkOptions, run.walk);
        } else {
            // No walk: what the last one found left out stays left out (a cache
            // tagged or untagged since makes a full walk), and other disks inside
            // are named as a walk would name them.
            run.walk.cacheFolders.assign(run.state.cacheFolders.begin(), run.state.cacheFolders.end());
            run.walk.mounts = mountsInside(run.sources[0], run.rules, run.state.cacheFolders);
        }
    };
    // What the walk found that the log and the user must hear of.
    auto reportWalk = [&] {
        for (const std::string &mount : run.walk.mounts) {
            say("psync: not copied: " + mount + " is another disk mounted inside the source");
            run.warnings = true;
        }
        for (const std::string &line : run.walk.warnings) {
            std::fprintf(stderr, "%s\n", line.c_str());
            run.warnings = true;
        }
        // Named one by one for the log; the "not kept" line below counts them.
        for (const std::string &line : run.walk.skipped)
            std::fprintf(stderr, "%s\n", line.c_str());
        if (o.remote) {
            std::vector<std::string> lost;
            auto count = [&lost](unsigned long n, const char *one, const char *many) {
                if (n)
                    lost.push_back(std::to_string(n) + " " + (n == 1 ? one : many));
            };
            count(run.walk.links, "symbolic link", "symbolic links");
            count(run.walk.specials, "device or special file", "devices or special files");
            count(run.walk.multiLinked, "hard-linked file (copied as a file of its own)", "hard-linked files (copied as files of their own)");
            count(run.walk.sparse, "sparse file (copied whole)", "sparse files (copied whole)");
            count(run.walk.attributed, "entry's extended attributes or ACLs", "entries' extended attributes or ACLs");
            if (!lost.empty()) {
                std::string line = "psync: not kept: ";
                for (size_t i = 0; i < lost.size(); ++i)
                    line += (i ? ", " : "") + lost[i];
                say(line + "; the volume cannot hold them");
                run.warnings = true;
            }
            run.oldOwners = readSideStore(run.targetFd.get());
        }
    };
    if (!ownFirstCopy) {
        walkAll();
        reportWalk();
    }

    // The work folder: rsync's temporary files and the kept versions, in a
    // folder only root can enter, handed to rsync by descriptor.
    bool handedOverLeftover = false;
    if (!o.dryRun) {
        for (const std::string &name : leftovers) {
            const int status = recoverLeftover(run, name, handedOverLeftover);
            if (status != Done)
                return status;
        }
        // A name no source has at its top and nothing at the target takes.
        std::string why;
        for (int n = 1; n < 100 && !run.work; ++n) {
            run.workName = n == 1 ? std::string(WorkName) : std::string(WorkName) + "-" + std::to_string(n);
            if (sourceTops.count(run.workName))
                continue;
            bool taken = false;
            run.work = makeFolder(run.targetFd.get(), run.workName, why, &taken);
            if (!run.work && !taken)
                break;
        }
        if (run.work)
            run.tmp = makeFolder(run.work.get(), "tmp", why);
        if (!run.tmp)
            return fail("the work folder " + run.target + "/" + run.workName + " could not be made (" + why + ")");
    }

    // psync's own first copy goes into a folder of the work folder, and each
    // top-level entry into place once all of it is there. Should writing
    // there fail, rsync copies instead.
    FirstCopy own = FirstCopy::Failed;
    if (ownFirstCopy) {
        std::string why;
        Fd into = makeFolder(run.work.get(), "first", why);
        if (!into)
            return fail("the work folder could not be written (" + why + ")");
        own = copyFirst(run.sources[0], into.get(), run.targetFd.get(), run.rules, o.progress, run.walk, why);
        if (own != FirstCopy::Done && own != FirstCopy::Warnings) {
            std::string ignored;
            into = Fd();
            removeTree(run.work.get(), "first", run.targetDevice, ignored);
        }
        if (own == FirstCopy::Failed) {
            std::fprintf(stderr, "psync: the first copy could not be written (%s); rsync copies instead\n", why.c_str());
            run.walk = WalkResult();
            walkAll();
        }
        reportWalk();
    }
    const bool ownCopied = own != FirstCopy::Failed;

    const bool metadataEverywhere = !o.remote && !empty && !run.state.metadataKnown;
    const bool dropsWithoutMirror = !o.mirror && std::any_of(run.rules.begin(), run.rules.end(), [](const Rule &r) {
        return r.drop;
    });
    run.buildFilter(dropsWithoutMirror);

    // The filter rules and lists go to rsync in files of the work folder, or
    // (a preview, as any user) through a private temporary file.
    std::string filterPath;
    Fd scratch;
    char scratchName[] = "/tmp/psync-preview.XXXXXX";
    if (run.work) {
        std::string why;
        if (!replaceFile(run.work.get(), "filter", run.filterText, 0600, why))
            return fail("the work folder could not be written (" + why + ")");
        filterPath = fdPath(run.work.get(), "filter");
    } else {
        if (!::mkdtemp(scratchName))
            return fail("no private temporary folder could be made for the preview");
        scratch = Fd(::open(scratchName, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        std::string why;
        replaceFile(scratch.get(), "filter", run.filterText, 0600, why);
        filterPath = std::string(scratchName) + "/filter";
    }
    struct ScratchGone {
        const char *path;
        bool made;
        ~ScratchGone()
        {
            if (made) {
                const std::string f = std::string(path) + "/filter";
                ::unlink(f.c_str());
                ::rmdir(path);
            }
        }
    } scratchGone{scratchName, !run.work};

    // A journal run's lists are short: their metadata goes in the same pass.
    std::vector<std::string> arguments = run.baseArguments(metadataEverywhere || !decision.fullWalk);
    arguments.insert(arguments.end(), {"--from0", "--filter=merge " + filterPath});
    if (o.mirror || dropsWithoutMirror)
        arguments.push_back("--delete");
    // rsync's own list of what it changed: for the hold's count and the metadata pass.
    const bool wantLog = static_cast<bool>(run.work);
    if (wantLog)
        arguments.insert(arguments.end(), {"--log-file=" + fdPath(run.work.get(), "log"), "--log-file-format=%i %n"});
    std::vector<int> inherit;
    if (run.work)
        inherit = {run.work.get(), run.tmp.get()};
    const std::string targetArgument = withSlash(fdPath(run.targetFd.get()));
    inherit.push_back(run.targetFd.get());

    if (o.preview) {
        for (const std::string &source : run.sources)
            arguments.push_back(withSlash(source));
        arguments.push_back(targetArgument);
        return preview(run, arguments, inherit);
    }

    std::vector<RsyncCommand> commands;
    if (ownCopied) {
        // Copied above.
    } else if (!decision.fullWalk && run.work) {
        // Only what the journal saw change: the entries with all below them,
        // then the folders whose own metadata changed (the top's times last).
        // What is gone goes at the target only in a mirror.
        if (run.keepsAside() && !o.checksum) {
            // A folder goes whole where no rule or cache could leave out
            // anything below it.
            auto whole = [&run](const std::string &path) {
                const std::string below = path + "/";
                return std::all_of(run.rules.begin(),
                                   run.rules.end(),
                                   [&below](const Rule &r) {
                                       return r.anchored && r.literal && r.pattern.compare(0, below.size(), below) != 0;
                                   })
                    && std::none_of(run.walk.cacheFolders.begin(), run.walk.cacheFolders.end(), [&below](const std::string &c) {
                           return c.compare(0, below.size(), below) == 0;
                       });
            };
            std::string why;
            Fd kept = makeFolder(run.work.get(), "kept", why);
            Fd source(::open(run.sources[0].c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
            if (kept && source)
                setAside(source.get(), run.targetFd.get(), kept.get(), decision.entries, o.mirror, whole);
        }
        // New files and folders psync copies itself (rsync makes each file
        // through its temporary folder, at many times the cost); what is gone
        // from both sides needs nothing. Their folders' times go with the
        // folders' own list.
        std::vector<std::string> entries, folders = decision.foldersAlone;
        Fd source(o.checksum ? -1 : ::open(run.sources[0].c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
        struct stat sourceStat {
        };
        if (source && ::fstat(source.get(), &sourceStat) != 0)
            source = Fd();
        auto absent = [](int top, const std::string &path) {
            Fd at(openBeneath(top, path, O_PATH | O_NOFOLLOW));
            return !at && (errno == ENOENT || errno == ENOTDIR);
        };
        for (const std::string &path : decision.entries) {
            if (!source
                || !(copyEntry(source.get(), sourceStat.st_dev, run.targetFd.get(), run.tmp.get(), path, run.rules, run.walk)
                     || (absent(source.get(), path) && absent(run.targetFd.get(), path)))) {
                entries.push_back(path);
                continue;
            }
            const size_t slash = path.rfind('/');
            const std::string parent = slash == std::string::npos ? std::string(".") : path.substr(0, slash);
            if (std::find(folders.begin(), folders.end(), parent) == folders.end())
                folders.insert(parent == "." || folders.empty() || folders.back() != "." ? folders.end() : folders.end() - 1, parent);
        }
        const char *gone = o.mirror ? "--delete-missing-args" : "--ignore-missing-args";
        const std::vector<std::string> *lists[] = {&entries, &folders};
        for (int n = 0; n < 2; ++n) {
            if (lists[n]->empty())
                continue;
            std::string text, why;
            for (const std::string &path : *lists[n])
                text += path + '\0';
            const std::string listName = "entries" + std::to_string(n);
            if (!replaceFile(run.work.get(), listName, text, 0600, why))
                return fail("the work folder could not be written (" + why + ")");
            RsyncCommand c{arguments, inherit};
            c.arguments.insert(c.arguments.end(),
                               {n == 0 ? "--recursive" : "--dirs",
                                gone,
                                "--files-from=" + fdPath(run.work.get(), listName.c_str()),
                                withSlash(run.sources[0]),
                                targetArgument});
            commands.push_back(c);
        }
    } else {
        RsyncCommand c{arguments, inherit};
        for (const std::string &source : run.sources)
            c.arguments.push_back(withSlash(source));
        c.arguments.push_back(targetArgument);
        commands.push_back(c);
    }
    // A volume that keeps whole seconds: the files the last copy may have
    // read in the second they were rewritten are compared by contents.
    if (!run.walk.racy.empty() && run.work && !o.dryRun) {
        std::string text, why;
        for (const std::string &path : run.walk.racy)
            text += path + '\0';
        if (!replaceFile(run.work.get(), "racy", text, 0600, why))
            return fail("the work folder could not be written (" + why + ")");
        RsyncCommand c{{}, inherit};
        for (const std::string &a : arguments) {
            if (a != "--delete")
                c.arguments.push_back(a);
        }
        c.arguments.insert(
            c.arguments.end(),
            {"--checksum", "--ignore-missing-args", "--files-from=" + fdPath(run.work.get(), "racy"), withSlash(run.sources[0]), targetArgument});
        commands.push_back(c);
    }
    const time_t copyStart = std::time(nullptr);
    std::optional<MetadataWalk> metadataWalk;
    if (metadataBeside && !ownCopied)
        metadataWalk.emplace(run.sources, &run.rules);
    // Entry lists run one after the other.
    std::vector<RsyncResult> results;
    for (const RsyncCommand &c : commands)
        results.push_back(runRsync({c})[0]);
    if (metadataWalk)
        metadataWalk->finish(run.walk);
    int rsyncStatus = own == FirstCopy::Warnings ? 23 : 0;
    bool full = own == FirstCopy::Full;
    for (const RsyncResult &r : results) {
        full = full || r.full;
        if (r.status != 0 && (rsyncStatus == 0 || rsyncStatus == 23 || rsyncStatus == 24))
            rsyncStatus = r.status;
    }
    // Extended attributes and ACLs: a second rsync over just the entries
    // that have them now or had them at the last run.
    const bool copied = (rsyncStatus == 0 || rsyncStatus == 23 || rsyncStatus == 24) && !full;
    bool metadataDone = (metadataEverywhere || ownCopied) && copied;
    if (copied && !o.remote && !o.dryRun && !metadataEverywhere && !ownCopied && decision.fullWalk) {
        // Entries whose metadata or contents changed since the last run (their
        // change time moved), that lost their metadata, or that rsync wrote
        // anew this run (a new file has none).
        std::set<std::string> list;
        for (const auto &[path, changed] : run.walk.withMetadata) {
            const auto before = run.state.withMetadata.find(path);
            if (before == run.state.withMetadata.end() || before->second != changed)
                list.insert(path);
        }
        for (const auto &entry : run.state.withMetadata) {
            if (!run.walk.withMetadata.count(entry.first))
                list.insert(entry.first);
        }
        std::string log;
        if (!run.walk.withMetadata.empty() && readFile(run.work.get(), "log", log)) {
            for (size_t at = 0; at < log.size();) {
                size_t end = log.find('\n', at);
                if (end == std::string::npos)
                    end = log.size();
                // "DATE TIME [PID] %i %n", unusual bytes as \#ooo.
                const size_t item = log.find("] ", at);
                if (item != std::string::npos && item + 14 <= end) {
                    const std::string path = unescaped(log.substr(item + 14, end - item - 14));
                    if (run.walk.withMetadata.count(path))
                        list.insert(path);
                }
                at = end + 1;
            }
        }
        if (!list.empty()) {
            std::string text;
            for (const std::string &p : list)
                text += p + '\0';
            std::string why;
            if (!replaceFile(run.work.get(), "metadata", text, 0600, why))
                return fail("the work folder could not be written (" + why + ")");
            // --files-from takes one source: one pass each, in the main pass's order.
            metadataDone = true;
            for (const std::string &source : run.sources) {
                RsyncCommand c{run.baseArguments(true), inherit};
                c.arguments.insert(c.arguments.end(),
                                   {"--from0",
                                    "--filter=merge " + filterPath,
                                    "--ignore-missing-args",
                                    "--files-from=" + fdPath(run.work.get(), "metadata"),
                                    withSlash(source),
                                    targetArgument});
                const RsyncResult r = runRsync({c})[0];
                full = full || r.full;
                if (r.status != 0 && r.status != 23 && r.status != 24) {
                    metadataDone = false;
                    rsyncStatus = r.status;
                }
            }
        } else {
            metadataDone = true;
        }
    }

    if (full || ((!copied) && [&] {
            struct statvfs fs {
            };
            return ::fstatvfs(run.targetFd.get(), &fs) == 0 && fs.f_bavail * fs.f_frsize < 1024 * 1024;
        }())) {
        // What rsync kept aside goes back where the new version did not land.
        if (run.work) {
            Fd kept(::openat(run.work.get(), "kept", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            std::string why;
            if (kept)
                putBack(kept.get(), run.targetFd.get(), why);
        }
        std::fflush(stdout);
        std::fprintf(stderr, "psync: the destination became full; files not yet copied keep their earlier version\n");
        return Full;
    }

    int result = copied ? (rsyncStatus == 0 && !run.warnings ? Done : Warnings) : Failed;
    // Said last, after what else the run has to say: the script shows the
    // last line as the reason.
    std::string failure;
    if (!copied && !stillConnected(run.targetFd.get()))
        failure = "the destination " + run.target + " is no longer connected; files not yet copied keep their earlier version";
    else if (!copied)
        failure = rsyncFailure(rsyncStatus) + "; files not yet copied keep their earlier version";
    auto failAfter = [&failure](const std::string &why) {
        if (failure.empty())
            return fail(why);
        fail(why);
        return fail(failure);
    };

    Fd kept = run.work ? Fd(::openat(run.work.get(), "kept", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) : Fd();
    // Too many deletions: held until the user says "delete".
    if (kept && o.mirror && o.holdDeletions && copied) {
        const KeptCount count = countKept(kept.get(), run.targetFd.get());
        unsigned long created = 0;
        std::string log;
        if (readFile(run.work.get(), "log", log)) {
            for (size_t at = log.find("+++++++"); at != std::string::npos; at = log.find("+++++++", at + 9))
                if (at >= 2 && log[at - 1] != 'd' && log.compare(at - 2, 2, "cd") != 0)
                    ++created;
        }
        // Without a walk, the count the last full walk left.
        const unsigned long before = decision.fullWalk ? run.walk.files + count.deleted - std::min(run.walk.files, created) : run.state.files;
        const unsigned long limit = std::min(1000UL, before / 4);
        if (count.deleted > limit) {
            say("psync: hold " + std::to_string(count.deleted));
            std::string answer;
            if (!std::getline(std::cin, answer) || answer != "delete") {
                std::string why;
                putBack(kept.get(), run.targetFd.get(), why);
                if (!why.empty())
                    std::fprintf(stderr,
                                 "psync: some held files could not be put back (%s); they stay in %s/%s\n",
                                 why.c_str(),
                                 run.target.c_str(),
                                 run.workName.c_str());
                result = Held;
            }
        }
    }

    // The kept versions: into the Safety Net, or away.
    if (kept && run.haveNet) {
        std::string used, why;
        if (!unlinkKept(kept.get(), why))
            return failAfter("the earlier versions from " + run.target + " could not be copied apart from the backup (" + why
                             + "); they stay at the destination and go to the Safety Net at the next run");
        const unsigned long files = sortKept(kept.get(), run.targetFd.get(), run.net, run.topReached);
        if (files && !handOver(run.net, run.work.get(), realTarget.substr(1), o.remote ? &run.oldOwners : nullptr, run.topReached, used, why))
            return failAfter("the earlier versions from " + run.target + " could not be moved into the Safety Net folder " + run.net.path + " (" + why
                             + "); they stay at the destination and go there at the next run");
        if (files)
            say("psync: kept " + std::to_string(files) + " files in " + used);
    }

    // The side store of a remote volume: owners and modes it cannot hold.
    if (o.remote && copied) {
        std::string data;
        for (const auto &[path, a] : run.walk.attributes) {
            char head[64];
            std::snprintf(head, sizeof head, "%o %u %u ", static_cast<unsigned>(a.mode & 07777), a.uid, a.gid);
            data += head + path + '\0';
        }
        std::string why;
        if (!replaceFile(run.targetFd.get(), SideStore, data, 0600, why, true))
            return fail("the owners and permissions could not be written to " + run.target + "/" + SideStore + " (" + why + ")");
    }

    if (copied && decision.fullWalk) {
        run.state.cacheFolders = std::set<std::string>(run.walk.cacheFolders.begin(), run.walk.cacheFolders.end());
        run.state.withMetadata = run.walk.withMetadata;
        run.state.metadataKnown = metadataDone || o.remote;
        run.state.files = run.walk.files;
    }
    if (copied && o.remote) {
        run.state.racyFrom = copyStart - 1;
        run.state.racyUntil = std::time(nullptr);
    }
    if (copied) {
        std::string why;
        if (!store.save(run.state, why))
            std::fprintf(stderr, "psync: what this run learnt could not be kept (%s); the next run walks everything\n", why.c_str());
    }
    if (run.work) {
        std::string why;
        run.work = Fd();
        run.tmp = Fd();
        kept = Fd();
        // The target's own times stay the ones rsync gave it, or, when this
        // run did not copy the top (a journal run that did not list it), the
        // ones it had before the work folder was made there.
        struct stat top = targetStat;
        const bool topCopied = decision.fullWalk || std::find(decision.foldersAlone.begin(), decision.foldersAlone.end(), ".") != decision.foldersAlone.end();
        const bool timed = !topCopied || ::fstat(run.targetFd.get(), &top) == 0;
        if (!removeTree(run.targetFd.get(), run.workName, run.targetDevice, why) && result != Held)
            return failAfter("the work folder " + run.target + "/" + run.workName + " could not be removed (" + why + ")");
        const timespec times[2] = {top.st_atim, top.st_mtim};
        if (timed)
            ::futimens(run.targetFd.get(), times);
    }
    (void)handedOverLeftover;
    // The journal forgets what this run brought over only when all of it
    // arrived: what a failed or held copy missed comes again in the next cut.
    if ((rsyncStatus == 0 || rsyncStatus == 24) && (result == Done || result == Warnings))
        commitChanges(decision, run.sources, realTarget);
    if (!failure.empty())
        return fail(failure);
    return result;
}

}

// Marks the installed program as Orvane's (the install replaces only its own).
extern const char PsyncMark[];
const char PsyncMark[] = "orvane-psync";

int main(int argc, char **argv)
{
    (void)PsyncMark;
    ::umask(077);
    Run run;
    std::string why;
    if (!parseOptions(argc, argv, run.o, why)) {
        std::fputs(Usage, stderr);
        return fail(why);
    }
    if (run.o.prune) {
        if (!openSafetyNet(run.o.safetyNet, run.o.safetyNetOwner, run.net, why))
            return fail(why);
        return pruneArchives(run.net, run.o.operands) ? Done : Failed;
    }
#ifndef PSYNC_ACCEPT_ANY_RSYNC
    if (!rsyncIsRecentEnough(why))
        return fail(why);
#endif
    return copyRun(run);
}
