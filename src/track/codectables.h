// Cell and CRC tables shared by the track encoder and decoder.
//
// MFM: 16 cells a data byte, clock cell then data cell, most significant bit
// first; a clock cell is 1 only between two 0 data bits. MFMTable assumes the
// preceding data bit was 0; when it was 1, mask the entry with 0x7FFF.
// FM: 32 cells a data byte, each bit as clock(1), 0, data, 0.
// CRC: CRC-16-CCITT, polynomial 0x1021, initial 0xFFFF, MSB first, no
// reflection, no final inversion.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace codec_detail {

constexpr std::array<uint16_t, 256> MakeMFMTable() {
    std::array<uint16_t, 256> t{};
    for (unsigned v = 0; v < 256; ++v) {
        unsigned prev = 0;
        unsigned w = 0;
        for (int bit = 7; bit >= 0; --bit) {
            const unsigned d = (v >> bit) & 1u;
            const unsigned clock = (prev == 0 && d == 0) ? 1u : 0u;
            w = (w << 2) | (clock << 1) | d;
            prev = d;
        }
        t[v] = static_cast<uint16_t>(w);
    }
    return t;
}

constexpr std::array<uint32_t, 256> MakeFMTable() {
    std::array<uint32_t, 256> t{};
    for (unsigned v = 0; v < 256; ++v) {
        uint32_t w = 0;
        for (int bit = 7; bit >= 0; --bit) {
            const uint32_t d = (v >> bit) & 1u;
            w = (w << 4) | 0x8u | (d << 1);
        }
        t[v] = w;
    }
    return t;
}

constexpr std::array<uint16_t, 256> MakeCrcTable() {
    std::array<uint16_t, 256> t{};
    for (unsigned v = 0; v < 256; ++v) {
        unsigned crc = v << 8;
        for (int k = 0; k < 8; ++k) crc = (crc & 0x8000u) ? (crc << 1) ^ 0x1021u : crc << 1;
        t[v] = static_cast<uint16_t>(crc & 0xFFFFu);
    }
    return t;
}

}  // namespace codec_detail

inline constexpr std::array<uint16_t, 256> MFMTable = codec_detail::MakeMFMTable();
inline constexpr std::array<uint32_t, 256> FMTable = codec_detail::MakeFMTable();
inline constexpr std::array<uint16_t, 256> crctbl = codec_detail::MakeCrcTable();

inline constexpr uint16_t kCrcInit = 0xFFFF;

// One byte into the running CRC.
constexpr uint16_t CrcUpdate(uint16_t crc, uint8_t b) {
    return static_cast<uint16_t>((crc << 8) ^ crctbl[((crc >> 8) ^ b) & 0xFFu]);
}

namespace codec_detail {

// crcSlice[k][v]: CRC register after byte v followed by k zero bytes, from 0.
// Lets a block be taken eight bytes at a time with independent lookups.
constexpr std::array<std::array<uint16_t, 256>, 8> MakeCrcSlices() {
    std::array<std::array<uint16_t, 256>, 8> t{};
    t[0] = MakeCrcTable();
    for (size_t k = 1; k < 8; ++k) {
        for (unsigned v = 0; v < 256; ++v) {
            const uint16_t prev = t[k - 1][v];
            t[k][v] = static_cast<uint16_t>((prev << 8) ^ t[0][prev >> 8]);
        }
    }
    return t;
}

}  // namespace codec_detail

inline constexpr std::array<std::array<uint16_t, 256>, 8> crcSlice = codec_detail::MakeCrcSlices();

// A block of bytes into the running CRC, still one table lookup per byte: the
// register meets the first two bytes of each eight, the other six go through
// their tables independently of it.
constexpr uint16_t CrcUpdate(uint16_t crc, const uint8_t* p, size_t n) {
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        crc = static_cast<uint16_t>(
            crcSlice[7][((crc >> 8) ^ p[i]) & 0xFFu] ^ crcSlice[6][(crc ^ p[i + 1]) & 0xFFu] ^
            crcSlice[5][p[i + 2]] ^ crcSlice[4][p[i + 3]] ^ crcSlice[3][p[i + 4]] ^
            crcSlice[2][p[i + 5]] ^ crcSlice[1][p[i + 6]] ^ crcSlice[0][p[i + 7]]);
    }
    for (; i < n; ++i) crc = CrcUpdate(crc, p[i]);
    return crc;
}

// Running CRC after the three A1 sync bytes that open every MFM field.
inline constexpr uint16_t kCrcAfterA1x3 =
    CrcUpdate(CrcUpdate(CrcUpdate(kCrcInit, 0xA1), 0xA1), 0xA1);

// FM cells of data byte d written with the clock pattern c (marks use
// clocks other than FF).
constexpr uint32_t FmWithClock(uint8_t d, uint8_t c) {
    uint32_t w = 0;
    for (int bit = 7; bit >= 0; --bit) {
        w = (w << 4) | (((c >> bit) & 1u) << 3) | (((d >> bit) & 1u) << 1);
    }
    return w;
}

// Mark bytes and their cells where a clock cell is missing.
inline constexpr uint8_t kMarkIndex = 0xFC;
inline constexpr uint8_t kMarkId = 0xFE;
inline constexpr uint8_t kMarkData = 0xFB;
inline constexpr uint8_t kMarkDeleted = 0xF8;
inline constexpr uint16_t kMfmA1Sync = 0x4489;          // A1, clock missing between bits 4 and 5
inline constexpr uint16_t kMfmC2Sync = 0x5224;          // C2, clock missing between bits 3 and 4
inline constexpr uint32_t kFmIndexMark = 0xAA2A2A88;    // FC with clock D7
inline constexpr uint32_t kFmIdMark = 0xAA222AA8;       // FE with clock C7
inline constexpr uint32_t kFmDataMark = 0xAA2228AA;     // FB with clock C7
inline constexpr uint32_t kFmDeletedMark = 0xAA222888;  // F8 with clock C7

static_assert(MFMTable[0x00] == 0xAAAA && MFMTable[0x4E] == 0x9254 && MFMTable[0xA1] == 0x44A9);
static_assert(FMTable[0x00] == 0x88888888u && FMTable[0xFF] == 0xAAAAAAAAu);
static_assert(FmWithClock(kMarkIndex, 0xD7) == kFmIndexMark &&
              FmWithClock(kMarkId, 0xC7) == kFmIdMark &&
              FmWithClock(kMarkData, 0xC7) == kFmDataMark &&
              FmWithClock(kMarkDeleted, 0xC7) == kFmDeletedMark);
static_assert(CrcUpdate(kCrcInit, 0xA1) == 0x443B);
static_assert(CrcUpdate(kCrcAfterA1x3, kMarkId) == 0xB230);
static_assert(CrcUpdate(kCrcInit, kMarkId) == 0xEF21);
namespace codec_detail {
constexpr bool SliceMatchesBytewise() {
    const uint8_t block[19] = {0xA1, 0xA1, 0xA1, 0xFB, 0x12, 0xE5, 0x00, 0x4E, 0xFF, 0x80,
                               0x01, 0x7F, 0x3C, 0xC3, 0x55, 0xAA, 0x10, 0x20, 0x30};
    uint16_t one = kCrcInit;
    for (uint8_t b : block) one = CrcUpdate(one, b);
    return CrcUpdate(kCrcInit, block, 19) == one;
}
static_assert(SliceMatchesBytewise());
}  // namespace codec_detail
