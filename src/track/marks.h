// Address mark search patterns of the track decoder: cells as bytes in stream
// order, matched bit-exactly at any offset. MFM patterns are 128 cells long,
// FM patterns 96 cells.
#pragma once

#include <cstdint>

namespace marks {

inline constexpr int kMfmPatternBits = 128;
inline constexpr int kFmPatternBits = 96;

// Five MFM 00 bytes, then three A1 with the missing clock: any MFM address mark.
// The first A1 starts 80 cells into the pattern.
inline constexpr uint8_t Bf_AM_MFM[16] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA,
                                          0xAA, 0xAA, 0x44, 0x89, 0x44, 0x89, 0x44, 0x89};
// 2.5 FM 00 bytes, then the first 16 cells shared by the marks F8..FE with clock C7.
// The mark starts 80 cells into the pattern.
inline constexpr uint8_t Bf_AM_FM[12] = {0x88, 0x88, 0x88, 0x88, 0x88, 0x88,
                                         0x88, 0x88, 0x88, 0x88, 0xAA, 0x22};
// Four MFM 00 bytes, C2 C2 C2 (missing clock) FC: the index mark, first C2 at +64.
inline constexpr uint8_t Bf_IAM_MFM[16] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA,
                                           0x52, 0x24, 0x52, 0x24, 0x52, 0x24, 0x55, 0x52};
// Two FM 00 bytes, FC with clock D7: the index mark at +64.
inline constexpr uint8_t Bf_IAM_FM[12] = {0x88, 0x88, 0x88, 0x88, 0x88, 0x88,
                                          0x88, 0x88, 0xAA, 0x2A, 0x2A, 0x88};
// Four MFM 00 bytes, A1 A1 A1 FB: the data mark, first A1 at +64.
inline constexpr uint8_t Bf_DAM_MFM[16] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA,
                                           0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x45};
// Four MFM 00 bytes, A1 A1 A1 F8: the deleted data mark.
inline constexpr uint8_t Bf_DDAM_MFM[16] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA,
                                            0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x4A};
// Two FM 00 bytes, FB with clock C7: the data mark at +64.
inline constexpr uint8_t Bf_DAM_FM[12] = {0x88, 0x88, 0x88, 0x88, 0x88, 0x88,
                                          0x88, 0x88, 0xAA, 0x22, 0x28, 0xAA};
// Two FM 00 bytes, F8 with clock C7: the deleted data mark.
inline constexpr uint8_t Bf_DDAM_FM[12] = {0x88, 0x88, 0x88, 0x88, 0x88, 0x88,
                                           0x88, 0x88, 0xAA, 0x22, 0x28, 0x88};

}  // namespace marks
