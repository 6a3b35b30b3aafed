#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "signal/rawconv.h"
#include "zebdisk/zebdisk.h"

namespace {

// Writes a cell stream of exactly len cells whose transitions are 2 to 4 cells
// apart, also across the end, into a track's data.
void FillCells(uint8_t* data, int len, std::mt19937& rng) {
    std::memset(data, 0, static_cast<size_t>(len + 7) / 8);
    int p = static_cast<int>(rng() % 2);
    const int first = p;
    while (true) {
        data[p / 8] = static_cast<uint8_t>(data[p / 8] | (0x80 >> (p % 8)));
        const int g = 2 + static_cast<int>(rng() % 3);
        const int left = len + first - (p + g);  // gap still to close the loop
        if (left < 2) break;
        if (left <= 4) {
            p += g;
            if (p < len) data[p / 8] = static_cast<uint8_t>(data[p / 8] | (0x80 >> (p % 8)));
            break;
        }
        p += g;
    }
}

std::vector<uint8_t> Bits(const uint8_t* data, int len) {
    std::vector<uint8_t> v(static_cast<size_t>(len + 7) / 8);
    std::memcpy(v.data(), data, v.size());
    if (len % 8) v.back() = static_cast<uint8_t>(v.back() & (0xFF00 >> (len % 8)));
    return v;
}

TEST(ZebConvert, RefusesTheWrongForm) {
    ZEBDisk empty;
    EXPECT_FALSE(empty.ConvertRaw());
    EXPECT_FALSE(empty.ConvertEnc());

    ZEBDisk raw;
    ASSERT_TRUE(raw.Init(ZEB_2HD, 0, 0, 1));
    const auto before = raw.track[5];
    EXPECT_FALSE(raw.ConvertRaw());
    EXPECT_EQ(raw.Type(), ZEB_RAW);
    EXPECT_EQ(raw.Rate(), 8000);
    EXPECT_EQ(raw.track[5], before);

    ZEBDisk enc;
    ASSERT_TRUE(enc.Init(ZEB_2DD, 0, 0, 0));
    EXPECT_FALSE(enc.ConvertEnc());
    EXPECT_EQ(enc.Type(), ZEB_2DD);
    EXPECT_EQ(enc.Rate(), 500);
}

TEST(ZebConvert, RawStretchesOnlyTracksPastTheLimit) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    std::mt19937 rng(10);
    // 2DD at 500 kbit/s and 300 rpm: N = 800000 samples, limit 804000.
    const int lens[] = {101250, 100375, 100000};
    for (int s = 0; s < 3; s++) {
        FillCells(d.track[s].data() + zebrec::kData, lens[s], rng);
        d.SetRecordInt(s, zebrec::kBitLength, lens[s]);
    }
    d.SetRecordInt(2, zebrec::kIndexOffset, 77);  // carried over as it is
    std::vector<std::vector<uint8_t>> cells;
    for (int s = 0; s < 3; s++)
        cells.emplace_back(d.track[s].begin() + zebrec::kData, d.track[s].end());
    std::fill(std::begin(d.updated), std::end(d.updated), 0);

    ASSERT_TRUE(d.ConvertRaw());
    EXPECT_EQ(d.Type(), ZEB_RAW);
    EXPECT_EQ(d.Rate(), 4000);
    EXPECT_EQ(d.BlockSize(), 131072);
    EXPECT_EQ(d.Rpm(), 300);
    EXPECT_EQ(d.Cylinders(), 84);
    EXPECT_EQ(d.GetTrackLen(0, 0), 804000);
    EXPECT_EQ(d.GetTrackLen(0, 1), 803000);
    EXPECT_EQ(d.GetTrackLen(1, 0), 800000);
    EXPECT_EQ(d.RecordInt(2, zebrec::kIndexOffset), 77);
    EXPECT_EQ(d.RecordInt(3, zebrec::kCylinder), 1);
    EXPECT_EQ(d.RecordInt(3, zebrec::kHead), 1);
    EXPECT_EQ(d.RecordDataSize(0), 131072 - 16);
    EXPECT_EQ(d.updated[0] + d.updated[167], 2);

    const int cap = (131072 - 16) * 8;
    std::vector<uint8_t> want(cap / 8);
    Encode2Raw(cells[0].data(), 101250, want.data(), cap);
    StrechRaw(want.data(), 810000, 804000);
    EXPECT_EQ(Bits(d.GetTrackData(0, 0), 804000), Bits(want.data(), 804000));
    Encode2Raw(cells[1].data(), 100375, want.data(), cap);
    EXPECT_EQ(Bits(d.GetTrackData(0, 1), 803000), Bits(want.data(), 803000));
}

