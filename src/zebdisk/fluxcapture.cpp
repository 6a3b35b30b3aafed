#include "zebdisk/fluxcapture.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "signal/fluxcell.h"
#include "signal/fluxraw.h"
#include "track/vtrack.h"
#include "zebdisk/fluxtrack.h"

namespace {

constexpr int kRecordHeader = zebrec::kData;
// The longest revolution a track record takes: the decoder reads no more cells.
constexpr uint64_t kMaxSamples = uint64_t{262144 - kRecordHeader} * 8;

// Rate and rpm pairs by the cells one revolution holds (60000 x rate / rpm).
struct Nominal {
    int rate, rpm;
    uint64_t cells;
};
constexpr Nominal kNominals[4] = {
    {500, 300, 100000},
    {500, 360, 83333},
    {1000, 360, 166666},
    {1000, 300, 200000},
};

int NearestNominal(uint64_t cells) {
    int best = 0;
    uint64_t bestDist = UINT64_MAX;
    for (int i = 0; i < 4; i++) {
        const uint64_t c = kNominals[i].cells;
        const uint64_t d = cells > c ? cells - c : c - cells;
        if (d < bestDist) bestDist = d, best = i;
    }
    return best;
}

constexpr uint8_t kBad = SECT_IDCRC | SECT_DATACRC | SECT_NODAM;

struct Reading {
    int sectors = 0, good = 0, idOwn = 0, idHalf = 0;
};

Reading Count(const VTrack& t, int cylinder) {
    Reading r;
    for (const VSector* s = t.sectors; s; s = s->next) {
        r.sectors++;
        if (s->status & kBad) continue;
        r.good++;
        if (s->idC == cylinder) r.idOwn++;
        if (cylinder >= 2 && s->idC == cylinder / 2) r.idHalf++;
    }
    return r;
}

}  // namespace

bool FluxCapture::AddTrack(int cylinder, int head, const std::vector<FluxRevolution>& revs,
                           double clockHz, std::string* why) {
    if (cylinder < 0 || cylinder >= kMaxCylinders || head < 0 || head > 1) return true;
    Track& out = tracks_[cylinder][head];
    out = Track{};

    // Whole revolutions when there are any, else what the capture holds.
    const bool anyWhole =
        std::any_of(revs.begin(), revs.end(), [](const FluxRevolution& r) { return r.whole; });
    out.partial = !anyWhole && !revs.empty();
    std::vector<FluxRevolution> used;
    for (const FluxRevolution& r : revs)
        if (r.whole || !anyWhole) used.push_back(r);

    // The cell time comes from the revolution with the most flux.
    const FluxRevolution* richest = nullptr;
    for (const FluxRevolution& r : used)
        if (!richest || r.count > richest->count) richest = &r;
    if (!richest) return true;
    const uint64_t estimate = FluxCellTime(richest->intervals, richest->count, clockHz);
    if (estimate == 0) return true;  // no cells to be seen: an unformatted track

    for (const FluxRevolution& r : used) {
        if (FluxRawLength(r.length, estimate) > kMaxSamples) {
            *why = "a revolution is longer than any track";
            return false;
        }
    }
    // The revolutions are read from the first of a usual length: an index
    // pulse the drive missed or doubled makes one far longer or shorter.
    std::vector<uint64_t> lengths;
    for (const FluxRevolution& r : used) lengths.push_back(r.length);
    std::nth_element(lengths.begin(), lengths.begin() + lengths.size() / 2, lengths.end());
    const uint64_t median = lengths[lengths.size() / 2];
    size_t from = 0;
    while (from < used.size() &&
           (FluxRawLength(used[from].length, estimate) == 0 ||
            used[from].length < median - median / 50 || used[from].length > median + median / 50))
        from++;
    if (from == used.size()) return true;
    const FluxRevolution& kept = used[from];

    VTrack t;
    if (!ReadFluxTrack(used.data() + from, used.size() - from, estimate, &out.cells, &t))
        return true;

    // The cells the clock counted from index to index give the cell time
    // exactly, where the estimate only saw a sample of the flux.
    uint64_t cellTime = estimate;
    if (out.cells.bits > 0) {
        const uint64_t counted =
            (kept.length << kCellTimeShift) / static_cast<uint64_t>(out.cells.bits);
        if (counted > estimate - estimate / 32 && counted < estimate + estimate / 32 &&
            FluxRawLength(kept.length, counted) <= kMaxSamples)
            cellTime = counted;
    }
    for (const FluxRevolution& r : used)
        if (r.whole) out.votes[NearestNominal((r.length << kCellTimeShift) / cellTime)]++;

    // A RAW disk keeps that revolution resampled, from index to index.
    const uint64_t samples = FluxRawLength(kept.length, cellTime);
    out.record = TrackRecord(kRecordHeader + static_cast<size_t>((samples + 7) / 8));
    if (Flux2Raw(kept.intervals, kept.count, kept.length, cellTime,
                 out.record.data() + kRecordHeader, static_cast<int64_t>(samples)) < 0)
        return true;
    out.samples = static_cast<int>(samples);

    // The cells are all a sector export needs: the decoder's copy goes back
    // to the allocator at once.
    delete[] t.encData;
    t.encData = nullptr;
    const Reading reading = Count(t, cylinder);
    out.present = true;
    out.sectors = reading.sectors;
    out.good = reading.good;
    out.idOwn = reading.idOwn;
    out.idHalf = reading.idHalf;
    for (const VSector* s = t.sectors; s && out.firstBad < 0; s = s->next)
        if (s->status & kBad) out.firstBad = s->idR;
    return true;
}

