#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "formats_testutil.h"
#include "vdisk/vdisk.h"
#include "vdisk_testutil.h"

using namespace fmtest;

namespace {

constexpr size_t kHeader = 0x10A10;
constexpr size_t kTable = 0x120;

size_t Entry(int t, int i) {
    return kTable + (static_cast<size_t>(t) * 26 + i) * 16;
}

// An image under construction: header with an empty table, data appended in
// table order (callers add sectors in that order).
struct NfdBuilder {
    std::vector<uint8_t> b;
    explicit NfdBuilder(const char* sig = "T98FDDIMAGE.R0", uint8_t heads = 2) : b(kHeader, 0) {
        std::memcpy(b.data(), sig, std::strlen(sig));
        Put32(b, 0x110, kHeader);
        b[0x115] = heads;
        for (int t = 0; t < 163; t++)
            for (int i = 0; i < 26; i++) std::fill_n(b.begin() + Entry(t, i), 11, 0xFF);
    }
    void Add(int t, int i, int c, int h, int r, int n, const std::vector<uint8_t>& data,
             uint8_t media = 0x90, bool deleted = false, bool mfm = true) {
        const size_t e = Entry(t, i);
        const uint8_t bytes[6] = {static_cast<uint8_t>(c),
                                  static_cast<uint8_t>(h),
                                  static_cast<uint8_t>(r),
                                  static_cast<uint8_t>(n),
                                  mfm,
                                  deleted};
        std::memcpy(&b[e], bytes, 6);
        std::fill_n(b.begin() + e + 6, 4, 0);
        b[e + 10] = media;
        b.insert(b.end(), data.begin(), data.end());
    }
    void FillTracks(int tracks, uint8_t media) {
        for (int t = 0; t < tracks; t++) Add(t, 0, t / 2, t % 2, 1, 0, Pattern(128, t), media);
    }
};

}  // namespace

TEST(NfdImport, ReadsSequentialDataNameAndProtection) {
    NfdBuilder f;
    std::memcpy(&f.b[0x10], "NFD COMMENT", 11);
    f.b[0x114] = 1;
    const auto d0 = Pattern(512, 1), d1 = Pattern(128, 2), d2 = Pattern(16384, 3);
    f.Add(0, 0, 0, 0, 1, 2, d0, 0x90);
    f.Add(0, 1, 0, 0, 2, 0, d1, 0x90, true, false);
    f.Add(1, 0, 0, 1, 5, 7, d2, 0x90);
    const std::string file = WriteFile("nfd_read_crafted.nfd", f.b);
    VDisk d;
    ASSERT_EQ(d.ImportNFD(PathOf(file)), 1);
    EXPECT_EQ(d.type, VDISK_2HD);
    EXPECT_EQ(d.cylinders, 1);
    EXPECT_EQ(d.heads, 2);
    EXPECT_STREQ(d.name, "NFD COMMENT");
    EXPECT_EQ(d.writeProtect, 1);

    const VSector* s = d.Track(0, 0)->sectors;
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->mfm, 1);
    EXPECT_EQ(s->idR, 1);
    EXPECT_EQ(s->gap2, 22);
    EXPECT_EQ(s->gap3, 84);
    EXPECT_EQ(s->status, 0);
    ASSERT_EQ(s->length, 512);
    EXPECT_EQ(std::memcmp(s->data, d0.data(), 512), 0);
    s = s->next;
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->mfm, 0);
    EXPECT_EQ(s->gap2, 11);
    EXPECT_EQ(s->gap3, 27);
    EXPECT_EQ(s->status, SECT_DELETED);
    ASSERT_EQ(s->length, 128);
    EXPECT_EQ(std::memcmp(s->data, d1.data(), 128), 0);
    EXPECT_EQ(d.Track(0, 0)->fmCount, 1);
    s = d.Track(0, 1)->sectors;
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->idH, 1);
    EXPECT_EQ(s->idR, 5);
    EXPECT_EQ(s->gap3, 116);
    ASSERT_EQ(s->length, 16384);
    EXPECT_EQ(std::memcmp(s->data, d2.data(), 16384), 0);

    f.b[0x114] = 0;
    const std::string ro = WriteFile("nfd_read_only.nfd", f.b);
    ASSERT_EQ(d.ImportNFD(PathOf(ro)), 1);
    EXPECT_EQ(d.writeProtect, 0);
    chmod(ro.c_str(), 0444);
    ASSERT_EQ(d.ImportNFD(PathOf(ro)), 1);
    EXPECT_EQ(d.writeProtect, 1);
    Remove(ro);
}

