// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "changes.h"

#include "fsops.h"
#include "walk.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace psync
{

namespace
{

std::string withSlash(const std::string &path)
{
    return path.empty() || path.back() == '/' ? path : path + "/";
}

// Everything that decides what a copy takes: a change of it means a file
// that did not change may now have to be copied or left.
std::vector<std::string> settingsOf(const Options &o)
{
    std::vector<std::string> s{"psync 1",
                               std::string("flags ") + (o.checksum ? "c" : "") + (o.mirror ? "d" : "") + (o.force ? "f" : "") + (o.remote ? "r" : "")
                                   + (o.holdDeletions ? "h" : "")};
    auto add = [&s](const char *kind, const std::vector<std::string> &values) {
        for (const std::string &v : values)
            s.push_back(std::string(kind) + " " + v);
    };
    add("exclude", o.excludes);
    add("exclude-path", o.excludePaths);
    add("drop", o.drops);
    add("drop-path", o.dropPaths);
    add("backup-dir", {o.backupDir});
    return s;
}

bool leftOut(const std::string &path, bool folder, const std::vector<Rule> &rules, const std::set<std::string> &cacheFolders)
{
    // The path and each folder above it, as a walk meets them.
    for (size_t slash = path.find('/');; slash = path.find('/', slash + 1)) {
        const bool whole = slash == std::string::npos;
        const std::string part = whole ? path : path.substr(0, slash);
        const bool isFolder = whole ? folder : true;
        if (cacheFolders.count(part) && isFolder)
            return true;
        for (const Rule &r : rules) {
            if (!r.drop && matches(r, part, isFolder))
                return true;
        }
        if (whole)
            return false;
    }
}

// What the entry is now in the source, or else at the target (what a
// deletion would remove): a folder or not; false when neither has it.
bool typeOf(int source, int target, const std::string &path, bool &folder)
{
    for (int top : {source, target}) {
        struct stat st {
        };
        if (top < 0)
            continue;
        const int fd = openBeneath(top, path, O_PATH | O_NOFOLLOW);
        if (fd >= 0) {
            const bool ok = ::fstat(fd, &st) == 0;
            ::close(fd);
            if (ok) {
                folder = S_ISDIR(st.st_mode);
                return true;
            }
        }
    }
    return false;
}

// Whether a folder moved in holds a cache folder the copy must leave out
// (only a walk finds those).
bool holdsCache(int folder, const std::string &path, const std::vector<Rule> &rules)
{
    if (isCacheTag(folder, "CACHEDIR.TAG"))
        return true;
    for (const std::string &name : listFolder(folder)) {
        const std::string child = path + "/" + name;
        Fd sub(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (sub && !leftOut(child, true, rules, {}) && holdsCache(sub.get(), child, rules))
            return true;
    }
    return false;
}

bool isTag(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return (slash == std::string::npos ? path : path.substr(slash + 1)) == "CACHEDIR.TAG";
}

}

ChangeDecision decideChanges(const Options &o,
                             const std::vector<std::string> &sources,
                             const std::string &targetPath,
                             int target,
                             const std::vector<Rule> &rules,
                             const PairState &state)
{
    ChangeDecision d;
    if (o.dryRun || o.preview) {
        d.reason = "a preview looks at everything";
        return d;
    }
    if (sources.size() != 1) {
        d.reason = "several folders go into this destination";
        return d;
    }
    if (o.remote) {
        // The share's owners and modes are written from a whole walk.
        d.reason = "the destination is a remote volume";
        return d;
    }
    if (::geteuid() != 0) {
        d.reason = "no journal running";
        return d;
    }
    d.cut = ovjournal::takeCut(sources[0], targetPath, settingsOf(o));
    d.reason = d.cut.fullWalk;
    if (!d.reason.empty())
        return d;
    if (!state.found || !state.filesKnown) {
        // What the last walk left out is not known here.
        d.reason = "psync has no notes of the last run to this destination";
        return d;
    }
    Fd source(::open(sources[0].c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    if (!source) {
        d.reason = "the source cannot be opened";
        return d;
    }
    std::set<std::string> parents;
    for (int list = 0; list < 2; ++list) {
        for (const std::string &path : list == 0 ? d.cut.entries : d.cut.foldersAlone) {
            // A folder tagged or untagged as a cache, or a known cache that
            // went: what the copy leaves out changed.
            if (isTag(path) || state.cacheFolders.count(path)) {
                d.reason = "a folder was marked as a cache or unmarked";
                return d;
            }
            bool folder = list == 1;
            if (path != "." && (!typeOf(source.get(), target, path, folder) || leftOut(path, folder, rules, state.cacheFolders))) {
                // Not copied (left out, or come and gone), but its coming or
                // going changed the times of the folder holding it.
                const size_t slash = path.rfind('/');
                parents.insert(slash == std::string::npos ? std::string(".") : path.substr(0, slash));
                continue;
            }
            if (list == 0 && folder) {
                Fd moved(openBeneath(source.get(), path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
                if (moved && holdsCache(moved.get(), path, rules)) {
                    d.reason = "a folder was marked as a cache or unmarked";
                    return d;
                }
            }
            (list == 0 ? d.entries : d.foldersAlone).push_back(path);
        }
    }
    for (const std::string &folder : parents) {
        bool isFolder = true;
        if (std::find(d.foldersAlone.begin(), d.foldersAlone.end(), folder) != d.foldersAlone.end()
            || (folder != "." && (!typeOf(source.get(), -1, folder, isFolder) || !isFolder || leftOut(folder, true, rules, state.cacheFolders))))
            continue;
        // The top's times go last, as the journal's own list has them.
        d.foldersAlone.insert(folder == "." ? d.foldersAlone.end() : d.foldersAlone.begin(), folder);
    }
    d.fullWalk = false;
    return d;
}

void commitChanges(const ChangeDecision &decision, const std::vector<std::string> &sources, const std::string &targetPath)
{
    if (decision.cut.number == 0 || sources.size() != 1)
        return;
    const std::string why = ovjournal::commitCut(sources[0], targetPath, decision.cut);
    if (!why.empty())
        std::fprintf(stderr, "psync: the journal did not take note of this run (%s); the next run walks fully\n", why.c_str());
}

std::vector<std::string> mountsInside(const std::string &source, const std::vector<Rule> &rules, const std::set<std::string> &cacheFolders)
{
    std::vector<std::string> mounts;
    char *real = ::realpath(source.c_str(), nullptr);
    std::FILE *f = std::fopen("/proc/self/mountinfo", "re");
    if (!real || !f) {
        std::free(real);
        if (f)
            std::fclose(f);
        return mounts;
    }
    const std::string top = withSlash(real);
    std::free(real);
    struct stat st {
    };
    const bool known = ::stat(source.c_str(), &st) == 0;
    char *line = nullptr;
    size_t size = 0;
    std::vector<std::string> points;
    while (known && ::getline(&line, &size, f) > 0) {
        unsigned major = 0, minor = 0;
        char point[4096];
        if (std::sscanf(line, "%*u %*u %u:%u %*s %4095s", &major, &minor, point) != 3 || makedev(major, minor) == st.st_dev)
            continue;
        std::string path;
        for (const char *p = point; *p; ++p) {
            if (p[0] == '\\' && p[1] >= '0' && p[1] <= '3' && p[2] && p[3]) {
                path += static_cast<char>((p[1] - '0') * 64 + (p[2] - '0') * 8 + (p[3] - '0'));
                p += 3;
            } else {
                path += *p;
            }
        }
        if (path.compare(0, top.size(), top) == 0 && path.size() > top.size())
            points.push_back(path.substr(top.size()));
    }
    std::free(line);
    std::fclose(f);
    std::sort(points.begin(), points.end());
    for (const std::string &p : points) {
        // A walk stops at the first other disk: none below it is met.
        const bool below = std::any_of(points.begin(), points.end(), [&p](const std::string &q) {
            return p.size() > q.size() && p.compare(0, q.size() + 1, q + "/") == 0;
        });
        std::string shown = source;
        while (shown.size() > 1 && shown.back() == '/')
            shown.pop_back();
        if (!below && !leftOut(p, true, rules, cacheFolders))
            mounts.push_back(shown + "/" + p);
    }
    return mounts;
}

std::string describe(const ChangeDecision &decision)
{
    if (decision.fullWalk)
        return "psync: full walk (" + decision.reason + ")";
    return "psync: journal (" + std::to_string(decision.entries.size() + decision.foldersAlone.size()) + " entries)";
}

}
