#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

int Bit(const uint8_t* d, int64_t p) {
    return (d[p >> 3] >> (7 - (p & 7))) & 1;
}

}  // namespace

TEST(ZEBDiskFile, InitMakesBlankDiskOfEachType) {
    struct Case {
        int type, raw;
        int wantType, cylinders, rate, rpm, block, bits;
    };
    const Case cases[] = {
        {ZEB_2D, 0, ZEB_2D, 42, 500, 300, 16384, 100000},
        {ZEB_2DD, 0, ZEB_2DD, 84, 500, 300, 16384, 100000},
        {ZEB_2HD, 0, ZEB_2HD, 84, 1000, 360, 32768, 166666},
        {ZEB_2D, 1, ZEB_RAW, 42, 4000, 300, 131072, 800000},
        {ZEB_2DD, 1, ZEB_RAW, 84, 4000, 300, 131072, 800000},
        {ZEB_2HD, 1, ZEB_RAW, 84, 8000, 360, 262144, 1333333},
    };
    ZEBDisk d;
    for (const Case& k : cases) {
        SCOPED_TRACE(k.type * 10 + k.raw);
        ASSERT_TRUE(d.Init(k.type, 0, 0, k.raw));
        EXPECT_EQ(d.initialized, 1);
        EXPECT_EQ(d.readOnly, 0);
        EXPECT_EQ(std::memcmp(d.header, "ZEB\3BLANK IMAGE", 16), 0);
        EXPECT_EQ(d.Type(), k.wantType);
        EXPECT_EQ(d.Cylinders(), k.cylinders);
        EXPECT_EQ(d.Heads(), 2);
        EXPECT_EQ(d.Rate(), k.rate);
        EXPECT_EQ(d.Rpm(), k.rpm);
        EXPECT_EQ(d.BlockSize(), k.block);
        for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
            ASSERT_EQ(d.RecordDataSize(slot), k.block - 16);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kCylinder), slot / 2);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kHead), slot % 2);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kIndexOffset), 0);
            EXPECT_EQ(d.updated[slot], 1);
        }
        EXPECT_EQ(d.GetTrackLen(83, 1), k.bits);
        char name[60];
        EXPECT_STREQ(d.GetName(name), "BLANK IMAGE");
    }
    EXPECT_TRUE(d.Init(ZEB_2DD, 250, 360, 0));
    EXPECT_EQ(d.GetTrackLen(0, 0), 41666);
    EXPECT_EQ(d.Rate(), 250);

    EXPECT_FALSE(d.Init(5, 0, 0, 0));
    EXPECT_EQ(d.initialized, 0);
    EXPECT_EQ(d.GetTrackData(0, 0), nullptr);
    EXPECT_FALSE(d.Init(ZEB_RAW, 0, 0, 0));
    EXPECT_FALSE(d.Init(ZEB_2DD, -1, 0, 0));
    // A track that would not fit its buffer.
    EXPECT_FALSE(d.Init(ZEB_2DD, 2000, 300, 0));
    EXPECT_EQ(d.initialized, 0);
}

TEST(ZEBDiskFile, NamesAreCutAt59) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    std::string longName(70, 'Q');
    d.SetName(longName.c_str());
    char name[60];
    EXPECT_EQ(std::string(d.GetName(name)), std::string(59, 'Q'));
    EXPECT_EQ(d.header[4 + 59], 0);
    d.SetName("AB");
    EXPECT_STREQ(d.GetName(name), "AB");
    EXPECT_EQ(d.header[4 + 3], 0);  // the rest of the field is cleared
    // An unterminated name in a header still comes back terminated.
    std::memset(d.header + 4, 'Z', 60);
    EXPECT_EQ(std::string(d.GetName(name)), std::string(59, 'Z'));
}

