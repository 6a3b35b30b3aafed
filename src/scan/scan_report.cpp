#include "scan/scan_report.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "fileio/filepath.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"

namespace {

// The most common value of field over the sectors (ties: the one seen first).
template <typename Field>
int UsualValue(const std::vector<SectorFacts>& sectors, Field field) {
    std::array<int, 256> count{};
    for (const auto& s : sectors) ++count[static_cast<size_t>(field(s) & 0xFF)];
    int best = 0, bestCount = 0;
    for (const auto& s : sectors) {
        const int v = field(s) & 0xFF;
        if (count[static_cast<size_t>(v)] > bestCount) {
            best = v;
            bestCount = count[static_cast<size_t>(v)];
        }
    }
    return best;
}

SectorFacts FactsOf(const VSector& v) {
    SectorFacts s;
    s.mfm = v.mfm ? 1 : 0;
    s.c = v.idC;
    s.h = v.idH;
    s.r = v.idR;
    s.n = v.idN;
    s.gap2 = v.gap2;
    s.length = v.length;
    s.gap3 = v.gap3;
    s.status = v.status;
    s.idCrc = v.idCrc[0] << 8 | v.idCrc[1];
    s.dataCrc = v.dataCrc[0] << 8 | v.dataCrc[1];
    s.idPos = v.idPos;
    s.damPos = v.damPos;
    s.dataPos = v.dataPos;
    s.endPos = v.endPos;
    s.dataCells = v.dataCells;
    s.timeDev = v.timeDev;
    return s;
}

TrackFacts FactsOf(const VTrack& t, int c, int h, int recordBits) {
    TrackFacts f;
    f.cylinder = c;
    f.head = h;
    f.recordBits = recordBits;
    f.flags = t.flags;
    f.iamPos = t.iamPos;
    f.gap1 = t.gap1;
    f.gap4a = t.gap4a;
    f.gap4b = t.gap4b;
    f.encLen = t.encLen;
    f.mfmCount = t.mfmCount;
    f.fmCount = t.fmCount;
    for (const VSector* s = t.sectors; s; s = s->next) f.sectors.push_back(FactsOf(*s));
    if (f.mfmCount && f.fmCount) {
        f.density = Density::kMixed;
    } else if (f.mfmCount) {
        f.density = Density::kMFM;
    } else if (f.fmCount) {
        f.density = Density::kFM;
    }
    f.usualC = UsualValue(f.sectors, [](const SectorFacts& s) { return s.c; });
    f.usualH = UsualValue(f.sectors, [](const SectorFacts& s) { return s.h; });
    f.usualN = UsualValue(f.sectors, [](const SectorFacts& s) { return s.n; });
    return f;
}

// Lowest and highest sector number among the readable IDs; false when none.
bool NumberRange(const TrackFacts& t, int* lo, int* hi) {
    *lo = 256;
    *hi = -1;
    for (const auto& s : t.sectors) {
        if (s.status & SECT_IDCRC) continue;
        *lo = std::min(*lo, s.r);
        *hi = std::max(*hi, s.r);
    }
    return *hi >= 0;
}

// A sector is missing when its number lies in the track's run of numbers and no
// ID field carries it. The run reaches at least the disk's usual last number, so
// a track that lost its last sectors shows them too. Numberings with wide holes
// are not runs (some disks number sectors freely) and report nothing.
void FindMissing(std::vector<TrackFacts>& tracks) {
    std::array<int, 256> lastCount{};
    for (const auto& t : tracks) {
        int lo, hi;
        if (NumberRange(t, &lo, &hi)) ++lastCount[static_cast<size_t>(hi)];
    }
    int usualLast = -1, best = 0;
    for (int v = 0; v < 256; ++v) {
        if (lastCount[static_cast<size_t>(v)] >= best && lastCount[static_cast<size_t>(v)] > 0) {
            best = lastCount[static_cast<size_t>(v)];
            usualLast = v;
        }
    }
    constexpr int kWidestRun = 64;
    for (auto& t : tracks) {
        int lo, hi;
        if (!NumberRange(t, &lo, &hi)) continue;
        if (lo <= usualLast) hi = std::max(hi, usualLast);
        if (hi - lo + 1 > kWidestRun) continue;
        std::array<bool, 256> present{};
        for (const auto& s : t.sectors) present[static_cast<size_t>(s.r)] = true;
        for (int r = lo; r <= hi; ++r)
            if (!present[static_cast<size_t>(r)]) t.missing.push_back(r);
    }
}

ScanSummary Summarise(const std::vector<TrackFacts>& tracks) {
    ScanSummary m;
    for (const auto& t : tracks) {
        ++m.tracks;
        switch (t.density) {
            case Density::kUnformatted:
                ++m.unformatted;
                break;
            case Density::kMFM:
                ++m.mfmTracks;
                break;
            case Density::kFM:
                ++m.fmTracks;
                break;
            case Density::kMixed:
                ++m.mixedTracks;
                break;
        }
        m.missing += static_cast<int>(t.missing.size());
        for (const auto& s : t.sectors) {
            ++m.sectors;
            ++(s.mfm ? m.mfmSectors : m.fmSectors);
            const SectorState st = StateOf(s);
            ++(st == SectorState::kGood || st == SectorState::kDeleted ? m.good : m.bad);
            if (s.status & SECT_IDCRC) ++m.idCrc;
            if (s.status & SECT_DATACRC) ++m.dataCrc;
            if (s.status & SECT_NODAM) ++m.noData;
            if (s.status & SECT_DELETED) ++m.deleted;
            if (TimingFlagged(s)) ++m.timing;
        }
    }
    m.formatted = m.tracks - m.unformatted;
    return m;
}

}  // namespace

