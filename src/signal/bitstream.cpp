#include "signal/bitstream.h"

#include <algorithm>
#include <cstddef>

#include "signal/bfpattern.h"
#include "signal/rawscan.h"

namespace {

// The 64 bits at p (already folded into [0, len)) of the circular stream.
inline uint64_t Get64(const uchar* buf, int len, int p) {
    if (static_cast<int64_t>(p) + 63 < len) {
        const size_t b = static_cast<size_t>(p) >> 3;
        const int s = p & 7;
        uint64_t v = rawscan::LoadBe64(buf + b);
        if (s) v = (v << s) | (buf[b + 8] >> (8 - s));
        return v;
    }
    const int q = BfFold(static_cast<int64_t>(p) + 32, len);
    return (static_cast<uint64_t>(BfGetLong(buf, len, p)) << 32) | BfGetLong(buf, len, q);
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
    return BfPattern(pattern, patLen).Find(buf, len, start, range);
}

BfPattern::BfPattern(const uchar* pattern, int patLen) : patLen_(patLen) {
    const int bits = std::max(patLen, 0);
    const int nbytes = bits / 8 + (bits % 8 != 0);
    nwords_ = bits / 64 + (bits % 64 != 0);
    if (nwords_ > kInlineWords) big_.assign(static_cast<size_t>(nwords_), 0);
    uint64_t* words = big_.empty() ? small_ : big_.data();
    for (int i = 0; i < nbytes; i++) {
        uint8_t v = pattern[i];
        if (i == nbytes - 1 && (bits & 7)) v = static_cast<uint8_t>(v & (0xFF00 >> (bits & 7)));
        words[i / 8] |= static_cast<uint64_t>(v) << (56 - 8 * (i % 8));
    }
    lastMask_ = (bits & 63) ? ~(~uint64_t{0} >> (bits & 63)) : ~uint64_t{0};

    // The window sits on the last whole bytes of the pattern: address marks put
    // their filler first and their distinctive sync bytes last.
    skip_ = std::max(0, bits / 8 - kWindow);
    for (int k = 0; k < kWindow; k++) {
        for (int s = 0; s < 8; s++) {
            unsigned mask = 0, value = 0;
            for (int m = 0; m < 8; m++) {
                const int j = 8 * (skip_ + k) + m - s;
                if (j < 0 || j >= bits) continue;
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
    for (int b = 0; b < 256; b++)
        for (int k = 0; k < kWindow; k++) any_[b] = static_cast<uint8_t>(any_[b] | table_[k][b]);

    // Pair q of a candidate covers pattern bits 8q - s .. 8q - s + 15 at shift s,
    // wholly inside the pattern for every shift when 1 <= q <= (bits - 16) / 8.
    // The last pairs hold the sync bytes, rare in ordinary data.
    constexpr int kPairWindow = 4;
    if (bits >= 24) {
        const int qMax = (bits - 16) / 8;
        pairCount_ = std::min(kPairWindow, qMax);
        pairFirst_ = qMax - pairCount_ + 1;
        pairs_.assign(65536 / 64, 0);
        for (int q = pairFirst_; q < pairFirst_ + pairCount_; q++) {
            for (int s = 0; s < 8; s++) {
                unsigned v = 0;
                for (int m = 0; m < 16; m++)
                    v = (v << 1) | static_cast<unsigned>(PatBit(8 * q - s + m));
                pairs_[v >> 6] |= uint64_t{1} << (v & 63);
            }
        }
    }
}

bool BfPattern::Matches(const uchar* buf, int len, int a) const {
    const uint64_t* words = Words();
    int64_t p = a;
    for (int t = 0; t < nwords_; t++) {
        const uint64_t mask = (t + 1 == nwords_) ? lastMask_ : ~uint64_t{0};
        if ((Get64(buf, len, static_cast<int>(p)) & mask) != words[t]) return false;
        p += 64;
        if (p >= len) p %= len;
    }
    return true;
}

// First match among the folded positions [a0, a1) in increasing order, or -1.
int BfPattern::FindInSpan(const uchar* buf, int len, int a0, int a1) const {
    // The prefilter needs the window's bytes wholly inside the stream.
    int64_t fastBytes = static_cast<int64_t>(len) / 8 - skip_ - (kWindow - 1);
    // ...and the pair prefilter needs its last pair's bytes there too.
    if (pairCount_)
        fastBytes =
            std::min<int64_t>(fastBytes, static_cast<int64_t>(len) / 8 - pairFirst_ - pairCount_);
    const uint64_t* pairs = pairs_.data();
    const int pairLast = pairFirst_ + pairCount_ - 1;
    const uchar* w = buf + skip_;
    int a = a0;
    while (a < a1) {
        const int64_t i = a >> 3;
        if (i >= fastBytes) {
            for (; a < a1; a++)
                if (Matches(buf, len, a)) return a;
            return -1;
        }
        const int64_t iEnd = std::min<int64_t>(fastBytes, (static_cast<int64_t>(a1) + 7) >> 3);
        for (int64_t j = i; j < iEnd;) {
            if (pairCount_) {
                // The last pair of candidate byte j is also a pair of the
                // candidates j + 1 .. j + pairCount_ - 1.
                const unsigned v =
                    (static_cast<unsigned>(buf[j + pairLast]) << 8) | buf[j + pairLast + 1];
                if (!((pairs[v >> 6] >> (v & 63)) & 1)) {
                    j += pairCount_;
                    continue;
                }
            }
            // A byte no table accepts rules out the window's candidates at
            // every byte that sees it.
            if (!any_[w[j + kWindow - 1]]) {
                j += kWindow;
                continue;
            }
            const unsigned m =
                table_[0][w[j]] & table_[1][w[j + 1]] & table_[2][w[j + 2]] & table_[3][w[j + 3]];
            if (m) {
                const int base = static_cast<int>(j * 8);
                for (int s = 0; s < 8; s++) {
                    if (!(m & (1u << s))) continue;
                    const int cand = base + s;
                    if (cand < a) continue;
                    if (cand >= a1) return -1;
                    if (Matches(buf, len, cand)) return cand;
                }
            }
            j++;
        }
        a = static_cast<int>(std::max<int64_t>(a, iEnd * 8));
    }
    return -1;
}

int BfPattern::Find(const uchar* buf, int len, int start, int range) const {
    if (len <= 0 || patLen_ < 0) return -1;
    int64_t count;  // candidate offsets from start
    if (patLen_ % 32 == 0) {
        // Whole 32-offset groups are tried as long as the group's first offset is
        // within range, so a match up to 31 bits past the last candidate counts.
        if (static_cast<int64_t>(range) < patLen_) return -1;
        count = (static_cast<int64_t>(range) - patLen_) / 32 * 32 + 32;
    } else {
        count = static_cast<int64_t>(range) - patLen_ + 1;
        if (count < 1) return -1;
    }
    if (patLen_ == 0) return 0;
    // After one lap the candidates repeat; the earlier one wins.
    if (count > len) count = len;

    const int a0 = BfFold(start, len);
    const int64_t a1 = a0 + count;
    int r = FindInSpan(buf, len, a0, static_cast<int>(std::min<int64_t>(a1, len)));
    if (r >= 0) return r - a0;
    if (a1 > len) {
        r = FindInSpan(buf, len, 0, static_cast<int>(a1 - len));
        if (r >= 0) return r + len - a0;
    }
    return -1;
}