TEST(ZEBDiskFile, SaveBlockSizeFollowsLongestTrack) {
    struct Case {
        int type, raw, cylinders, block;
    };
    const Case cases[] = {
        {ZEB_2HD, 0, 84, 20992},   // 166666 bits -> 20834 bytes
        {ZEB_2DD, 1, 84, 100352},  // 800000 bits -> 100000 bytes
        {ZEB_2D, 0, 42, 12800},    // 100000 bits -> 12500 bytes
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.block);
        ZEBDisk d;
        ASSERT_TRUE(d.Init(k.type, 0, 0, k.raw));
        const std::string name = "zf_block_" + std::to_string(k.block) + ".zeb";
        ASSERT_TRUE(d.Save(PathOf(name), 1));
        EXPECT_EQ(d.BlockSize(), k.block);
        const Bytes f = Slurp(name);
        ASSERT_EQ(f.size(), 256u + static_cast<size_t>(k.cylinders) * 2 * k.block);
        EXPECT_EQ(Le32(f, 100), k.block);
        const size_t last = 256 + static_cast<size_t>(k.cylinders * 2 - 1) * k.block;
        EXPECT_EQ(Le32(f, last), k.cylinders - 1);
        EXPECT_EQ(Le32(f, last + 4), 1);
        EXPECT_EQ(Le32(f, last + 12), d.GetTrackLen(0, 0));
        for (int slot = 0; slot < k.cylinders * 2; slot++) EXPECT_EQ(d.updated[slot], 0);
    }

    // One longer track widens every block.
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    d.SetRecordInt(5, zebrec::kBitLength, 130000);  // 16250 bytes -> 16384
    ASSERT_TRUE(d.Save(PathOf("zf_block_long.zeb"), 1));
    EXPECT_EQ(d.BlockSize(), 16384);
}

TEST(ZEBDiskFile, SaveRefusesWhatItCannotWrite) {
    ZEBDisk d;
    EXPECT_FALSE(d.Save(PathOf("zf_uninit.zeb"), 1));
    ASSERT_TRUE(d.Init(ZEB_2D, 0, 0, 0));
    EXPECT_FALSE(d.Save(PathOf("zf_wrong_ext.d88"), 1));
    EXPECT_FALSE(d.Save(Filepath(), 1));
    EXPECT_FALSE(d.Save(PathOf("zf_missing_dir/x.zeb"), 1));
    EXPECT_FALSE(d.Save(PathOf("zf_partial_missing.zeb"), 0));
    EXPECT_EQ(std::fopen("zf_wrong_ext.d88", "rb"), nullptr);
}

TEST(ZEBDiskFile, SaveAndLoadRoundTrip) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    d.SetName("ROUND TRIP");
    d.SetHeaderInt(zebhdr::kWriteProtect, 1);
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        uint8_t* data = d.GetTrackData(slot / 2, slot % 2);
        ASSERT_NE(data, nullptr);
        for (size_t i = 0; i < 20834; i++) data[i] = Pattern(slot, i);
    }
    ASSERT_TRUE(d.Save(PathOf("zf_round.ZEB"), 1));

    ZEBDisk e;
    ASSERT_TRUE(e.Load(PathOf("zf_round.ZEB"), 0));
    EXPECT_EQ(e.initialized, 1);
    EXPECT_EQ(e.readOnly, 0);
    EXPECT_EQ(std::memcmp(d.header, e.header, zebhdr::kSize), 0);
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        ASSERT_EQ(e.RecordDataSize(slot), 20992 - 16);
        EXPECT_EQ(e.GetTrackLen(slot / 2, slot % 2), 166666);
        EXPECT_EQ(std::memcmp(e.GetTrackData(slot / 2, slot % 2),
                              d.GetTrackData(slot / 2, slot % 2), 20834),
                  0);
    }

    // Saving the loaded disk again gives the same file.
    std::remove("zf_round2.zeb");
    ASSERT_TRUE(e.Save(PathOf("zf_round2.zeb"), 1));
    EXPECT_EQ(Slurp("zf_round.ZEB"), Slurp("zf_round2.zeb"));

    // A file without the owner-write bit loads read-only.
    ASSERT_EQ(chmod("zf_round2.zeb", 0444), 0);
    ASSERT_TRUE(e.Load(PathOf("zf_round2.zeb"), 0));
    EXPECT_EQ(e.readOnly, 1);
}

TEST(ZEBDiskFile, LoadsVersion1AndUpgradesIt) {
    ZebFile z;
    z.version = 1;
    z.cylinders = 40;
    z.heads = 1;
    z.rate = 250;  // data rate
    z.block = 12800;
    z.v1Bytes = 12500;
    ASSERT_TRUE(Spit("zf_v1.zeb", z.Build()));

    ZEBDisk d;
    ASSERT_TRUE(d.Load(PathOf("zf_v1.zeb"), 0));
    EXPECT_EQ(d.header[zebhdr::kVersion], 3);
    EXPECT_EQ(d.Rate(), 500);
    EXPECT_EQ(d.HeaderInt(zebhdr::kTrackLenV1), 0);
    EXPECT_EQ(d.Cylinders(), 42);
    EXPECT_EQ(d.Heads(), 2);
    EXPECT_EQ(d.BlockSize(), 12800);
    for (int c = 0; c < 42; c++) {
        for (int h = 0; h < 2; h++) {
            const int slot = c * 2 + h;
            SCOPED_TRACE(slot);
            ASSERT_EQ(d.RecordDataSize(slot), 12784);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kCylinder), c);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kHead), h);
            EXPECT_EQ(d.GetTrackLen(c, h), 100000);
            const uint8_t* data = d.GetTrackData(c, h);
            if (h == 0 && c < 40) {
                EXPECT_EQ(data[0], Pattern(slot, 0));
                EXPECT_EQ(data[12783], Pattern(slot, 12783));
            } else {
                EXPECT_EQ(Bytes(data, data + 12784), Bytes(12784, 0));
            }
        }
    }
    EXPECT_EQ(d.GetTrackData(42, 0), nullptr);
}