bool LoadScanImage(const std::string& path, int diskno, ZEBDisk* disk) {
    Filepath fp;
    fp.SetPath(path.c_str());
    if (fp.HasExt(".ZEB")) return disk->Load(fp, 0);
    return disk->Import(fp, diskno);
}

ScanReport BuildScanReport(ZEBDisk& disk, const ScanOptions& opt, const ScanProgress& progress) {
    ScanReport rep;
    rep.path = opt.image;
    rep.disk = ReadProperties(disk);
    rep.mode = opt.mode;

    const int lastCyl = std::min({opt.lastCyl, rep.disk.cylinders - 1, ZEBDisk::kMaxCylinders - 1});
    const int heads = std::min(rep.disk.heads, ZEBDisk::kMaxHeads);
    std::vector<std::pair<int, int>> wanted;
    for (int c = std::max(opt.firstCyl, 0); c <= lastCyl; ++c)
        for (int h = 0; h < heads; ++h)
            if (opt.head < 0 || opt.head == h) wanted.emplace_back(c, h);

    // Tracks are analysed on the disk's workers, each into its own slot; the
    // report takes them in track order.
    const int total = static_cast<int>(wanted.size());
    std::vector<std::optional<TrackFacts>> facts(wanted.size());
    std::mutex progressLock;
    int done = 0;
    trackpool::ForEach(total, disk.workers, [&](int i) {
        if (progress) {
            const std::lock_guard<std::mutex> hold(progressLock);
            progress(done++, total);
        }
        const auto [c, h] = wanted[static_cast<size_t>(i)];
        std::unique_ptr<VTrack> t = disk.Analyze(c, h, opt.mode);
        if (!t) return;
        facts[static_cast<size_t>(i)] = FactsOf(*t, c, h, disk.GetTrackLen(c, h));
    });
    for (auto& f : facts)
        if (f) rep.tracks.push_back(std::move(*f));
    FindMissing(rep.tracks);
    rep.summary = Summarise(rep.tracks);
    return rep;
}

const char* DensityName(Density d) {
    switch (d) {
        case Density::kMFM:
            return "MFM";
        case Density::kFM:
            return "FM";
        case Density::kMixed:
            return "mixed";
        default:
            return "unformatted";
    }
}

SectorState StateOf(const SectorFacts& s) {
    if (s.status & SECT_IDCRC) return SectorState::kCrcError;
    if (s.status & SECT_NODAM) return SectorState::kNoData;
    if (s.status & SECT_DATACRC) return SectorState::kCrcError;
    if (s.status & SECT_DELETED) return SectorState::kDeleted;
    return SectorState::kGood;
}

bool TimingFlagged(const SectorFacts& s) {
    return s.timeDev >= kScanTimingLimit || s.timeDev <= -kScanTimingLimit;
}

std::string SectorFlagLetters(const SectorFacts& s, Density track) {
    std::string f;
    if (s.status & SECT_IDCRC) f += 'i';
    if (s.status & SECT_DATACRC) f += 'd';
    if (s.status & SECT_NODAM) f += 'm';
    if (s.status & SECT_DELETED) f += 'x';
    if (!s.mfm && track == Density::kMixed) f += 'f';
    if (TimingFlagged(s)) f += 't';
    return f;
}

std::vector<const char*> TrackFlagNames(uint32_t flags) {
    static constexpr struct {
        uint32_t bits;
        const char* name;
    } kNames[] = {
        {TRK_INDEX, "index"},     {TRK_FM, "fm"},
        {TRK_MFM, "mfm"},         {TRK_CROSS_INDEX, "cross-index"},
        {TRK_NODAM, "no-dam"},    {TRK_DATACRC, "data-crc"},
        {TRK_IDCRC, "id-crc"},    {TRK_MORE_DAM, "extra-dam"},
        {TRK_OVERLAP, "overlap"}, {TRK_UNFORMATTED, "unformatted"},
    };
    std::vector<const char*> out;
    for (const auto& n : kNames)
        if (flags & n.bits) out.push_back(n.name);
    return out;
}

std::vector<const char*> SectorStatusNames(int status) {
    std::vector<const char*> out;
    if (status & SECT_NODAM) out.push_back("no-dam");
    if (status & SECT_DELETED) out.push_back("deleted");
    if (status & SECT_IDCRC) out.push_back("id-crc");
    if (status & SECT_DATACRC) out.push_back("data-crc");
    return out;
}