TEST(NfdImport, MediaCodeAndGeometry) {
    struct Case {
        int usedTracks;
        uint8_t media;
        int type;  // 0: rejected
        int cylinders;
    };
    const Case cases[] = {
        {84, 0x10, 1, 42},  {86, 0x10, 3, 43}, {163, 0x10, 3, 82}, {4, 0x30, 7, 2},
        {163, 0x90, 7, 82}, {4, 0x20, 0, 0},   {4, 0x00, 0, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.usedTracks * 1000 + k.media);
        NfdBuilder f;
        f.FillTracks(k.usedTracks, k.media);
        VDisk d;
        ASSERT_EQ(d.ImportNFD(PathOf(WriteFile("nfd_geometry.nfd", f.b))), k.type ? 1 : 0);
        if (!k.type) continue;
        EXPECT_EQ(d.type, k.type);
        EXPECT_EQ(d.cylinders, k.cylinders);
        if (k.cylinders == 82) {
            EXPECT_EQ(d.Track(81, 1)->sectors, nullptr);
        }
        // The last track read got the data that follows every earlier one.
        const int t = std::min(k.usedTracks, 2 * k.cylinders) - 1;
        const auto want = Pattern(128, t);
        const VSector* s = d.Track(t / 2, t % 2)->sectors;
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(std::memcmp(s->data, want.data(), 128), 0);
    }
}

TEST(NfdImport, RejectsBadFiles) {
    NfdBuilder good;
    good.Add(0, 0, 0, 0, 1, 3, Pattern(1024, 1));
    good.Add(1, 0, 0, 1, 1, 3, Pattern(1024, 2));
    std::vector<uint8_t> shortData = good.b;
    shortData.resize(shortData.size() - 1);
    std::vector<uint8_t> bigN = good.b;
    bigN[Entry(1, 0) + 3] = 7;
    const std::vector<uint8_t> cases[] = {
        std::vector<uint8_t>(good.b.begin(), good.b.begin() + kHeader - 1),
        NfdBuilder("T98FDDIMAGE.R1").b,
        NfdBuilder("T98FDDIMAGE.R0", 1).b,
        shortData,
        bigN,
    };
    for (size_t i = 0; i < std::size(cases); i++) {
        SCOPED_TRACE(i);
        VDisk d;
        EXPECT_EQ(d.ImportNFD(PathOf(WriteFile("nfd_reject.nfd", cases[i]))), 0);
    }
    VDisk d;
    EXPECT_EQ(d.ImportNFD(PathOf(WriteFile("nfd_good.nfd", good.b))), 1);
}

