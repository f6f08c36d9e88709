// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "journalwire.h"

#include <cerrno>
#include <cstdlib>

namespace ovjournal::wire
{
std::string pack(std::initializer_list<std::string> fields)
{
    std::string text;
    for (const std::string &field : fields) {
        text += field;
        text += '\0';
    }
    return text;
}

bool unpack(const std::string &text, std::vector<std::string> &fields)
{
    fields.clear();
    if (text.empty() || text.back() != '\0') {
        return false;
    }
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find('\0', begin);
        fields.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return true;
}

std::string joinSettings(const std::vector<std::string> &settings)
{
    std::string joined;
    for (const std::string &setting : settings) {
        joined += std::to_string(setting.size()) + ':' + setting;
    }
    return joined;
}

std::string key(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

bool number(const std::string &text, unsigned long long &value)
{
    if (text.empty() || text.size() > 20 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    errno = 0;
    value = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0;
}
}
