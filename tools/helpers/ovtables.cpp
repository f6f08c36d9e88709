// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "ovtables.h"

#include <vector>

#include "ovfixedpaths.h"

namespace ovtables
{
namespace
{
std::vector<std::string_view> splitFields(std::string_view line)
{
    std::vector<std::string_view> fields;
    size_t begin = 0;
    for (;;) {
        const size_t tab = line.find('\t', begin);
        if (tab == std::string_view::npos) {
            fields.push_back(line.substr(begin));
            return fields;
        }
        fields.push_back(line.substr(begin, tab - begin));
        begin = tab + 1;
    }
}

// A decimal number without padding, within [low, high].
bool isNumber(std::string_view field, int low, int high)
{
    if (field.empty() || field.size() > 2 || (field.size() > 1 && field[0] == '0')) {
        return false;
    }
    int value = 0;
    for (const char c : field) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    return value >= low && value <= high;
}

std::string quoted(std::string_view path)
{
    return "\"" + std::string(path) + "\"";
}

bool isOwnCronLine(std::string_view line)
{
    const auto f = splitFields(line);
    if (f.size() != 7 || !isNumber(f[0], 0, 59) || !isNumber(f[1], 0, 23) || f[3] != "*" || f[5] != "root") {
        return false;
    }
    using OVFixedPaths::CronDay;
    for (const OVFixedPaths::FrequencyFiles &schedule : OVFixedPaths::Scheduled) {
        if (f[6] == quoted(schedule.script)) {
            switch (schedule.cronDay) {
            case CronDay::EveryDay:
                return f[2] == "*" && f[4] == "*";
            case CronDay::Weekday:
                return f[2] == "*" && isNumber(f[4], 0, 7);
            case CronDay::MonthDay:
                return isNumber(f[2], 1, 31) && f[4] == "*";
            }
        }
    }
    return false;
}

bool isOwnAnacronLine(std::string_view line)
{
    for (const OVFixedPaths::FrequencyFiles &schedule : OVFixedPaths::Scheduled) {
        if (line == schedule.anacronJob + quoted(schedule.script)) {
            return true;
        }
    }
    return false;
}

struct Lines {
    std::vector<std::string_view> lines;
    bool lastTerminated = true;
};

Lines splitLines(std::string_view text)
{
    Lines result;
    size_t begin = 0;
    while (begin < text.size()) {
        const size_t end = text.find('\n', begin);
        if (end == std::string_view::npos) {
            result.lines.push_back(text.substr(begin));
            result.lastTerminated = false;
            break;
        }
        result.lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return result;
}
}

bool isOwnLine(std::string_view line, Table table)
{
    return table == Table::Cron ? isOwnCronLine(line) : isOwnAnacronLine(line);
}

bool mentionsOwnScript(std::string_view line)
{
    for (const OVFixedPaths::FrequencyFiles &schedule : OVFixedPaths::Scheduled) {
        if (line.find(schedule.script) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

bool onlyOwnLinesDiffer(const std::string &installed, const std::string &proposed, Table table)
{
    const Lines before = splitLines(installed);
    const Lines after = splitLines(proposed);
    const std::string_view unterminatedLast = before.lastTerminated || before.lines.empty() ? std::string_view() : before.lines.back();

    std::vector<std::string_view> kept;
    for (const auto line : after.lines) {
        if (isOwnLine(line, table)) {
            continue;
        }
        if (!unterminatedLast.empty() && line.size() > unterminatedLast.size() && line.substr(0, unterminatedLast.size()) == unterminatedLast
            && isOwnLine(line.substr(unterminatedLast.size()), table)) {
            kept.push_back(unterminatedLast);
            continue;
        }
        kept.push_back(line);
    }

    size_t next = 0;
    for (const auto line : before.lines) {
        if (next < kept.size() && line == kept[next]) {
            ++next;
        } else if (!mentionsOwnScript(line)) {
            return false;
        }
    }
    return next == kept.size();
}

std::optional<std::string> tableToInstall(const std::string &installed, const std::string &proposed, Table table)
{
    if (!onlyOwnLinesDiffer(installed, proposed, table)) {
        return std::nullopt;
    }
    const Lines before = splitLines(installed);
    const std::string_view unterminatedLast = before.lastTerminated || before.lines.empty() ? std::string_view() : before.lines.back();
    std::string result;
    result.reserve(proposed.size() + 8);
    for (const auto line : splitLines(proposed).lines) {
        if (!unterminatedLast.empty() && !isOwnLine(line, table) && line.size() > unterminatedLast.size()
            && line.substr(0, unterminatedLast.size()) == unterminatedLast && isOwnLine(line.substr(unterminatedLast.size()), table)) {
            result.append(unterminatedLast).append("\n");
            result.append(line.substr(unterminatedLast.size())).append("\n");
            continue;
        }
        result.append(line).append("\n");
    }
    return result;
}
}
