#include "zebdisk/fluxtrack.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "signal/bitstream.h"
#include "signal/cellclock.h"
#include "track/marks.h"

namespace {

constexpr uint8_t kBad = SECT_IDCRC | SECT_DATACRC | SECT_NODAM;
// The most cells a track's stream holds: what the decoder reads.
constexpr int64_t kMaxCells = 262144 - 128;
// Revolutions end before this (clock units), far beyond any real capture.
constexpr uint64_t kMaxTime = uint64_t{1} << 40;
// The join of a track's cells lies this many bytes before the first ID field
// after the index: in the gap ahead of the field's sync (12 bytes in MFM, 6 in
// FM). Splices of a sector from another revolution begin as far before its ID
// field and end a few bytes after its data's CRC, in gaps too.
constexpr int kLeadBytesMfm = 16;
constexpr int kLeadBytesFm = 10;
constexpr int kTailBytes = 3;

int CellsPerByte(int mfm) {
    return mfm ? 16 : 32;
}
int LeadCells(int mfm) {
    return (mfm ? kLeadBytesMfm : kLeadBytesFm) * CellsPerByte(mfm);
}

// The cells a revolution of length clock units can take at the shortest cell
// the clock allows (three quarters of cellTime), and a few to spare.
int64_t CellsAtMost(uint64_t length, uint64_t cellTime) {
    return static_cast<int64_t>((length << CellClock::kShift) / cellTime * 4 / 3 + 64);
}

std::vector<uint8_t> Zeroed(int64_t cells) {
    return std::vector<uint8_t>(static_cast<size_t>((cells + 7) / 8 + 8), 0);
}

void ClearBits(uint8_t* b, int64_t from, int64_t to) {
    if (from >= to) return;
    for (; from < to && (from & 7); from++)
        b[from >> 3] = static_cast<uint8_t>(b[from >> 3] & ~(0x80 >> (from & 7)));
    if (to - from >= 8) std::memset(b + (from >> 3), 0, static_cast<size_t>((to - from) >> 3));
    for (from += (to - from) & ~int64_t{7}; from < to; from++)
        b[from >> 3] = static_cast<uint8_t>(b[from >> 3] & ~(0x80 >> (from & 7)));
}

// Copies n bits of the circular stream src (length srcLen) from srcAt into the
// circular stream dst (length dstLen) at dstAt.
void CopyBits(const uint8_t* src, int srcLen, int64_t srcAt, uint8_t* dst, int dstLen,
              int64_t dstAt, int n) {
    int s = BfFold(srcAt, srcLen), d = BfFold(dstAt, dstLen);
    for (int i = 0; i < n; i++) {
        if ((src[s >> 3] >> (7 - (s & 7))) & 1)
            dst[d >> 3] = static_cast<uint8_t>(dst[d >> 3] | (0x80 >> (d & 7)));
        else
            dst[d >> 3] = static_cast<uint8_t>(dst[d >> 3] & ~(0x80 >> (d & 7)));
        if (++s == srcLen) s = 0;
        if (++d == dstLen) d = 0;
    }
}

// Where the cells of a track are best joined: before the first ID field (of
// either density) that lies far enough from the index for its gap to hold the
// join, within the first half of the track; 0 when there is none.
int JoinAfterIndex(uint8_t* cells, int len) {
    int best = INT_MAX;
    const int range = len / 2;
    for (int mfm = 0; mfm < 2; mfm++) {
        const uint8_t* pattern = mfm ? marks::Bf_AM_MFM : marks::Bf_AM_FM;
        const int bits = mfm ? marks::kMfmPatternBits : marks::kFmPatternBits;
        const int markAfter = mfm ? 48 : 16;  // the mark byte after the first A1, or at the mark
        const uint32_t id = mfm ? 0x5554 : 0x2AA8;
        for (int from = 0; from < range;) {
            const int m = BfFind(cells, len, from, range - from, pattern, bits);
            if (m < 0) break;
            const int at = from + m + 80;  // the first A1, or the FM mark
            const int join = at - LeadCells(mfm);
            if (join >= 0 && (BfGetLong(cells, len, at + markAfter) >> 16) == id) {
                best = std::min(best, join);
                break;
            }
            from += m + bits;
        }
    }
    return best == INT_MAX ? 0 : best;
}

// The circular stream turned so that its bit by comes first.
std::vector<uint8_t> Rotated(const uint8_t* b, int len, int by) {
    std::vector<uint8_t> r = Zeroed(len);
    for (int j = 0; j < len; j += 32) {
        const uint32_t w = BfGetLong(b, len, BfFold(int64_t{by} + j, len));
        for (int k = 0; k < 4; k++)
            r[static_cast<size_t>(j / 8 + k)] = static_cast<uint8_t>(w >> (24 - 8 * k));
    }
    return r;
}

bool Good(const VSector* s) {
    return !(s->status & kBad);
}

// A sector as read in the track being built: where it lies and whether it is good.
struct Placed {
    int at, cells;  // from its ID field's start to its data CRC's end (the ID's for no data)
    int mfm;
    uint8_t c, h, r, n;
    bool good, idGood;
};

int Span(const VSector* s, int len) {
    if (s->status & SECT_NODAM) return (s->mfm ? 10 : 7) * CellsPerByte(s->mfm);
    return BfFold(int64_t{s->endPos} - s->idPos, len);
}

std::vector<Placed> Sectors(const VTrack& t, int len) {
    std::vector<Placed> v;
    for (const VSector* s = t.sectors; s; s = s->next)
        v.push_back({s->idPos, Span(s, len), s->mfm, s->idC, s->idH, s->idR, s->idN, Good(s),
                     !(s->status & SECT_IDCRC)});
    return v;
}

bool Overlap(int64_t a, int64_t la, int64_t b, int64_t lb, int len) {
    return BfFold(b - a, len) < la || BfFold(a - b, len) < lb;
}

bool AnyBad(const VTrack& t) {
    for (const VSector* s = t.sectors; s; s = s->next)
        if (!Good(s)) return true;
    return false;
}

// Splices into the track (cells, len) each sector that the other revolution
// (o, its cells) reads good and the track does not: over the sector of the
// same ID, or where it lies when the track has no good sector there. Returns
// the sectors taken.
int TakeGood(uint8_t* cells, int len, std::vector<Placed>& have, const VTrack& o,
             const uint8_t* other, int otherLen) {
    int taken = 0;
    for (const VSector* g = o.sectors; g; g = g->next) {
        if (!Good(g)) continue;
        Placed* same = nullptr;
        for (Placed& p : have)
            if (p.idGood && p.mfm == g->mfm && p.c == g->idC && p.h == g->idH && p.r == g->idR &&
                p.n == g->idN)
                same = &p;
        if (same && same->good) continue;
        // Where it lies in the track: by the same sector, else by the nearest
        // sector both read, else in proportion.
        int64_t at = 0;
        if (same) {
            at = same->at;
        } else {
            const Placed* near = nullptr;
            int nearDist = INT_MAX;
            for (const VSector* q = o.sectors; q; q = q->next)
                for (const Placed& p : have)
                    if (p.idGood && q != g && !(q->status & SECT_IDCRC) && p.mfm == q->mfm &&
                        p.c == q->idC && p.h == q->idH && p.r == q->idR && p.n == q->idN) {
                        const int d = std::abs(q->idPos - g->idPos);
                        if (d < nearDist) nearDist = d, near = &p, at = p.at + g->idPos - q->idPos;
                    }
            if (!near) at = int64_t{g->idPos} * len / otherLen;
        }
        const int lead = LeadCells(g->mfm);
        const int span = Span(g, otherLen);
        const int n = lead + span + kTailBytes * CellsPerByte(g->mfm);
        if (n >= len || n >= otherLen) continue;
        bool blocked = false;
        for (const Placed& p : have)
            if (&p != same && p.good && Overlap(at - lead, n, p.at, p.cells, len)) blocked = true;
        if (blocked) continue;
        CopyBits(other, otherLen, int64_t{g->idPos} - lead, cells, len, at - lead, n);
        const Placed now{static_cast<int>(BfFold(at, len)),
                         span,
                         g->mfm,
                         g->idC,
                         g->idH,
                         g->idR,
                         g->idN,
                         true,
                         true};
        if (same)
            *same = now;
        else
            have.push_back(now);
        taken++;
    }
    return taken;
}

// A revolution's cells as read: bit p is cell base + p of the clock.
struct Window {
    int64_t base;
    int len;
    std::vector<Placed> sectors;
};

// Where every transition lies (cells x 256) up to cell end, from a clock run
// afresh over the same flux: it puts each one where the first run did.
std::vector<int64_t> Positions(const FluxSpan* spans, size_t count, uint64_t cellTime,
                               int64_t end) {
    size_t total = 0;
    for (size_t r = 0; r < count; r++) total += spans[r].count;
    std::vector<int64_t> positions(total);
    CellClock clock(spans, count, 0, cellTime);
    clock.Record(positions.data(), positions.size());
    uint8_t scratch[8] = {};
    clock.Run(UINT64_MAX, end, scratch, 0, 64);
    positions.resize(clock.Recorded());
    return positions;
}

// The transitions from cell `from` to cell `to` (x 256), relative to cell at.
std::vector<int64_t> Between(const std::vector<int64_t>& positions, int64_t from, int64_t to,
                             int64_t at) {
    auto lo = std::lower_bound(positions.begin(), positions.end(), from * 256 - 128);
    auto hi = std::lower_bound(positions.begin(), positions.end(), to * 256 - 128);
    std::vector<int64_t> v(lo, hi);
    for (int64_t& x : v) x -= at * 256;
    return v;
}

int64_t FloorDiv(int64_t a, int64_t b) {
    const int64_t q = a / b;
    return q * b != a && (a < 0) != (b < 0) ? q - 1 : q;
}

// Two readings of one transition lie within this of each other (cells x
// 256): their difference has the jitter of one reading times the root of 2,
// and the next transition lies two cells away.
constexpr int64_t kPairWithin = 320;

// Reads the sector the track holds bad at `bad` once more, from each of its
// transitions averaged with the nearest one (within kPairWithin) of every
// other revolution that holds the same ID (or, when its own ID did not read,
// a good ID at the same place): the jitter of an average of n
// readings is that of one divided by the root of n. The first window's bit j
// is cell j + join of the clock up to cell first (its index), and on from
// there past it. True when the sector's cells were replaced.
bool Combine(uint8_t* cells, const Window& track, int64_t first, const Placed& bad,
             const std::vector<Placed>& have, const std::vector<Window>& others,
             const std::vector<int64_t>& positions) {
    const int len = track.len;
    const int lead = LeadCells(bad.mfm);
    // The sector's extent: the longest any reading of it shows.
    int span = bad.cells;
    std::vector<std::pair<const Window*, const Placed*>> same;
    for (const Window& w : others)
        for (const Placed& p : w.sectors)
            if (p.idGood && p.mfm == bad.mfm &&
                (bad.idGood ? p.c == bad.c && p.h == bad.h && p.r == bad.r && p.n == bad.n
                            : std::abs(p.at - bad.at) <= len / 100)) {
                same.push_back({&w, &p});
                span = std::max(span, p.cells);
                break;
            }
    const int n = lead + span + kTailBytes * CellsPerByte(bad.mfm);
    const int64_t start = int64_t{bad.at} - lead;
    if (same.empty() || start < 0 || start + n > len) return false;
    // A good sector next to it keeps its own cells.
    for (const Placed& p : have)
        if (&p != &bad && p.good && Overlap(start, n, p.at, p.cells, len)) return false;
    auto clockCell = [&](int64_t j) {
        const int64_t c = j + track.base;
        return c < first ? c : c - len + first;
    };
    const int64_t id = clockCell(bad.at);
    if (clockCell(start + n - 1) - clockCell(start) != n - 1) return false;  // spans the index
    const std::vector<int64_t> mine =
        Between(positions, clockCell(start), clockCell(start) + n, id);
    std::vector<std::vector<int64_t>> theirs;
    for (const auto& [w, p] : same) {
        const int64_t at = w->base + p->at;
        theirs.push_back(Between(positions, at - lead, at - lead + n, at));
    }
    std::vector<uint8_t> region = Zeroed(n);
    std::vector<size_t> next(theirs.size(), 0);
    for (int64_t x : mine) {
        int64_t sum = x, k = 1;
        for (size_t r = 0; r < theirs.size(); r++) {
            const std::vector<int64_t>& v = theirs[r];
            size_t& i = next[r];
            while (i < v.size() && v[i] < x - kPairWithin) i++;
            if (i < v.size() && v[i] <= x + kPairWithin) sum += v[i], k++;
        }
        const int64_t cell = FloorDiv(FloorDiv(sum, k) + 128, 256) + lead;
        if (cell >= 0 && cell < n)
            region[static_cast<size_t>(cell >> 3)] |= static_cast<uint8_t>(0x80 >> (cell & 7));
    }
    CopyBits(region.data(), n, 0, cells, len, start, n);
    return true;
}

}  // namespace