// One line for the sectors no revolution reads good, counted over the disk's
// tracks in order.
void FluxCapture::WarnBad(int step, Report* report) const {
    int64_t total = 0, bad = 0;
    int firstC = 0, firstH = 0, firstR = 0;
    for (int c = 0; c * step < kMaxCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            const Track& t = tracks_[c * step][h];
            if (!t.present) continue;
            total += t.sectors;
            if (t.good >= t.sectors) continue;
            if (!bad) firstC = c, firstH = h, firstR = t.firstBad;
            bad += t.sectors - t.good;
        }
    }
    if (!bad) return;
    report->Warn(std::to_string(bad) + " of " + std::to_string(total) + " sectors " +
                 (bad == 1 ? "reads" : "read") + " bad in every revolution (first: track " +
                 std::to_string(firstC) + "." + std::to_string(firstH) + ", R " +
                 std::to_string(firstR) + ")");
}

bool FluxCapture::Partial(int cylinder, int head) const {
    if (cylinder < 0 || cylinder >= kMaxCylinders || head < 0 || head > 1) return false;
    return tracks_[cylinder][head].partial;
}

bool FluxCapture::Build(ZEBDisk& disk) {
    bool any = false, oddData = false, evenHigh = false;
    int own = 0, half = 0;
    // Whole revolutions of formatted tracks nearest each nominal length, and of any track.
    int formattedVotes[4] = {}, anyVotes[4] = {};
    for (int c = 0; c < kMaxCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            const Track& t = tracks_[c][h];
            any = any || t.present;
            for (int i = 0; i < 4; i++) {
                anyVotes[i] += t.votes[i];
                if (t.sectors > 0) formattedVotes[i] += t.votes[i];
            }
            if (!t.present || t.sectors == 0) continue;
            if (c & 1) oddData = true;
            if (!(c & 1) && c >= 2) {
                evenHigh = true;
                own += t.idOwn;
                half += t.idHalf;
            }
        }
    }
    if (!any) return false;

    // The rate and speed most whole revolutions of formatted tracks point to.
    int formatted = 0;
    for (int v : formattedVotes) formatted += v;
    int pick = 0;
    for (int i = 1; i < 4; i++) {
        const int v = formatted ? formattedVotes[i] : anyVotes[i];
        const int best = formatted ? formattedVotes[pick] : anyVotes[pick];
        if (v > best) pick = i;
    }
    const Nominal& nominal = kNominals[pick];

    // A 40-track disk read with single steps of an 80-track drive: its data
    // sits on even tracks and its IDs name half their number.
    const bool fold = evenHigh && half >= own && (!oddData || half > own);
    const int step = fold ? 2 : 1;

    bool beyond41 = false;
    for (int c = 42; c * step < kMaxCylinders; c++)
        for (int h = 0; h < 2; h++)
            if (tracks_[c * step][h].present && tracks_[c * step][h].sectors > 0) beyond41 = true;
    const int type = nominal.rate == 1000 ? ZEB_2HD : (beyond41 ? ZEB_2DD : ZEB_2D);

    // An encoded blank disk gives the header; its records are all replaced by
    // raw ones of the size each track needs.
    if (!disk.Init(type, nominal.rate, nominal.rpm, 0)) return false;
    const int nominalSamples = 125 * nominal.rate * 3840 / nominal.rpm;
    const int nominalBytes = kRecordHeader + (nominalSamples + 7) / 8;
    int block = nominal.rate == 1000 ? 262144 : 131072;
    for (int c = 0; c < ZEBDisk::kMaxCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            const int slot = c * 2 + h;
            Track* t = c * step < kMaxCylinders ? &tracks_[c * step][h] : nullptr;
            if (t && t->present) {
                disk.track[slot] = std::move(t->record);
                disk.SetRecordInt(slot, zebrec::kCylinder, c);
                disk.SetRecordInt(slot, zebrec::kHead, h);
                disk.SetRecordInt(slot, zebrec::kIndexOffset, 0);
                disk.SetRecordInt(slot, zebrec::kBitLength, t->samples);
                disk.fluxCells[slot] = std::move(t->cells);
                block = std::max(block, static_cast<int>(disk.track[slot].size()));
            } else {
                disk.NewRecord(slot, nominalBytes, c, h, nominalSamples);
                // Blank: its cells, were the samples separated, would all be zero.
                disk.fluxCells[slot].bits = nominalSamples / 8;
            }
            disk.updated[slot] = 1;
        }
    }
    WarnBad(step, &disk.report);
    disk.SetHeaderInt(zebhdr::kType, ZEB_RAW);
    disk.SetHeaderInt(zebhdr::kRate, nominal.rate * 8);
    disk.SetHeaderInt(zebhdr::kBlockSize, block);
    return true;
}
