// Circular MSB-first bit streams: bit p is bit 7 - p % 8 of byte p / 8, and any
// position outside [0, len) folds back into it by the length.
#pragma once

#include <cstdint>

typedef unsigned char uchar;

// Folds pos into [0, len); len must be positive.
inline int BfFold(int64_t pos, int len) {
    if (len <= 0) return 0;  // a stream of no bits has no position to fold to
    int64_t r = pos % len;
    return static_cast<int>(r < 0 ? r + len : r);
}
inline int BfGetBit(const uchar* buf, int len, int64_t pos) {
    if (len <= 0) return 0;
    int p = BfFold(pos, len);
    return (buf[p >> 3] >> (7 - (p & 7))) & 1;
}
inline void BfSetBit(uchar* buf, int len, int64_t pos) {
    if (len <= 0) return;
    int p = BfFold(pos, len);
    buf[p >> 3] = static_cast<uchar>(buf[p >> 3] | (0x80 >> (p & 7)));
}
inline void BfClrBit(uchar* buf, int len, int64_t pos) {
    if (len <= 0) return;
    int p = BfFold(pos, len);
    buf[p >> 3] = static_cast<uchar>(buf[p >> 3] & ~(0x80 >> (p & 7)));
}

// The 32 bits at pos .. pos + 31 of the circular stream, the bit at pos in bit 31.
uint32_t BfGetLong(const uchar* buf, int len, int pos);

// Offset from start of the first exact match of the patLen-bit pattern within
// range bits of the circular stream, or -1.
int BfFind(const uchar* buf, int len, int start, int range, const uchar* pattern, int patLen);
