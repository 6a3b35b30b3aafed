#include "signal/rawconv.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "signal/edgemap.h"
#include "signal/rawscan.h"

namespace {

// The eight raw bytes of eight cells: a pulse byte for every 1-cell.
constexpr std::array<std::array<uint8_t, 8>, 256> MakePulseTable() {
    std::array<std::array<uint8_t, 8>, 256> t{};
    for (int v = 0; v < 256; v++)
        for (int m = 0; m < 8; m++) t[v][m] = ((v >> (7 - m)) & 1) ? 0xE0 : 0x00;
    return t;
}
constexpr auto kPulseTable = MakePulseTable();

inline void PutBit(uchar* buf, int64_t p, int v) {
    const uint8_t bit = static_cast<uint8_t>(0x80u >> (p & 7));
    if (v)
        buf[p >> 3] = static_cast<uint8_t>(buf[p >> 3] | bit);
    else
        buf[p >> 3] = static_cast<uint8_t>(buf[p >> 3] & ~bit);
}

// The pulse 1,1,1,0,0,0,0,0 at sample q of an n-sample buffer, folded at its end.
inline void PutPulse(uchar* buf, int n, int64_t q) {
    if (q >= 0 && q + 7 < n) {
        const size_t b = static_cast<size_t>(q >> 3);
        const int s = static_cast<int>(q & 7);
        buf[b] = static_cast<uint8_t>((buf[b] & ~(0xFFu >> s)) | (0xE0u >> s));
        if (s)
            buf[b + 1] =
                static_cast<uint8_t>((buf[b + 1] & (0xFFu >> s)) | ((0xE0u << (8 - s)) & 0xFFu));
        return;
    }
    for (int i = 0; i < 8; i++) PutBit(buf, BfFold(q + i, n), i < 3);
}

// The separator scan; record(cell, sample) sees every treated edge.
template <class Record>
int Raw2EncodeScan(uchar* raw, int rawLen, uchar* enc, int encCap, int* firstEdge,
                   Record&& record) {
    if (encCap > 0) std::memset(enc, 0, (static_cast<size_t>(encCap) + 7) / 8);
    if (rawLen <= 0) return 0;
    rawscan::Separator sep;
    const int first = rawscan::FirstEdge(raw, rawLen);
    *firstEdge = first;
    if (first < 0) return rawLen / 8;

    // Without room for cells the bits go to a scratch byte nobody reads, so
    // the loop needs no test for it.
    uchar scratch = 0;
    uchar* out = encCap > 0 ? enc : &scratch;
    const int64_t cap = encCap > 0 ? encCap : 8;

    const int64_t c0 = first / 8;
    int64_t p = c0;         // running cell position, unfolded
    int64_t pf = c0 % cap;  // p folded into [0, cap)
    PutBit(out, pf, 1);
    const int64_t lastEdge = rawscan::ScanEdges(raw, rawLen, first, [&](int64_t x, int d) {
        const auto r = sep.Step(d);
        // Two transitions one cell apart cannot both stand: the earlier one is
        // moved onto the later.
        if (r.valid && r.cells == 1) PutBit(out, pf, 0);
        p += r.cells;
        pf += r.cells;
        if (pf >= cap) [[unlikely]]
            pf %= cap;
        if (r.valid) PutBit(out, pf, 1);
        record(p, x);
        return true;
    });

    // The closing interval runs up to the first edge one revolution later; it
    // only decides the length.
    const auto close = sep.Step(static_cast<int>(static_cast<int64_t>(first) + rawLen - lastEdge));
    const int64_t n = p - c0 + close.cells;
    if (n > p) return static_cast<int>(n);
    // The last transition was written past the end: repeat it inside the track.
    // Edges all a few samples apart round to no cells at all; an empty track
    // has nowhere to fold to.
    if (n <= 0) return 0;
    PutBit(out, (p % n) % cap, 1);
    return static_cast<int>(n);
}

}  // namespace

int Raw2Encode(uchar* raw, int rawLen, uchar* enc, int encCap) {
    int first = -1;
    return Raw2EncodeScan(raw, rawLen, enc, encCap, &first, [](int64_t, int64_t) {});
}

int Raw2EncodeMapped(uchar* raw, int rawLen, uchar* enc, int encCap, RawEdgeMap* map) {
    map->first = -1;
    map->edges.clear();
    // About one edge in two and a half cells of a written track.
    if (rawLen > 0) map->edges.reserve(static_cast<size_t>(rawLen) / 16 + 64);
    std::vector<RawEdge>& edges = map->edges;
    return Raw2EncodeScan(raw, rawLen, enc, encCap, &map->first, [&](int64_t cell, int64_t sample) {
        edges.push_back({cell, sample});
    });
}

int Encode2Raw(uchar* enc, int encLen, uchar* raw, int rawCap) {
    const int result = static_cast<int>(static_cast<uint32_t>(encLen) * 8u);
    if (rawCap <= 0) return result;
    const size_t rawBytes = (static_cast<size_t>(rawCap) + 7) / 8;
    if (encLen < 1) {
        std::memset(raw, 0, rawBytes);
        return result;
    }
    // Cells whose pulse byte lies wholly inside the buffer are written as whole
    // bytes, eight cells at a time.
    const int64_t direct = std::min<int64_t>(encLen, rawCap / 8);
    const int64_t fullBytes = direct / 8;
    for (int64_t i = 0; i < fullBytes; i++) std::memcpy(raw + 8 * i, kPulseTable[enc[i]].data(), 8);
    for (int64_t c = fullBytes * 8; c < direct; c++)
        raw[c] = ((enc[c >> 3] >> (7 - (c & 7))) & 1) ? 0xE0 : 0x00;
    if (static_cast<size_t>(direct) < rawBytes)
        std::memset(raw + direct, 0, rawBytes - static_cast<size_t>(direct));
    // The rest wraps sample by sample onto the start.
    for (int64_t c = direct; c < encLen; c++)
        if ((enc[c >> 3] >> (7 - (c & 7))) & 1) PutPulse(raw, rawCap, c * 8);
    return result;
}

int StrechRaw(uchar* raw, int len, int newLen) {
    if (len == newLen || len <= 0 || newLen <= 0) return newLen;
    const size_t newBytes = (static_cast<size_t>(newLen) + 7) / 8;
    std::vector<uchar> work(newBytes, 0);
    rawscan::ForEachEdge(raw, len, 0, len, [&](int i) {
        const int64_t q = static_cast<int64_t>(
            static_cast<uint64_t>(static_cast<int64_t>(i) * newLen) / static_cast<uint64_t>(len));
        PutPulse(work.data(), newLen, q);
        return true;
    });
    std::memcpy(raw, work.data(), newBytes);
    return newLen;
}