TEST(ZebConvert, EncodedFormFollowsTheRawRate) {
    struct Case {
        int rawRate, cylinders, type, rate, block;
    };
    const Case cases[] = {
        {8000, 84, ZEB_2HD, 1000, 32768}, {4000, 84, ZEB_2DD, 500, 16384},
        {4000, 42, ZEB_2D, 500, 16384},   {8001, 84, ZEB_2DD, 1000, 32768},
        {8007, 42, ZEB_2D, 1000, 32768},  {8008, 84, ZEB_2DD, 1001, 16384},
    };
    for (const Case& c : cases) {
        ZEBDisk d;
        ASSERT_TRUE(d.Init(c.rawRate == 4000 ? ZEB_2DD : ZEB_2HD, 0, 0, 1));
        d.SetHeaderInt(zebhdr::kRate, c.rawRate);
        d.SetHeaderInt(zebhdr::kCylinders, c.cylinders);
        const auto outside = d.track[2 * 50];
        ASSERT_TRUE(d.ConvertEnc());
        EXPECT_EQ(d.Type(), c.type) << c.rawRate;
        EXPECT_EQ(d.Rate(), c.rate) << c.rawRate;
        EXPECT_EQ(d.BlockSize(), c.block) << c.rawRate;
        EXPECT_EQ(d.RecordDataSize(0), c.block - 16);
        // A blank raw track has no edge: its length in cells, all zero, cut to
        // what the record holds.
        EXPECT_EQ(d.GetTrackLen(3, 1),
                  std::min((c.rawRate == 4000 ? 800000 : 1333333) / 8, (c.block - 16) * 8));
        EXPECT_EQ(d.GetTrackData(3, 1)[100], 0);
        // Slots outside the geometry keep their records.
        if (c.cylinders == 42) {
            EXPECT_EQ(d.track[2 * 50], outside);
        } else {
            EXPECT_EQ(d.RecordDataSize(2 * 50), c.block - 16);
        }
    }
}

TEST(ZebConvert, EncodedToRawAndBackKeepsValidTracks) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    std::mt19937 rng(11);
    std::vector<std::vector<uint8_t>> orig;
    std::vector<int> lens;
    for (int s = 0; s < ZEBDisk::kSlots; s++) {
        const int len = 166666 - static_cast<int>(rng() % 300);
        FillCells(d.track[s].data() + zebrec::kData, len, rng);
        d.SetRecordInt(s, zebrec::kBitLength, len);
        lens.push_back(len);
        orig.push_back(Bits(d.track[s].data() + zebrec::kData, len));
    }
    ASSERT_TRUE(d.ConvertRaw());
    EXPECT_EQ(d.GetTrackLen(0, 0), lens[0] * 8);
    ASSERT_TRUE(d.ConvertEnc());
    EXPECT_EQ(d.Type(), ZEB_2HD);
    EXPECT_EQ(d.Rate(), 1000);
    for (int s = 0; s < ZEBDisk::kSlots; s++) {
        ASSERT_EQ(d.GetTrackLen(s / 2, s % 2), lens[s]) << s;
        ASSERT_EQ(Bits(d.GetTrackData(s / 2, s % 2), lens[s]), orig[s]) << s;
    }
    // Raw again: the same type, rate and record rule as the direct conversion.
    ASSERT_TRUE(d.ConvertRaw());
    EXPECT_EQ(d.Type(), ZEB_RAW);
    EXPECT_EQ(d.Rate(), 8000);
    EXPECT_EQ(d.BlockSize(), 262144);
}

TEST(ZebConvert, HostileLengthsStayInsideTheRecords) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    // Claims more bits than its record holds: only the held bits are read.
    std::memset(d.GetTrackData(0, 0), 0x88, static_cast<size_t>(d.RecordDataSize(0)));
    d.SetRecordInt(0, zebrec::kBitLength, 0x7FFFFFFF);
    d.SetRecordInt(1, zebrec::kBitLength, -5);
    // A record far longer than one raw record: squeezed to the limit.
    d.track[2].assign(16 + 400000, 0x88);
    d.SetRecordInt(2, zebrec::kBitLength, 400000 * 8);
    ASSERT_TRUE(d.ConvertRaw());
    const int cap = (262144 - 16) * 8;
    EXPECT_EQ(d.GetTrackLen(0, 0), std::min((32768 - 16) * 8 * 8, 1333333 + 1333333 / 200));
    EXPECT_EQ(d.GetTrackLen(0, 1), 0);
    EXPECT_EQ(d.GetTrackLen(1, 0), 1333333 + 6666);
    EXPECT_LE(d.GetTrackLen(1, 0), cap);

    // Raw tracks that claim too much, or separate into more cells than fit.
    d.track[4].assign(16 + 300000, 0x80);
    d.SetRecordInt(4, zebrec::kBitLength, 0x7FFFFFFF);
    ASSERT_TRUE(d.ConvertEnc());
    EXPECT_EQ(d.GetTrackLen(2, 0), (32768 - 16) * 8);
    EXPECT_LE(d.GetTrackLen(0, 1), (32768 - 16) * 8);
}

}  // namespace