TEST(ZEBDiskFile, LoadsVersion2InBytesAndRotates) {
    ZebFile z;
    z.version = 2;
    z.cylinders = 43;  // normalises to 84
    z.heads = 2;
    z.rate = 250;
    z.block = 12800;
    z.bitLength = 12500;  // bytes
    z.indexOffset = 3;    // bytes
    ASSERT_TRUE(Spit("zf_v2.zeb", z.Build()));

    ZEBDisk d;
    ASSERT_TRUE(d.Load(PathOf("zf_v2.zeb"), 0));
    EXPECT_EQ(d.header[zebhdr::kVersion], 3);
    EXPECT_EQ(d.Rate(), 500);
    EXPECT_EQ(d.Cylinders(), 84);
    EXPECT_EQ(d.GetTrackLen(0, 1), 100000);
    EXPECT_EQ(d.RecordInt(1, zebrec::kIndexOffset), 0);
    const uint8_t* data = d.GetTrackData(0, 1);
    EXPECT_EQ(data[0], Pattern(1, 3));
    EXPECT_EQ(data[12496], Pattern(1, 12499));
    EXPECT_EQ(data[12497], Pattern(1, 0));
    EXPECT_EQ(data[12499], Pattern(1, 2));
    EXPECT_EQ(data[12500], Pattern(1, 12500));  // past the track: untouched
    EXPECT_EQ(d.GetTrackLen(83, 1), 100000);
    EXPECT_EQ(d.GetTrackData(83, 1)[0], 0);
}

TEST(ZEBDiskFile, Version3RotationMatchesBitwiseReference) {
    struct Case {
        int len, offset;
    };
    const Case cases[] = {{100000, 1}, {99997, 12345}, {99997, 99996}, {77, 5}, {9, 8}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.offset);
        ZebFile z;
        z.cylinders = 1;
        z.heads = 1;
        z.rate = 1;
        z.rpm = 60000;
        z.bitLength = k.len;
        z.indexOffset = k.offset;
        const Bytes file = z.Build();
        ASSERT_TRUE(Spit("zf_rot.zeb", file));
        ZEBDisk d;
        ASSERT_TRUE(d.Load(PathOf("zf_rot.zeb"), 0));
        ASSERT_EQ(d.GetTrackLen(0, 0), k.len);
        EXPECT_EQ(d.RecordInt(0, zebrec::kIndexOffset), 0);
        const uint8_t* in = file.data() + 256 + 16;
        const uint8_t* out = d.GetTrackData(0, 0);
        int wrong = 0;
        for (int i = 0; i < k.len; i++) wrong += Bit(out, i) != Bit(in, (i + k.offset) % k.len);
        EXPECT_EQ(wrong, 0);
        for (int i = k.len; i % 8; i++) EXPECT_EQ(Bit(out, i), 0);
    }
}

TEST(ZEBDiskFile, RefusesHostileHeaders) {
    for (const HostileZeb& k : HostileZebCases()) {
        SCOPED_TRACE(k.what);
        ASSERT_TRUE(Spit("zf_hostile.zeb", HostileZebFile(k)));
        ZEBDisk d;
        ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
        EXPECT_FALSE(d.Load(PathOf("zf_hostile.zeb"), 0));
        EXPECT_EQ(d.initialized, 0);
        for (int slot = 0; slot < ZEBDisk::kSlots; slot++) ASSERT_TRUE(d.track[slot].empty());
    }

    // The unmodified file loads, so each case above fails for its own reason.
    ZebFile good;
    ASSERT_TRUE(Spit("zf_hostile.zeb", good.Build()));
    ZEBDisk d;
    EXPECT_TRUE(d.Load(PathOf("zf_hostile.zeb"), 0));
    // A header alone, or no file at all, is refused.
    ASSERT_TRUE(Spit("zf_short.zeb", Bytes(100, 0)));
    EXPECT_FALSE(d.Load(PathOf("zf_short.zeb"), 0));
    EXPECT_FALSE(d.Load(PathOf("zf_none.zeb"), 0));
    ASSERT_TRUE(Spit("zf_good.d88", good.Build()));
    EXPECT_FALSE(d.Load(PathOf("zf_good.d88"), 0));
    EXPECT_EQ(d.initialized, 0);
}