bool ReadFluxTrack(const FluxRevolution* revs, size_t count, uint64_t cellTime, CellRevolution* out,
                   VTrack* decoded) {
    if (!revs || count == 0 || cellTime == 0) return false;
    std::vector<FluxSpan> spans(count);
    std::vector<uint64_t> index(count + 1);
    uint64_t time = 0;
    for (size_t r = 0; r < count; r++) {
        if (revs[r].count && !revs[r].intervals) return false;
        spans[r] = {revs[r].intervals, revs[r].count, time};
        index[r] = time;
        time += revs[r].length;
        if (time >= kMaxTime) return false;
    }
    index[count] = time;
    // No revolution may hold more cells than any track could.
    for (size_t r = 0; r < count; r++)
        if (CellsAtMost(revs[r].length, cellTime) > 2 * kMaxCells) return false;
    CellClock clock(spans.data(), count, 0, cellTime);

    // The first revolution, then on past the index to the join.
    int64_t cap = CellsAtMost(revs[0].length, cellTime);
    std::vector<uint8_t> cells = Zeroed(cap);
    clock.Run(index[1], INT64_MAX, cells.data(), 0,
              static_cast<int>(std::min(cap, int64_t{INT_MAX})));
    const int64_t first = std::max(clock.CellAt(index[1]), clock.LastCell() + 1);
    const int len = static_cast<int>(std::min({first, cap, kMaxCells}));
    if (len < 64) return false;
    // The stream starts at the join: the decoder looks for a data mark no
    // further than the stream's end.
    int join = 0;
    if (count > 1) {
        join = JoinAfterIndex(cells.data(), len);
        if (join > 0) {
            ClearBits(cells.data(), 0, join);
            clock.Run(UINT64_MAX, int64_t{len} + join, cells.data(), 0, len);
            cells = Rotated(cells.data(), len, join);
        }
    }
    ClearBits(cells.data(), len, static_cast<int64_t>(cells.size()) * 8);
    decoded->Decode(0, cells.data(), len, 0);

    // Sectors still bad come from the revolutions after it, each cut at the
    // same place.
    bool spliced = false;
    if (count > 1 && AnyBad(*decoded)) {
        std::vector<Placed> have = Sectors(*decoded, len);
        std::vector<Window> windows;
        int64_t at = first;  // the cell of the revolution's index
        for (size_t r = 1; r < count && !clock.Done(); r++) {
            const int64_t otherCap = CellsAtMost(revs[r].length, cellTime);
            std::vector<uint8_t> other = Zeroed(otherCap);
            const int64_t base = at + join;
            clock.Run(index[r + 1], INT64_MAX, other.data(), base,
                      static_cast<int>(std::min(otherCap, int64_t{INT_MAX})));
            const int64_t next = std::max(clock.CellAt(index[r + 1]), clock.LastCell() + 1);
            const int otherLen = static_cast<int>(std::min({next - at, otherCap, kMaxCells}));
            if (otherLen < 64) break;
            clock.Run(UINT64_MAX, base + otherLen, other.data(), base, otherLen);
            ClearBits(other.data(), otherLen, static_cast<int64_t>(other.size()) * 8);
            VTrack o;
            o.Decode(0, other.data(), otherLen, 0);
            if (TakeGood(cells.data(), len, have, o, other.data(), otherLen)) spliced = true;
            windows.push_back({base, otherLen, Sectors(o, otherLen)});
            at = next;
            bool anyBad = false;
            for (const Placed& p : have) anyBad = anyBad || !p.good;
            if (!anyBad) break;
        }
        // What no revolution reads good is read once more from the
        // transitions of all of them together.
        bool anyBad = false;
        for (const Placed& p : have) anyBad = anyBad || !p.good;
        if (anyBad && !windows.empty()) {
            const Window& last = windows.back();
            std::vector<int64_t> positions =
                Positions(spans.data(), count, cellTime, last.base + last.len);
            const Window first1{join, len, {}};
            for (const Placed& bad : have)
                if (!bad.good &&
                    Combine(cells.data(), first1, first, bad, have, windows, positions))
                    spliced = true;
        }
    }
    if (spliced) decoded->Decode(0, cells.data(), len, 0);
    out->cells = std::move(cells);
    out->bits = len;
    return true;
}
