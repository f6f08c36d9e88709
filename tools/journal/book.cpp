// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "book.h"

#include "journalwire.h"

#include <limits>

namespace ovjournal
{
namespace
{
constexpr Segment Never = std::numeric_limits<Segment>::max();
constexpr char FirstRun[] = "first run to this destination";
constexpr char OtherFolder[] = "the destination is not the folder the last backup went to (another disk?)";
constexpr char SettingsChanged[] = "the backup's settings changed since its last run";
constexpr char Weekly[] = "a full check once a week";
constexpr char TooMany[] = "more changes than the journal keeps track of";

bool withinWeek(std::int64_t then, std::int64_t now)
{
    return now >= then && now - then < Book::Week;
}
}

void Book::start(Segment last, const std::string &reason, std::int64_t now)
{
    m_now = now;
    m_current = last + 1;
    m_markers.clear();
    m_markers.push_back({m_current, std::string(), reason});
    for (auto &source : m_sources) {
        source.second.records.clear();
        source.second.recordBytes = 0;
        source.second.freshFolders.clear();
        refresh(source.first);
    }
}

void Book::note(const std::string &key, const std::string &path, bool folder)
{
    const auto it = m_sources.find(key);
    if (it == m_sources.end() || !it->second.wanted) {
        return;
    }
    Source &source = it->second;
    if (!source.freshFolders.empty()) {
        for (std::size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
            if (source.freshFolders.count(path.substr(0, slash))) {
                return;
            }
        }
    }
    const auto inserted = source.records.try_emplace(path);
    Record &record = inserted.first->second;
    if (inserted.second) {
        source.recordBytes += path.size();
    }
    record.last = m_current;
    if (folder) {
        record.lastFolder = m_current;
        source.freshFolders.insert(path);
    }
    if (source.records.size() > MaxRecords || source.recordBytes > MaxRecordBytes) {
        lose(key, TooMany);
    }
}

void Book::lose(const std::string &reason)
{
    // An overflow or a run of unreadable events says it once per segment.
    if (m_markers.empty() || m_markers.back().at != m_current || !m_markers.back().source.empty()) {
        m_markers.push_back({m_current, std::string(), reason});
    }
    for (auto &source : m_sources) {
        refresh(source.first);
    }
}

void Book::lose(const std::string &source, const std::string &reason)
{
    m_markers.push_back({m_current, source, reason});
    if (m_sources.count(source)) {
        refresh(source);
    }
}

const Book::Marker *Book::markerIn(const std::string &source, Segment after, Segment upTo) const
{
    for (const Marker &marker : m_markers) {
        if (marker.at > after && marker.at <= upTo && (marker.source.empty() || marker.source == source)) {
            return &marker;
        }
    }
    return nullptr;
}

// The oldest segment whose changes this destination may still be given:
// after what it applied, or after its pending cut once that is committed.
// Never when its next cuts walk fully anyway.
Segment Book::needsAfter(const std::string &source, const Destination &d) const
{
    Segment after = Never;
    if (d.applied > 0 && !d.expired && !markerIn(source, d.applied, m_current)) {
        after = d.applied;
    }
    const bool freshAfterCommit = d.pendingFull ? withinWeek(d.pendingTime, m_now) : !d.expired;
    if (d.pending > 0 && freshAfterCommit && !markerIn(source, d.pending, m_current) && d.pending < after) {
        after = d.pending;
    }
    return after;
}

void Book::refresh(const std::string &key)
{
    Source &source = m_sources[key];
    Segment floor = Never;
    for (auto it = source.destinations.begin(); it != source.destinations.end();) {
        Destination &d = it->second;
        if (m_now - std::max(d.lastFull, d.pendingTime) > Forget) {
            it = source.destinations.erase(it);
            continue;
        }
        if (!withinWeek(d.lastFull, m_now)) {
            d.expired = true;
        }
        floor = std::min(floor, needsAfter(key, d));
        ++it;
    }
    source.wanted = floor != Never;
    if (!source.wanted) {
        source.records.clear();
        source.recordBytes = 0;
        source.freshFolders.clear();
        return;
    }
    for (auto it = source.records.begin(); it != source.records.end();) {
        if (it->second.last <= floor) {
            source.recordBytes -= it->first.size();
            it = source.records.erase(it);
        } else {
            ++it;
        }
    }
}

void Book::forgetOldMarkers()
{
    Segment floor = Never;
    for (const auto &source : m_sources) {
        for (const auto &d : source.second.destinations) {
            if (d.second.applied > 0 && !d.second.expired) {
                floor = std::min(floor, d.second.applied);
            }
            if (d.second.pending > 0) {
                floor = std::min(floor, d.second.pending);
            }
        }
    }
    std::vector<Marker> kept;
    for (Marker &marker : m_markers) {
        if (marker.at > floor) {
            kept.push_back(std::move(marker));
        }
    }
    m_markers.swap(kept);
}

Decision Book::cut(const std::string &key,
                   const std::string &destination,
                   const std::string &identity,
                   const std::string &settings,
                   const std::string &blocked,
                   std::int64_t now)
{
    m_now = now;
    Decision decision;
    decision.number = m_current++;
    for (auto &other : m_sources) {
        other.second.freshFolders.clear();
    }
    Source &source = m_sources[key];
    source.asked = now;
    const bool known = source.destinations.count(destination);
    Destination &d = source.destinations[destination];
    std::string why = blocked;
    if (!why.empty()) {
    } else if (!known || d.applied == 0) {
        why = FirstRun;
    } else if (d.identity != identity) {
        why = OtherFolder;
    } else if (d.settings != settings) {
        why = SettingsChanged;
    } else if (d.expired || !withinWeek(d.lastFull, now)) {
        why = Weekly;
    } else if (const Marker *marker = markerIn(key, d.applied, decision.number)) {
        why = marker->reason;
    }
    decision.fullWalk = why;
    if (why.empty()) {
        for (const auto &record : source.records) {
            if (record.second.last > d.applied) {
                decision.entries.push_back({record.first, record.second.lastFolder > d.applied});
            }
        }
    }
    d.pending = decision.number;
    d.pendingFull = !why.empty();
    d.pendingTime = now;
    d.pendingIdentity = identity;
    d.pendingSettings = settings;
    refresh(key);
    forgetOldMarkers();
    return decision;
}

void Book::turnFull(const std::string &source, const std::string &destination)
{
    const auto s = m_sources.find(source);
    if (s != m_sources.end() && s->second.destinations.count(destination)) {
        s->second.destinations[destination].pendingFull = true;
        refresh(source);
    }
}

std::string Book::commit(const std::string &key, const std::string &destination, Segment number, std::int64_t now)
{
    m_now = now;
    const auto source = m_sources.find(key);
    if (source == m_sources.end() || !source->second.destinations.count(destination) || source->second.destinations[destination].pending != number
        || number == 0) {
        return "the journal handed out a newer cut for this destination since";
    }
    Destination &d = source->second.destinations[destination];
    d.applied = number;
    if (d.pendingFull) {
        d.lastFull = d.pendingTime;
        d.expired = false;
    }
    d.identity = d.pendingIdentity;
    d.settings = d.pendingSettings;
    d.pending = 0;
    d.pendingFull = false;
    d.pendingIdentity.clear();
    d.pendingSettings.clear();
    refresh(key);
    forgetOldMarkers();
    return std::string();
}

bool Book::wants(const std::string &source) const
{
    const auto it = m_sources.find(source);
    return it != m_sources.end() && it->second.wanted;
}

std::map<std::string, std::int64_t> Book::askedSources() const
{
    std::map<std::string, std::int64_t> asked;
    for (const auto &source : m_sources) {
        asked[source.first] = source.second.asked;
    }
    return asked;
}

std::size_t Book::records(const std::string &source) const
{
    const auto it = m_sources.find(source);
    return it == m_sources.end() ? 0 : it->second.records.size();
}

std::string Book::describe(std::int64_t now) const
{
    std::string text = "segment " + std::to_string(m_current) + "\n";
    for (const Marker &marker : m_markers) {
        text += "  walk everything after segment " + std::to_string(marker.at - 1) + " ("
            + (marker.source.empty() ? std::string("every folder") : marker.source) + "): " + marker.reason + "\n";
    }
    for (const auto &source : m_sources) {
        text +=
            source.first + ": " + std::to_string(source.second.records.size()) + " changed paths kept" + (source.second.wanted ? "" : " (none needed)") + "\n";
        for (const auto &d : source.second.destinations) {
            text += "  -> " + d.first + ": up to segment " + std::to_string(d.second.applied);
            if (d.second.lastFull > 0) {
                text += ", walked fully " + std::to_string((now - d.second.lastFull) / 3600) + " h ago";
            }
            if (d.second.pending > 0) {
                text += ", cut " + std::to_string(d.second.pending) + " not yet committed";
            }
            text += "\n";
        }
    }
    return text;
}

std::string Book::save() const
{
    std::string text = wire::pack({"orvane-journal-book", "1", "current", std::to_string(m_current)});
    for (const auto &source : m_sources) {
        text += wire::pack({"source", source.first, std::to_string(source.second.asked)});
        for (const auto &d : source.second.destinations) {
            const Destination &x = d.second;
            text += wire::pack({"destination",
                                source.first,
                                d.first,
                                x.identity,
                                x.settings,
                                std::to_string(x.applied),
                                std::to_string(x.lastFull),
                                std::to_string(x.pending),
                                x.pendingFull ? "1" : "0",
                                std::to_string(x.pendingTime),
                                x.pendingIdentity,
                                x.pendingSettings,
                                x.expired ? "1" : "0"});
        }
    }
    return text;
}

bool Book::load(const std::string &text)
{
    std::vector<std::string> f;
    if (!wire::unpack(text, f) || f.size() < 4 || f[0] != "orvane-journal-book" || f[1] != "1" || f[2] != "current") {
        return false;
    }
    unsigned long long n[6];
    if (!wire::number(f[3], n[0]) || n[0] == 0) {
        return false;
    }
    std::map<std::string, Source> sources;
    const Segment current = n[0];
    std::size_t i = 4;
    while (i < f.size()) {
        if (f[i] == "source" && i + 3 <= f.size() && wire::number(f[i + 2], n[1])) {
            sources[f[i + 1]].asked = static_cast<std::int64_t>(n[1]);
            i += 3;
        } else if (f[i] == "destination" && i + 13 <= f.size() && wire::number(f[i + 5], n[0]) && wire::number(f[i + 6], n[1]) && wire::number(f[i + 7], n[2])
                   && wire::number(f[i + 9], n[3]) && n[0] < current && n[2] < current) {
            Destination &d = sources[f[i + 1]].destinations[f[i + 2]];
            d.identity = f[i + 3];
            d.settings = f[i + 4];
            d.applied = n[0];
            d.lastFull = static_cast<std::int64_t>(n[1]);
            d.pending = n[2];
            d.pendingFull = f[i + 8] == "1";
            d.pendingTime = static_cast<std::int64_t>(n[3]);
            d.pendingIdentity = f[i + 10];
            d.pendingSettings = f[i + 11];
            d.expired = f[i + 12] == "1";
            i += 13;
        } else {
            return false;
        }
    }
    m_current = current;
    m_sources = std::move(sources);
    m_markers.clear();
    return true;
}
}
