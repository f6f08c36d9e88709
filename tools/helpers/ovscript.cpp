// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "ovscript.h"

#include "ovfixedpaths.h"
#include "ovhelper.h"

#include <cctype>
#include <cstring>
#include <unistd.h>

namespace ovscript
{
namespace
{
const char *const Settings[] = {
    "frequency",
    "backupCommand",
    "sourceFolders",
    "destFolders",
    "exclusions",
    "removedExclusions",
    "logfile",
    "lastBackup",
    "lastRun",
    "disksFile",
    "archiveRecord",
    "runFlag",
    "errorFile",
    "progressFile",
    "resourcesFolder",
    "toastApplicationName",
    "username",
    "remoteBackup",
    "showProgress",
    "repairPermissions",
    "promptBeforeBackup",
    "shouldWaitUntilAway",
    "autoConnect",
    "remoteServerName",
    "remoteAccountName",
    "remoteVolumeName",
    "shouldArchive",
    "maxArchives",
    "safetyNetFolder",
    "archiveContents",
    "runKind",
};

class Reader
{
public:
    Reader(const std::string &text, size_t begin, size_t end)
        : m_text(text)
        , m_at(begin)
        , m_end(end)
    {
    }
    bool atEnd() const
    {
        return m_at >= m_end;
    }
    bool peek(char c) const
    {
        return !atEnd() && m_text[m_at] == c;
    }
    bool take(char c)
    {
        if (!atEnd() && m_text[m_at] == c) {
            ++m_at;
            return true;
        }
        return false;
    }
    bool take(const char *word)
    {
        const size_t n = std::strlen(word);
        if (m_end - m_at >= n && m_text.compare(m_at, n, word) == 0) {
            m_at += n;
            return true;
        }
        return false;
    }
    void spaces()
    {
        while (take(' ')) { }
    }
    std::string identifier()
    {
        const size_t begin = m_at;
        while (!atEnd() && (std::isalnum(static_cast<unsigned char>(m_text[m_at])) || m_text[m_at] == '_')) {
            ++m_at;
        }
        return m_text.substr(begin, m_at - begin);
    }
    bool digits()
    {
        take('-');
        const size_t begin = m_at;
        while (!atEnd() && m_text[m_at] >= '0' && m_text[m_at] <= '9') {
            ++m_at;
        }
        return m_at > begin;
    }
    // "...": any byte, "\" escapes the next one, a bare "#" is refused.
    bool string()
    {
        if (!take('"')) {
            return false;
        }
        while (!atEnd()) {
            const char c = m_text[m_at++];
            if (c == '"') {
                return true;
            }
            if (c == '#') {
                return false;
            }
            if (c == '\\') {
                if (atEnd()) {
                    return false;
                }
                ++m_at;
            }
        }
        return false;
    }
    // [ "A", "B" ], or one level deeper, [ [ "A" ], [ ] ] (a list per
    // pair, as the exclusions are).
    bool list(int depth = 1)
    {
        if (!take('[')) {
            return false;
        }
        spaces();
        if (take(']')) {
            return true;
        }
        for (;;) {
            const bool element = peek('"') ? string() : depth > 0 && list(depth - 1);
            if (!element) {
                return false;
            }
            spaces();
            if (take(']')) {
                return true;
            }
            if (!take(',')) {
                return false;
            }
            spaces();
        }
    }

private:
    const std::string &m_text;
    size_t m_at;
    size_t m_end;
};

bool isSetting(const std::string &name)
{
    for (const char *setting : Settings) {
        if (name == setting) {
            return true;
        }
    }
    return false;
}

// One line of the settings part; false when it is anything but a comment
// left by the template, an empty line or a setting given a literal.
bool settingLine(Reader &r)
{
    if (r.take('\n')) {
        return true;
    }
    if (r.take("#ov_")) {
        const std::string rest = r.identifier();
        return !rest.empty() && r.take('\n');
    }
    const std::string name = r.identifier();
    if (!isSetting(name) || !r.take(" = ")) {
        return false;
    }
    const bool value = r.take("true") || r.take("false") || r.string() || r.list() || r.take(name.c_str()) || r.digits();
    return value && r.take('\n');
}
}

std::string whyNotFilledTemplate(const std::string &templateText, const std::string &script)
{
    const size_t settingsBegin = templateText.find("\nfrequency = ");
    const size_t codeBegin = templateText.find("\nclass OrvaneBackup\n");
    if (settingsBegin == std::string::npos || codeBegin == std::string::npos || codeBegin < settingsBegin) {
        return "the installed template is not Orvane's";
    }
    const size_t head = settingsBegin + 1;
    const size_t tail = templateText.size() - codeBegin;
    if (script.size() < head + tail || script.compare(0, head, templateText, 0, head) != 0
        || script.compare(script.size() - tail, tail, templateText, codeBegin, tail) != 0) {
        return "it is not Orvane's backup script";
    }
    Reader r(script, head, script.size() - tail + 1);
    while (!r.atEnd()) {
        if (!settingLine(r)) {
            return "it sets more than Orvane's settings";
        }
    }
    return std::string();
}

std::string installedTemplate()
{
    const int resources = ovhelper::openRootFolder(OVFixedPaths::ResourcesPath, false);
    std::string text;
    if (!ovhelper::readFileAt(resources, "backup_script.rb", 1 << 20, text)) {
        ovhelper::fail("refused: the bundle has no backup_script.rb");
    }
    close(resources);
    return text;
}
}
