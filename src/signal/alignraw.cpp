#include "signal/alignraw.h"

#include <cstring>
#include <vector>

#include "signal/rawscan.h"

namespace {

inline void PutBit(uchar* buf, int len, int64_t p, int v) {
    if (v)
        BfSetBit(buf, len, p);
    else
        BfClrBit(buf, len, p);
}

// Eight samples of byte value pattern from sample q, folded at the track's end.
inline void PutEight(uchar* raw, int len, int64_t q, unsigned pattern) {
    if (q >= 0 && q + 7 < len) {
        const size_t b = static_cast<size_t>(q >> 3);
        const int s = static_cast<int>(q & 7);
        raw[b] = static_cast<uint8_t>((raw[b] & ~(0xFFu >> s)) | (pattern >> s));
        if (s)
            raw[b + 1] =
                static_cast<uint8_t>((raw[b + 1] & (0xFFu >> s)) | ((pattern << (8 - s)) & 0xFFu));
        return;
    }
    for (int i = 0; i < 8; i++) PutBit(raw, len, q + i, (pattern >> (7 - i)) & 1);
}

}  // namespace

int AlignRaw(uchar* raw, int len) {
    if (len <= 0) return len;
    const int first = rawscan::FirstEdge(raw, len);
    if (first < 0) return len;

    // The scan reads the track as it was, so a moved pulse never creates or
    // hides an edge for it, also where a rewrite spills into samples not yet read
    // or is met again after the wrap.
    const size_t bytes = (static_cast<size_t>(len) + 7) / 8;
    std::vector<uchar> orig(raw, raw + bytes);

    rawscan::Separator sep;
    rawscan::ScanEdges(orig.data(), len, first, [&](int64_t x, int d) {
        const int64_t ideal = int64_t{sep.Step(d).cells} * 8;
        const int64_t e = x >= len ? x - len : x;
        if (ideal > d)
            PutEight(raw, len, e, 0x70);  // early: one sample later
        else if (ideal < d)
            PutEight(raw, len, e - 1, 0xE0);  // late: one sample earlier
        return true;
    });
    return len;
}
