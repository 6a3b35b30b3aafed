#include "signal/bitstream.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

inline uint64_t LoadBe64(const uchar* p) {
    return (static_cast<uint64_t>(p[0]) << 56) | (static_cast<uint64_t>(p[1]) << 48) |
           (static_cast<uint64_t>(p[2]) << 40) | (static_cast<uint64_t>(p[3]) << 32) |
           (static_cast<uint64_t>(p[4]) << 24) | (static_cast<uint64_t>(p[5]) << 16) |
           (static_cast<uint64_t>(p[6]) << 8) | static_cast<uint64_t>(p[7]);
}

// The 64 bits at p (already folded into [0, len)) of the circular stream.
inline uint64_t Get64(const uchar* buf, int len, int p) {
    if (static_cast<int64_t>(p) + 63 < len) {
        const size_t b = static_cast<size_t>(p) >> 3;
        const int s = p & 7;
        uint64_t v = LoadBe64(buf + b);
        if (s) v = (v << s) | (buf[b + 8] >> (8 - s));
        return v;
    }
    const int q = BfFold(static_cast<int64_t>(p) + 32, len);
    return (static_cast<uint64_t>(BfGetLong(buf, len, p)) << 32) | BfGetLong(buf, len, q);
}

// Pattern prefilter and verifier. Tables k = 0..2 say, for a stream byte, which
// bit shifts s (0..7) of a candidate starting at bit s of the byte before it are
// still possible: table k looks at the byte holding pattern bits 8k - s .. 8k + 7 - s.
class PatternMatcher {
public:
    PatternMatcher(const uchar* pattern, int patLen) {
        const int nbytes = (patLen + 7) / 8;
        const int nwords = (patLen + 63) / 64;
        words_.assign(static_cast<size_t>(nwords), 0);
        for (int i = 0; i < nbytes; i++) {
            uint8_t v = pattern[i];
            if (i == nbytes - 1 && (patLen & 7))
                v = static_cast<uint8_t>(v & (0xFF00 >> (patLen & 7)));
            words_[static_cast<size_t>(i / 8)] |= static_cast<uint64_t>(v) << (56 - 8 * (i % 8));
        }
        lastMask_ = (patLen & 63) ? ~(~uint64_t{0} >> (patLen & 63)) : ~uint64_t{0};

        for (int k = 0; k < 3; k++) {
            for (int s = 0; s < 8; s++) {
                unsigned mask = 0, value = 0;
                for (int m = 0; m < 8; m++) {
                    const int j = 8 * k + m - s;
                    if (j < 0 || j >= patLen) continue;
                    const unsigned bit = 0x80u >> m;
                    mask |= bit;
                    if (PatBit(j)) value |= bit;
                }
                const unsigned free = ~mask & 0xFFu;
                for (unsigned f = free;; f = (f - 1) & free) {
                    table_[k][value | f] = static_cast<uint8_t>(table_[k][value | f] | (1u << s));
                    if (f == 0) break;
                }
            }
        }
    }

    // Shifts s still possible for candidates at bits 8i + s of a stream whose
    // bytes i, i + 1, i + 2 are b0, b1, b2.
    uint8_t Filter(uint8_t b0, uint8_t b1, uint8_t b2) const {
        return static_cast<uint8_t>(table_[0][b0] & table_[1][b1] & table_[2][b2]);
    }

    // Whether the pattern matches the circular stream at folded position a.
    bool Matches(const uchar* buf, int len, int a) const {
        int64_t p = a;
        const size_t n = words_.size();
        for (size_t t = 0; t < n; t++) {
            const uint64_t mask = (t + 1 == n) ? lastMask_ : ~uint64_t{0};
            if ((Get64(buf, len, static_cast<int>(p)) & mask) != words_[t]) return false;
            p += 64;
            if (p >= len) p %= len;
        }
        return true;
    }

private:
    int PatBit(int j) const { return static_cast<int>((words_[j / 64] >> (63 - j % 64)) & 1); }

    std::vector<uint64_t> words_;
    uint64_t lastMask_;
    uint8_t table_[3][256] = {};
};

// First match among the folded positions [a0, a1) in increasing order, or -1.
int FindInSpan(const uchar* buf, int len, int a0, int a1, const PatternMatcher& pm) {
    // The byte filter needs bytes i .. i + 2 wholly inside the stream.
    const int64_t fastBytes = static_cast<int64_t>(len) / 8 - 2;
    int a = a0;
    while (a < a1) {
        const int64_t i = a >> 3;
        if (i >= fastBytes) {
            for (; a < a1; a++)
                if (pm.Matches(buf, len, a)) return a;
            return -1;
        }
        const int64_t iEnd = std::min<int64_t>(fastBytes, (static_cast<int64_t>(a1) + 7) >> 3);
        for (int64_t j = i; j < iEnd; j++) {
            unsigned m = pm.Filter(buf[j], buf[j + 1], buf[j + 2]);
            if (!m) continue;
            const int base = static_cast<int>(j * 8);
            for (int s = 0; s < 8; s++) {
                if (!(m & (1u << s))) continue;
                const int cand = base + s;
                if (cand < a) continue;
                if (cand >= a1) return -1;
                if (pm.Matches(buf, len, cand)) return cand;
            }
        }
        a = static_cast<int>(std::max<int64_t>(a, iEnd * 8));
    }
    return -1;
}

}  // namespace

uint32_t BfGetLong(const uchar* buf, int len, int pos) {
    if (len <= 0) return 0;
    if (pos >= 0 && static_cast<int64_t>(pos) + 31 < len) {
        const size_t b = static_cast<size_t>(pos) >> 3;
        const int s = pos & 7;
        uint32_t v = (static_cast<uint32_t>(buf[b]) << 24) |
                     (static_cast<uint32_t>(buf[b + 1]) << 16) |
                     (static_cast<uint32_t>(buf[b + 2]) << 8) | buf[b + 3];
        if (s) v = (v << s) | (buf[b + 4] >> (8 - s));
        return v;
    }
    // Crossing an end (or a stream shorter than a word): gather bit by bit.
    int p = BfFold(pos, len);
    uint32_t v = 0;
    for (int i = 0; i < 32; i++) {
        v = (v << 1) | static_cast<uint32_t>((buf[p >> 3] >> (7 - (p & 7))) & 1);
        if (++p == len) p = 0;
    }
    return v;
}

int BfFind(const uchar* buf, int len, int start, int range, const uchar* pattern, int patLen) {
    if (len <= 0 || patLen < 0) return -1;
    int64_t count;  // candidate offsets from start
    if (patLen % 32 == 0) {
        // Whole 32-offset groups are tried as long as the group's first offset is
        // within range, so a match up to 31 bits past the last candidate counts.
        if (static_cast<int64_t>(range) < patLen) return -1;
        count = (static_cast<int64_t>(range) - patLen) / 32 * 32 + 32;
    } else {
        count = static_cast<int64_t>(range) - patLen + 1;
        if (count < 1) return -1;
    }
    if (patLen == 0) return 0;
    // After one lap the candidates repeat; the earlier one wins.
    if (count > len) count = len;

    const PatternMatcher pm(pattern, patLen);
    const int a0 = BfFold(start, len);
    const int64_t a1 = a0 + count;
    int r = FindInSpan(buf, len, a0, static_cast<int>(std::min<int64_t>(a1, len)), pm);
    if (r >= 0) return r - a0;
    if (a1 > len) {
        r = FindInSpan(buf, len, 0, static_cast<int>(a1 - len), pm);
        if (r >= 0) return r + len - a0;
    }
    return -1;
}
