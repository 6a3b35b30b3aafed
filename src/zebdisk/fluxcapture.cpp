#include "zebdisk/fluxcapture.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "signal/fluxcell.h"
#include "signal/fluxraw.h"
#include "track/vtrack.h"

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

    // The cell time comes from the revolution with the most flux.
    const FluxRevolution* richest = nullptr;
    for (const FluxRevolution& r : revs)
        if ((r.whole || !anyWhole) && (!richest || r.count > richest->count)) richest = &r;
    if (!richest) return true;
    const uint64_t cellTime = FluxCellTime(richest->intervals, richest->count, clockHz);
    if (cellTime == 0) return true;  // no cells to be seen: an unformatted track

    std::vector<CellRevolution> cells;
    TrackRecord scratch;
    int bestIndex = -1;
    Reading best;
    VTrack t;
    for (const FluxRevolution& r : revs) {
        if (anyWhole && !r.whole) continue;
        const uint64_t samples = FluxRawLength(r.length, cellTime);
        if (samples == 0) continue;
        if (samples > kMaxSamples) {
            *why = "a revolution is longer than any track";
            return false;
        }
        scratch = TrackRecord(kRecordHeader + static_cast<size_t>((samples + 7) / 8));
        uint8_t* raw = scratch.data() + kRecordHeader;
        if (Flux2Raw(r.intervals, r.count, r.length, cellTime, raw, static_cast<int64_t>(samples)) <
            0)
            continue;
        t.Decode(1, raw, static_cast<int>(samples), 0);
        const Reading reading = Count(t, cylinder);
        if (r.whole) out.votes[NearestNominal((r.length << kCellTimeShift) / cellTime)]++;

        CellRevolution rev;
        if (t.encData && t.encLen > 0) {
            rev.bits = t.encLen;
            rev.cells.assign(t.encData, t.encData + (t.encLen + 7) / 8);
        }
        cells.push_back(std::move(rev));
        if (bestIndex < 0 || reading.good > best.good) {
            bestIndex = static_cast<int>(cells.size()) - 1;
            best = reading;
            std::swap(out.record, scratch);
            out.samples = static_cast<int>(samples);
        }
        // A revolution that reads every sector it has ends the search: later
        // ones could only add a sector it lost without a trace.
        if (r.whole && reading.sectors > 0 && reading.good == reading.sectors) break;
    }
    if (bestIndex < 0) return true;

    out.present = true;
    out.sectors = best.sectors;
    out.good = best.good;
    out.idOwn = best.idOwn;
    out.idHalf = best.idHalf;
    for (size_t i = 0; i < cells.size(); i++)
        if (static_cast<int>(i) != bestIndex && cells[i].bits > 0)
            out.spares.push_back(std::move(cells[i]));
    return true;
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
                disk.spareRevolutions[slot] = std::move(t->spares);
                block = std::max(block, static_cast<int>(disk.track[slot].size()));
            } else {
                disk.NewRecord(slot, nominalBytes, c, h, nominalSamples);
            }
            disk.updated[slot] = 1;
        }
    }
    disk.SetHeaderInt(zebhdr::kType, ZEB_RAW);
    disk.SetHeaderInt(zebhdr::kRate, nominal.rate * 8);
    disk.SetHeaderInt(zebhdr::kBlockSize, block);
    return true;
}
