#include "vdisk/exportloss.h"

#include "vdisk/imagecommon.h"

#include <cctype>
#include <cstring>

namespace {

// Counts sectors of the kept tracks that match, remembering the first one.
template <class Match>
struct SectorTally {
    int count = 0;
    int c = 0, h = 0;
    const VSector* first = nullptr;

    void Run(const VDisk& disk, int keptTracks, Match match) {
        for (int t = 0; t < keptTracks && t < 2 * VDisk::kMaxCylinders; t++) {
            const VTrack* trk = disk.Track(t / 2, t % 2);
            for (const VSector* s = trk ? trk->sectors : nullptr; s; s = s->next) {
                if (!match(s)) continue;
                if (!first) first = s, c = t / 2, h = t % 2;
                count++;
            }
        }
    }
    std::string Where() const {
        return "(first: track " + TrackName(c, h) + ", R " + std::to_string(first->idR);
    }
};

template <class Match>
SectorTally<Match> Tally(const VDisk& disk, int keptTracks, Match match) {
    SectorTally<Match> t;
    t.Run(disk, keptTracks, match);
    return t;
}

std::string Sectors(int n) {
    return Counted(n, "sector", "sectors");
}

}  // namespace

std::string TrackName(int c, int h) {
    return std::to_string(c) + "." + std::to_string(h);
}

std::string FormatName(const Filepath& path) {
    std::string ext = path.GetExt();
    for (char& ch : ext) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return ext;
}

void WarnTracksLeftOut(const VDisk& disk, int keptTracks, const std::string& why, Report* report) {
    int tracks = 0, sectors = 0, first = -1;
    for (int t = keptTracks < 0 ? 0 : keptTracks; t < 2 * VDisk::kMaxCylinders; t++) {
        const VTrack* trk = disk.Track(t / 2, t % 2);
        if (!trk || !trk->sectors) continue;
        if (first < 0) first = t;
        tracks++;
        for (const VSector* s = trk->sectors; s; s = s->next) sectors++;
    }
    if (tracks == 0) return;
    report->Warn(std::to_string(tracks) + (tracks == 1 ? " track" : " tracks") + " holding " +
                 Sectors(sectors) + " were left out, as " + why + " (first: track " +
                 TrackName(first / 2, first % 2) + ")");
}

void WarnStatusLost(const VDisk& disk, int keptTracks, uint8_t lost, const std::string& format,
                    Report* report) {
    const uint8_t bad = lost & (SECT_IDCRC | SECT_DATACRC | SECT_NODAM);
    if (bad) {
        const auto t = Tally(disk, keptTracks, [bad](const VSector* s) { return s->status & bad; });
        if (t.count)
            report->Warn(Sectors(t.count) + " with CRC errors or without a data mark " +
                         (t.count == 1 ? "loses" : "lose") + " that status in " + format + " " +
                         t.Where() + ")");
    }
    if (lost & SECT_DELETED) {
        const auto t = Tally(disk, keptTracks,
                             [](const VSector* s) { return (s->status & SECT_DELETED) != 0; });
        if (t.count)
            report->Warn(std::to_string(t.count) + " deleted " +
                         (t.count == 1 ? "sector loses its" : "sectors lose their") +
                         " deleted mark in " + format + " " + t.Where() + ")");
    }
}

void WarnSlotLength(const VDisk& disk, int keptTracks, int slot, Report* report) {
    auto slotOf = [slot](const VSector* s) { return slot > 0 ? slot : 128 << (s->idN & 7); };
    const auto t = Tally(disk, keptTracks, [&](const VSector* s) {
        return (s->length < 0 ? 0 : s->length) != slotOf(s);
    });
    if (!t.count) return;
    report->Warn(Sectors(t.count) +
                 (t.count == 1 ? " was written at a length other than its slot"
                               : " were written at a length other than their slots") +
                 ", shifting the rest of the file " + t.Where() + ", " +
                 std::to_string(t.first->length < 0 ? 0 : t.first->length) + " of " +
                 std::to_string(slotOf(t.first)) + " bytes)");
}

void WarnNameCut(const std::string& name, int keep, const std::string& format, Report* report) {
    if (keep < 0 || name.size() <= static_cast<size_t>(keep)) return;
    report->Warn("the name \"" + name + "\" is cut to its first " + std::to_string(keep) +
                 " characters" + (format.empty() ? "" : " in " + format));
}
