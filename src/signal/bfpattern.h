// A bit pattern prepared once for repeated exact searches of circular streams,
// so that callers searching the same mark many times build its tables once.
#pragma once

#include <cstdint>
#include <vector>

#include "signal/bitstream.h"

class BfPattern {
public:
    BfPattern(const uchar* pattern, int patLen);

    // Exactly what BfFind(buf, len, start, range, pattern, patLen) returns.
    int Find(const uchar* buf, int len, int start, int range) const;

    int Length() const { return patLen_; }

private:
    // Bytes of the stream looked at by the prefilter for one candidate byte.
    static constexpr int kWindow = 4;
    static constexpr int kInlineWords = 4;

    const uint64_t* Words() const { return big_.empty() ? small_ : big_.data(); }
    int PatBit(int j) const { return static_cast<int>((Words()[j / 64] >> (63 - j % 64)) & 1); }
    bool Matches(const uchar* buf, int len, int a) const;
    int FindInSpan(const uchar* buf, int len, int a0, int a1) const;

    int patLen_;
    int nwords_;
    int skip_;  // pattern byte at which the prefilter window starts
    uint64_t lastMask_;
    uint64_t small_[kInlineWords] = {};
    std::vector<uint64_t> big_;  // patterns longer than the inline words
    // table_[k][b]: bit s set when a candidate at bit s of some stream byte i is
    // still possible with byte b at i + skip_ + k; any_ is their union.
    uint8_t table_[kWindow][256] = {};
    uint8_t any_[256] = {};
    // Second-level prefilter on byte pairs that lie wholly inside the pattern
    // at every bit shift: pairs_ holds one bit per 16-bit stream value seen at
    // stream bytes i + pairFirst_ .. i + pairFirst_ + pairCount_ of a candidate
    // at byte i. A pair outside the set rules out pairCount_ candidate bytes.
    int pairFirst_ = 0;
    int pairCount_ = 0;  // 0: pattern too short for the pair prefilter
    std::vector<uint64_t> pairs_;
};