TEST(ZEBDiskFile, WrongSignatureAndUnknownTypeAreAccepted) {
    ZebFile z;
    z.type = 5;
    Bytes file = z.Build();
    file[0] = 'X';
    ASSERT_TRUE(Spit("zf_sig.zeb", file));
    ZEBDisk d;
    ASSERT_TRUE(d.Load(PathOf("zf_sig.zeb"), 0));
    EXPECT_EQ(d.Type(), 5);
    EXPECT_EQ(d.header[0], 'X');
}

TEST(ZEBDiskFile, PartialSaveWritesOnlyFlaggedTracks) {
    std::remove("zf_partial.zeb");  // a previous run leaves it read-only
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    ASSERT_TRUE(d.Save(PathOf("zf_partial.zeb"), 1));
    const Bytes before = Slurp("zf_partial.zeb");
    const size_t block = 12800;
    ASSERT_EQ(before.size(), 256 + 168 * block);

    // Change two tracks, flag only one of them.
    d.GetTrackData(10, 1)[0] = 0xA5;
    d.GetTrackData(10, 1)[12483] = 0x5A;
    d.UpdateTrack(10, 1);
    d.GetTrackData(20, 0)[0] = 0xFF;
    d.SetName("PARTIAL");
    ASSERT_TRUE(d.Save(PathOf("zf_partial.zeb"), 0));
    EXPECT_EQ(d.updated[21], 0);

    const Bytes after = Slurp("zf_partial.zeb");
    ASSERT_EQ(after.size(), before.size());
    size_t changed = 0;
    for (size_t i = 0; i < after.size(); i++) {
        if (after[i] == before[i]) continue;
        changed++;
        const bool inName = i >= 4 && i < 64;
        const bool inTrack = i >= 256 + 21 * block && i < 256 + 22 * block;
        EXPECT_TRUE(inName || inTrack) << "byte " << i;
    }
    EXPECT_EQ(changed, 2u + std::strlen("BLANK IMAGE"));  // every old name byte differs
    EXPECT_EQ(after[256 + 21 * block + 16], 0xA5);

    // Without the owner-write bit the partial save is refused.
    ASSERT_EQ(chmod("zf_partial.zeb", 0444), 0);
    d.UpdateTrack(20, 0);
    EXPECT_FALSE(d.Save(PathOf("zf_partial.zeb"), 0));
    EXPECT_EQ(Slurp("zf_partial.zeb"), after);
}

TEST(ZEBDiskFile, RecordAccessorsStayInBounds) {
    ZEBDisk d;
    EXPECT_EQ(d.GetTrackLen(0, 0), 0);
    EXPECT_EQ(d.GetTrackData(0, 0), nullptr);
    EXPECT_EQ(d.RecordDataSize(0), 0);
    EXPECT_EQ(d.RecordInt(0, zebrec::kBitLength), 0);
    d.NewRecord(7, 100, 3, 1, 555);
    EXPECT_EQ(d.RecordDataSize(7), 84);
    EXPECT_EQ(d.GetTrackLen(3, 1), 555);
    EXPECT_EQ(d.RecordInt(7, zebrec::kCylinder), 3);
    d.SetRecordInt(7, zebrec::kIndexOffset, 9);
    EXPECT_EQ(d.RecordInt(7, zebrec::kIndexOffset), 9);
    EXPECT_EQ(d.RecordInt(7, 96), 0);  // past the record
    d.NewRecord(ZEBDisk::kSlots, 100, 0, 0, 1);
    EXPECT_EQ(d.RecordInt(ZEBDisk::kSlots, 0), 0);
    EXPECT_EQ(d.GetTrackLen(84, 0), 0);
    EXPECT_EQ(d.GetTrackData(-1, 0), nullptr);
    d.SetHeaderInt(zebhdr::kRpm, 0x12345678);
    EXPECT_EQ(d.header[zebhdr::kRpm], 0x78);
    EXPECT_EQ(d.header[zebhdr::kRpm + 3], 0x12);
    EXPECT_EQ(d.HeaderInt(254), 0);
    d.Cleanup();
    EXPECT_EQ(d.RecordDataSize(7), 0);
    EXPECT_EQ(d.Rpm(), 0);
}
