// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The journal's books: which paths under each source changed in which
// segment, where the journal lost track, and how far each destination is
// up to date. Pure bookkeeping; the daemon feeds it events and cuts.
//
// Changes fall into numbered segments. A cut closes the current segment; a
// destination that has applied segment A and takes cut N needs the paths
// changed in segments A+1..N. A marker in that range ("walk everything")
// means the journal cannot prove it saw everything: a full walk.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace ovjournal
{
using Segment = std::uint64_t;

struct Entry {
    std::string path; // relative to the source; "." is the source itself
    bool folder; // made or moved in: everything below it counts
};

struct Decision {
    Segment number = 0;
    std::string fullWalk; // empty: the entries
    std::vector<Entry> entries;
};

class Book
{
public:
    static constexpr std::int64_t Week = 7 * 24 * 3600;
    // A destination not backed up for this long is forgotten.
    static constexpr std::int64_t Forget = 60 * 24 * 3600;
    // More changed paths than this under one source are not worth keeping
    // (a full walk costs less than such a list), nor is the memory a user
    // could make root's daemon spend on them.
    static constexpr std::size_t MaxRecords = 500000;
    static constexpr std::size_t MaxRecordBytes = 64 << 20;

    // A fresh start after segment `last`: whatever happened before is
    // unknown, for `reason`.
    void start(Segment last, const std::string &reason, std::int64_t now);

    void note(const std::string &source, const std::string &path, bool folder);
    // Everything up to now is unknown, for all sources or for one.
    void lose(const std::string &reason);
    void lose(const std::string &source, const std::string &reason);

    // Closes the current segment for a run from source to destination.
    // blocked: why the source is not watched ("" if it is).
    Decision cut(const std::string &source,
                 const std::string &destination,
                 const std::string &identity,
                 const std::string &settings,
                 const std::string &blocked,
                 std::int64_t now);
    // The cut handed out turned out to need a full walk after all.
    void turnFull(const std::string &source, const std::string &destination);
    // "" or why not.
    std::string commit(const std::string &source, const std::string &destination, Segment number, std::int64_t now);

    // Whether a change under source matters to any destination now.
    bool wants(const std::string &source) const;
    Segment current() const
    {
        return m_current;
    }
    // Sources asked about (with when), for the daemon to keep watching.
    std::map<std::string, std::int64_t> askedSources() const;
    std::size_t records(const std::string &source) const;
    std::string describe(std::int64_t now) const;

    // The destinations and the segment count (records and markers die with
    // the process: a restart is a marker of its own).
    std::string save() const;
    bool load(const std::string &text);

private:
    struct Record {
        Segment last = 0;
        Segment lastFolder = 0;
    };
    struct Destination {
        std::string identity;
        std::string settings;
        Segment applied = 0;
        std::int64_t lastFull = 0;
        Segment pending = 0;
        bool pendingFull = false;
        std::int64_t pendingTime = 0;
        std::string pendingIdentity;
        std::string pendingSettings;
        // Not fully walked for a week: its next cut walks fully, whatever
        // the clock says by then (the books no longer hold its changes).
        bool expired = false;
    };
    struct Source {
        std::unordered_map<std::string, Record> records;
        std::size_t recordBytes = 0; // of their paths
        // Folders made or moved in during the current segment: whatever
        // happens below them now is copied with them.
        std::unordered_set<std::string> freshFolders;
        std::map<std::string, Destination> destinations;
        std::int64_t asked = 0;
        bool wanted = false;
    };
    struct Marker {
        Segment at;
        std::string source; // empty: every source
        std::string reason;
    };

    const Marker *markerIn(const std::string &source, Segment after, Segment upTo) const;
    Segment needsAfter(const std::string &source, const Destination &d) const;
    void refresh(const std::string &source);
    void forgetOldMarkers();

    Segment m_current = 1;
    std::int64_t m_now = 0;
    std::vector<Marker> m_markers;
    std::map<std::string, Source> m_sources;
};
}
