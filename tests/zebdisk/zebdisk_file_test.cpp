// ZEB files built byte by byte: every version loads, index offsets rotated out and
// geometry normalised; saves size their blocks, partial saves touch only flagged tracks.
// Whole-disk conversion between cells and raw signal.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "signal/rawconv.h"
#include "track/decoder_stream.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// len is the stored length (header field of version 1, bytes in version 2).
// Version 1 blocks hold the data, then 16 unused bytes; later ones a record
// header, then the data.
Bytes ZebFile(int version, int cyls, int heads, int rate, int len, int index, int block) {
    Bytes f(256);
    FieldWriter w(f.data(), f.size());
    w.Bytes(0, "ZEB", 3), w.U8(3, static_cast<uint32_t>(version));
    w.I32(68, 1), w.I32(72, cyls), w.I32(76, heads), w.I32(80, rate), w.I32(84, 300);
    w.I32(96, version == 1 ? len : 0), w.I32(100, block);
    for (int slot = 0; slot < cyls * 2; slot++) {
        if (slot % 2 >= heads) continue;
        Bytes b(static_cast<size_t>(block));
        FieldWriter r(b.data(), 16);
        if (version > 1) r.I32(0, slot / 2), r.I32(4, slot % 2), r.I32(8, index), r.I32(12, len);
        const Bytes data = dectest::Pattern(block - 16, slot);
        std::copy(data.begin(), data.end(), b.begin() + (version > 1 ? 16 : 0));
        f.insert(f.end(), b.begin(), b.end());
    }
    return f;
}

// Older versions stored the data rate and counted lengths and index in bytes.
TEST(ZEBDiskFile, EachVersionLoadsRotatedAndNormalisedAsVersion3) {
    auto bit = [](const uint8_t* p, int i) { return (p[i >> 3] >> (7 - (i & 7))) & 1; };
    for (const auto& [version, cyls, heads, rate, len, index, wantCyls, bits, turn] :
         {std::tuple{1, 40, 1, 250, 12500, 0, 42, 100000, 0},
          {2, 43, 2, 250, 12500, 3, 84, 100000, 24},
          {3, 2, 2, 500, 99997, 12345, 42, 99997, 12345},
          {3, 1, 1, 500, 99997, 99996, 42, 99997, 99996}}) {
        SCOPED_TRACE(turn);
        Spit("zf_ver.zeb", ZebFile(version, cyls, heads, rate, len, index, 12800));
        ZEBDisk d;
        ASSERT_TRUE(d.Load(PathOf("zf_ver.zeb"), 0));
        EXPECT_EQ(std::tuple(d.header[zebhdr::kVersion], d.Rate(), d.HeaderInt(zebhdr::kTrackLenV1),
                             d.Cylinders(), d.Heads()),
                  std::tuple(3, 500, 0, wantCyls, 2));
        for (int slot = 0; slot < wantCyls * 2; slot++) {
            const bool loaded = slot / 2 < cyls && slot % 2 < heads;
            ASSERT_EQ(d.GetTrackLen(slot / 2, slot % 2), loaded ? bits : 100000) << slot;
            EXPECT_EQ(d.RecordInt(slot, zebrec::kIndexOffset), 0);
            const uint8_t* out = d.GetTrackData(slot / 2, slot % 2);
            const Bytes src = dectest::Pattern(12784, slot);
            int wrong = 0;  // the cells turned to the index, zeros to the byte's end; else zeros
            for (int i = 0; i < (loaded ? (bits + 7) / 8 * 8 : 12784 * 8); i++)
                wrong += bit(out, i) != (loaded && i < bits && bit(src.data(), (i + turn) % bits));
            ASSERT_EQ(wrong, 0) << slot;
        }
    }
}

// A partial save rewrites only the tracks flagged as changed.
TEST(ZEBDiskFile, SavesSizeBlocksAndLoadBack) {
    for (const auto& [type, raw, cyls, block] :
         {std::tuple{ZEB_2HD, 0, 84, 20992}, {ZEB_2DD, 1, 84, 100352}, {ZEB_2D, 0, 42, 12800}}) {
        SCOPED_TRACE(block);
        ZEBDisk d, e;
        ASSERT_TRUE(d.Init(type, 0, 0, raw));
        d.GetTrackData(cyls - 1, 1)[7] = 0xA5;
        ASSERT_TRUE(d.Save(PathOf("zf_block.zeb"), 1));
        Bytes f = Slurp("zf_block.zeb");
        ASSERT_EQ(f.size(), 256u + static_cast<size_t>(cyls * 2 * block));
        EXPECT_EQ(FieldReader(f.data(), f.size()).I32(100), block);
        ASSERT_TRUE(e.Load(PathOf("zf_block.zeb"), 0));
        EXPECT_EQ(std::memcmp(e.header, d.header, 256), 0);
        EXPECT_EQ(e.GetTrackData(cyls - 1, 1)[7], 0xA5);
        EXPECT_EQ(e.GetTrackLen(cyls - 1, 1), d.GetTrackLen(0, 0));
        d.GetTrackData(10, 1)[0] = 0xA5;
        d.UpdateTrack(10, 1);
        d.GetTrackData(20, 0)[0] = 0xFF;  // changed, but not flagged
        ASSERT_TRUE(d.Save(PathOf("zf_block.zeb"), 0));
        f[256 + 21 * static_cast<size_t>(block) + 16] = 0xA5;
        EXPECT_TRUE(Slurp("zf_block.zeb") == f);
    }
}