TEST(NfdExport, HeaderEntriesMediaCodesAndCylinderLimit) {
    struct Case {
        int type;
        int cyls;
        int count;
        int n;
        int gap3;
        uint8_t media;
        int written;
    };
    const Case cases[] = {
        {7, 84, 18, 2, 84, 0x30, 82},  // estimate 12,056
        {7, 77, 8, 3, 116, 0x90, 77},  // estimate 9,828
        {3, 80, 9, 2, 84, 0x10, 80},
        {1, 40, 16, 1, 54, 0x10, 40},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.media);
        VDisk d;
        FillUniformDisk(d, k.type, k.cyls, k.count, k.n, k.gap3);
        std::strcpy(d.name, "NFD OUT");
        d.Track(0, 0)->sectors->status = SECT_DELETED | SECT_DATACRC;
        const std::string file = ScratchFile("nfd_write.nfd");
        ASSERT_EQ(d.ExportNFD(PathOf(file)), 1);
        const auto b = ReadFile(file);
        const size_t len = 128u << k.n;
        // Cylinder 81 head 1 has no room in the table.
        const int tracks = std::min(2 * k.written, 163);
        const int lastT = tracks - 1;
        ASSERT_EQ(b.size(), kHeader + static_cast<size_t>(tracks) * k.count * len);
        EXPECT_EQ(std::memcmp(b.data(), "T98FDDIMAGE.R0\0\0", 16), 0);
        EXPECT_STREQ(reinterpret_cast<const char*>(&b[0x10]), "NFD OUT");
        EXPECT_EQ(Get32(b, 0x110), kHeader);
        EXPECT_EQ(b[0x114], 0);
        EXPECT_EQ(b[0x115], 2);
        EXPECT_TRUE(std::all_of(&b[0x116], &b[0x120], [](uint8_t v) { return v == 0; }));
        EXPECT_TRUE(std::all_of(&b[0x10A00], &b[kHeader], [](uint8_t v) { return v == 0; }));
        for (int t : {0, 1, lastT}) {
            for (int i = 0; i < 26; i++) {
                const size_t e = Entry(t, i);
                if (i < k.count) {
                    const uint8_t want[16] = {static_cast<uint8_t>(t / 2),
                                              static_cast<uint8_t>(t % 2),
                                              static_cast<uint8_t>(i + 1),
                                              static_cast<uint8_t>(k.n),
                                              1,
                                              t == 0 && i == 0,
                                              0,
                                              static_cast<uint8_t>(t % 2 ? 4 : 0),
                                              0,
                                              0,
                                              k.media,
                                              0,
                                              0,
                                              0,
                                              0,
                                              0};
                    ASSERT_EQ(std::memcmp(&b[e], want, 16), 0) << t << " " << i;
                } else {
                    ASSERT_TRUE(
                        std::all_of(&b[e], &b[e + 11], [](uint8_t v) { return v == 0xFF; }));
                    ASSERT_TRUE(
                        std::all_of(&b[e + 11], &b[e + 16], [](uint8_t v) { return v == 0; }));
                }
            }
        }
        const auto last = Pattern(static_cast<int>(len),
                                  static_cast<unsigned>(lastT / 2 * 64 + lastT % 2 * 32 + k.count));
        EXPECT_TRUE(std::equal(last.begin(), last.end(), b.end() - static_cast<long>(len)));
    }
}

TEST(NfdExport, RefusesTracksOfMoreThan26Sectors) {
    VDisk d;
    d.Init(VDISK_2HD, 2, 2);
    for (int r = 1; r <= 27; r++)
        d.Track(0, 1)->AddSector(NewSector(1, 0, 1, r, 0, Pattern(128, r), 24));
    const std::string file = ScratchFile("nfd_27.nfd");
    Remove(file);
    EXPECT_EQ(d.ExportNFD(PathOf(file)), 0);
    EXPECT_FALSE(Exists(file));
}

TEST(NfdRoundTrip, MixedSizesDensitiesAndDeletedMarks) {
    VDisk src;
    src.Init(VDISK_2HD, 77, 2);
    std::strcpy(src.name, "ROUND TRIP");
    for (int c = 0; c < 77; c++)
        for (int h = 0; h < 2; h++)
            for (int r = 1; r <= 5; r++) {
                const int n = (c + h + r) % 4;
                const int mfm = (c % 5) != 0;
                src.Track(c, h)->AddSector(
                    NewSector(mfm, c, h, r, n, Pattern(128 << n, c * 8 + h * 4 + r),
                              mfm ? Gap3MFM[n] : Gap3FM[n], r == 4 ? SECT_DELETED : 0));
            }
    const std::string file = ScratchFile("nfd_roundtrip.nfd");
    ASSERT_EQ(src.ExportNFD(PathOf(file)), 1);
    VDisk back;
    ASSERT_EQ(back.ImportNFD(PathOf(file)), 1);
    EXPECT_EQ(back.type, 7);
    EXPECT_EQ(back.cylinders, 77);
    EXPECT_STREQ(back.name, "ROUND TRIP");
    vdtest::ExpectSameSectors(src, back, 77);
}

TEST(NfdImport, SurvivesDamagedTables) {
    NfdBuilder f;
    for (int t = 0; t < 4; t++) {
        f.Add(t, 0, t / 2, t % 2, 1, 1, Pattern(256, t));
        f.Add(t, 1, t / 2, t % 2, 2, 0, Pattern(128, t), 0x90, true, false);
    }
    ImportDamaged(&VDisk::ImportNFD, f.b, 0x110, Entry(5, 0), "nfd_damaged.nfd", 400);
}