// 2DD at 500 kbit/s and 300 rpm: N = 800000 samples, limit 804000.
TEST(ZebConvert, RawSqueezesOnlyTracksPastHalfAPercent) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    d.SetHeaderInt(zebhdr::kCylinders, 2);
    const int cells[] = {101250, 100375, 100000};
    for (int s = 0; s < 3; s++)
        std::memset(d.GetTrackData(s / 2, s % 2), 0x88, 16000),
            d.SetRecordInt(s, zebrec::kBitLength, cells[s]);
    EXPECT_FALSE(d.ConvertEnc());
    ASSERT_TRUE(d.ConvertRaw());
    EXPECT_FALSE(d.ConvertRaw());
    EXPECT_EQ(std::tuple(d.Type(), d.Rate(), d.BlockSize()), std::tuple(ZEB_RAW, 4000, 131072));
    EXPECT_EQ(std::tuple(d.GetTrackLen(0, 0), d.GetTrackLen(0, 1), d.GetTrackLen(1, 0)),
              std::tuple(804000, 803000, 800000));
    Bytes cells0(16000, 0x88), want(131072);
    Encode2Raw(cells0.data(), 101250, want.data(), 810000);
    StrechRaw(want.data(), 810000, 804000);
    EXPECT_EQ(std::memcmp(d.GetTrackData(0, 0), want.data(), 804000 / 8), 0);
}

TEST(ZebConvert, EncodedFormFollowsTheRawRate) {
    for (const auto& [rawRate, cyls, type, rate, block] :
         {std::tuple{8000, 84, ZEB_2HD, 1000, 32768},
          {4000, 84, ZEB_2DD, 500, 16384},
          {4000, 42, ZEB_2D, 500, 16384},
          {8001, 84, ZEB_2DD, 1000, 32768},
          {8007, 42, ZEB_2D, 1000, 32768}}) {
        ZEBDisk d;
        ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 1));
        d.SetHeaderInt(zebhdr::kRate, rawRate);
        d.SetHeaderInt(zebhdr::kCylinders, cyls);
        ASSERT_TRUE(d.ConvertEnc());
        EXPECT_EQ(std::tuple(d.Type(), d.Rate(), d.BlockSize(), d.RecordDataSize(2 * cyls - 1)),
                  std::tuple(type, rate, block, block - 16))
            << rawRate << " " << cyls;
    }
}

// Bytes that start with a transition and keep every gap at 2 to 4 cells survive both ways.
TEST(ZebConvert, EncodedToRawAndBackKeepsTheCells) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    d.SetHeaderInt(zebhdr::kCylinders, 1);
    const uint8_t kCells[] = {0x88, 0xAA, 0x92, 0x94};
    const Bytes pick = dectest::Pattern(20833, 11);
    for (size_t i = 0; i < pick.size(); i++) d.GetTrackData(0, 1)[i] = kCells[pick[i] & 3];
    d.SetRecordInt(1, zebrec::kBitLength, 166664);
    const Bytes orig(d.GetTrackData(0, 1), d.GetTrackData(0, 1) + 20833);
    ASSERT_TRUE(d.ConvertRaw());
    EXPECT_EQ(std::tuple(d.Type(), d.Rate(), d.BlockSize(), d.GetTrackLen(0, 1)),
              std::tuple(ZEB_RAW, 8000, 262144, 166664 * 8));
    ASSERT_TRUE(d.ConvertEnc());
    ASSERT_EQ(std::tuple(d.Type(), d.Rate(), d.GetTrackLen(0, 1)),
              std::tuple(ZEB_2HD, 1000, 166664));
    EXPECT_TRUE(Bytes(d.GetTrackData(0, 1), d.GetTrackData(0, 1) + 20833) == orig);
}

}  // namespace
