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

constexpr size_t kHeader = 0xC3FC;
constexpr size_t kTable = 0xDC;
constexpr uint32_t kNoData = 0xFFFFFFFF;

size_t Entry(int t, int i) {
    return kTable + (static_cast<size_t>(t) * 26 + i) * 12;
}

// An image under construction: a header with an empty table, data appended.
struct FddBuilder {
    std::vector<uint8_t> b;
    explicit FddBuilder(const char* sig = "VFD1.00") : b(kHeader, 0) {
        std::memcpy(b.data(), sig, std::strlen(sig));
        std::fill(b.begin() + kTable, b.begin() + 0xC3DC, 0xFF);
    }
    // A sector with stored data (data non-empty) or a fill byte.
    void Add(int t, int i, int c, int h, int r, int n, const std::vector<uint8_t>& data,
             uint8_t fill = 0, bool deleted = false, bool mfm = true, bool hd = false) {
        const size_t e = Entry(t, i);
        const uint8_t bytes[8] = {static_cast<uint8_t>(c),
                                  static_cast<uint8_t>(h),
                                  static_cast<uint8_t>(r),
                                  static_cast<uint8_t>(n),
                                  fill,
                                  deleted,
                                  mfm,
                                  hd};
        std::memcpy(&b[e], bytes, 8);
        Put32(b, e + 8, data.empty() ? kNoData : static_cast<uint32_t>(b.size()));
        b.insert(b.end(), data.begin(), data.end());
    }
    // Tracks [0, tracks) each with one fill-byte sector of 128 bytes.
    void FillTracks(int tracks, bool hd) {
        for (int t = 0; t < tracks; t++) Add(t, 0, t / 2, t % 2, 1, 0, {}, 0xE5, false, true, hd);
    }
};

}  // namespace

TEST(FddImport, ReadsSectorsFillBytesNameAndProtection) {
    FddBuilder f("VFD1.01");
    std::memcpy(&f.b[0x08], "CRAFTED DISK", 12);
    Put16(f.b, 0x88, 1);
    const auto d0 = Pattern(256, 1);
    const auto d2 = Pattern(16384, 3);
    f.Add(0, 0, 0, 0, 1, 1, d0, 0, false, true, true);
    f.Add(0, 1, 0, 0, 2, 0, {}, 0xE5, true, false);  // FM, deleted, fill
    f.Add(1, 0, 0, 1, 7, 7, d2);                     // N 7: 16,384 bytes
    f.Add(1, 1, 9, 9, 9, 9, {}, 0x4E);               // N 9 reads as 128 << 7
    const std::string file = WriteFile("fdd_read_crafted.fdd", f.b);
    VDisk d;
    ASSERT_EQ(d.ImportFDD(PathOf(file)), 1);
    EXPECT_EQ(d.type, VDISK_2HD);
    EXPECT_EQ(d.cylinders, 1);  // track 2 unused
    EXPECT_EQ(d.heads, 2);
    EXPECT_STREQ(d.name, "CRAFTED DISK");
    EXPECT_EQ(d.writeProtect, 1);

    const VTrack* t0 = d.Track(0, 0);
    ASSERT_EQ(t0->SectorCount(), 2);
    EXPECT_EQ(t0->fmCount, 1);
    const VSector* s = t0->sectors;
    EXPECT_EQ(s->mfm, 1);
    EXPECT_EQ(s->idR, 1);
    EXPECT_EQ(s->idN, 1);
    EXPECT_EQ(s->gap2, 22);
    EXPECT_EQ(s->gap3, 54);
    EXPECT_EQ(s->status, 0);
    ASSERT_EQ(s->length, 256);
    EXPECT_EQ(std::memcmp(s->data, d0.data(), 256), 0);
    s = s->next;
    EXPECT_EQ(s->mfm, 0);
    EXPECT_EQ(s->gap2, 11);
    EXPECT_EQ(s->gap3, 27);
    EXPECT_EQ(s->status, SECT_DELETED);
    ASSERT_EQ(s->length, 128);
    EXPECT_TRUE(std::all_of(s->data, s->data + 128, [](uint8_t v) { return v == 0xE5; }));

    const VTrack* t1 = d.Track(0, 1);
    ASSERT_EQ(t1->SectorCount(), 2);
    s = t1->sectors;
    EXPECT_EQ(s->idH, 1);
    EXPECT_EQ(s->idR, 7);
    EXPECT_EQ(s->gap3, 116);
    ASSERT_EQ(s->length, 16384);
    EXPECT_EQ(std::memcmp(s->data, d2.data(), 16384), 0);
    EXPECT_EQ(s->next->idN, 9);
    EXPECT_EQ(s->next->length, 16384);
    EXPECT_EQ(s->next->data[16383], 0x4E);

    // The name field is cut at 59 characters.
    std::memset(&f.b[0x08], 'A', 128);
    ASSERT_EQ(d.ImportFDD(PathOf(WriteFile("fdd_long_name.fdd", f.b))), 1);
    EXPECT_EQ(std::strlen(d.name), 59u);

    Put16(f.b, 0x88, 0);
    const std::string ro = WriteFile("fdd_read_only.fdd", f.b);
    ASSERT_EQ(d.ImportFDD(PathOf(ro)), 1);
    EXPECT_EQ(d.writeProtect, 0);
    chmod(ro.c_str(), 0444);
    ASSERT_EQ(d.ImportFDD(PathOf(ro)), 1);
    EXPECT_EQ(d.writeProtect, 1);
    Remove(ro);
}

TEST(FddImport, GeometryFromFirstUnusedTrack) {
    struct Case {
        int usedTracks;
        bool hd;
        int type;
        int cylinders;
    };
    const Case cases[] = {
        {84, false, 1, 42}, {85, false, 3, 43}, {86, false, 3, 43}, {160, false, 3, 80},
        {160, true, 7, 80}, {3, true, 7, 2},    {0, false, 7, 0},  // an unused entry reads 0xFF as
                                                                   // its flag,
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.usedTracks);
        FddBuilder f;
        f.FillTracks(k.usedTracks, k.hd);
        VDisk d;
        ASSERT_EQ(d.ImportFDD(PathOf(WriteFile("fdd_geometry.fdd", f.b))), 1);
        EXPECT_EQ(d.type, k.type);
        EXPECT_EQ(d.cylinders, k.cylinders);
        if (k.cylinders) {
            EXPECT_EQ(d.Track(k.cylinders - 1, 1)->SectorCount(),
                      k.usedTracks > 2 * k.cylinders - 1 ? 1 : 0);
        }
    }
}

TEST(FddImport, RejectsBadFiles) {
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
    };
    FddBuilder good;
    good.Add(0, 0, 0, 0, 1, 3, Pattern(1024, 5));
    std::vector<uint8_t> past = good.b;
    Put32(past, Entry(0, 0) + 8, static_cast<uint32_t>(past.size() - 1023));  // one byte short
    std::vector<uint8_t> huge = good.b;
    Put32(huge, Entry(0, 0) + 8, 0xFFFFFFF0);
    std::vector<uint8_t> bigN = good.b;
    bigN[Entry(0, 0) + 3] = 4;  // 2,048 bytes, only 1,024 stored
    const Case cases[] = {
        {"50,171 bytes", std::vector<uint8_t>(good.b.begin(), good.b.begin() + kHeader - 1)},
        {"version 2", FddBuilder("VFD2.00").b},
        {"no signature", FddBuilder("XFD1.00").b},
        {"offset one byte past", past},
        {"offset far past", huge},
        {"length past the file", bigN},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        VDisk d;
        EXPECT_EQ(d.ImportFDD(PathOf(WriteFile("fdd_reject.fdd", k.bytes))), 0);
    }
    VDisk d;
    EXPECT_EQ(d.ImportFDD(PathOf(WriteFile("fdd_good.fdd", good.b))), 1);
}

TEST(FddExport, HeaderTableFillBytesTrailerAndCylinderLimit) {
    VDisk d;
    d.Init(VDISK_2HD, 82, 2);
    std::strcpy(d.name, "WRITTEN");
    auto nearly = std::vector<uint8_t>(1024, 0xE5);
    nearly.back() = 0xE6;
    for (int c = 0; c < 82; c++)
        for (int h = 0; h < 2; h++) {
            d.Track(c, h)->AddSector(
                NewSector(1, c, h, 1, 3, std::vector<uint8_t>(1024, 0xE5), 116));
            d.Track(c, h)->AddSector(NewSector(1, c, h, 2, 3, nearly, 116));
            d.Track(c, h)->AddSector(NewSector(0, c, h, 3, 0, Pattern(128, c), 27, SECT_DELETED));
        }
    const std::string file = ScratchFile("fdd_write.fdd");
    ASSERT_EQ(d.ExportFDD(PathOf(file)), 1);
    const auto b = ReadFile(file);
    ASSERT_EQ(b.size(), kHeader + 80u * 2 * (1024 + 128));
    EXPECT_EQ(std::memcmp(b.data(), "VFD1.00", 8), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(&b[8]), "WRITTEN");
    EXPECT_EQ(b[0x88] | b[0x89], 0);
    const uint8_t trailer[32] = {0xFF, 0xFF, 0,    0,    0,    0,    0, 0, 0, 0,    0,
                                 0,    0,    0,    0,    0,    0,    0, 1, 0, 0xFF, 0xFF,
                                 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&b[0xC3DC], trailer, 32), 0);

    // Cylinder 5 head 1: fill-byte sector, stored sector, FM deleted sector.
    const int t = 11;
    const size_t e0 = Entry(t, 0), e1 = Entry(t, 1), e2 = Entry(t, 2);
    const uint8_t want0[8] = {5, 1, 1, 3, 0xE5, 0, 1, 1};
    const uint8_t want1[8] = {5, 1, 2, 3, 0xFF, 0, 1, 1};
    const uint8_t want2[8] = {5, 1, 3, 0, 0xFF, 1, 0, 1};
    EXPECT_EQ(std::memcmp(&b[e0], want0, 8), 0);
    EXPECT_EQ(std::memcmp(&b[e1], want1, 8), 0);
    EXPECT_EQ(std::memcmp(&b[e2], want2, 8), 0);
    EXPECT_EQ(Get32(b, e0 + 8), kNoData);
    const uint32_t off1 = Get32(b, e1 + 8), off2 = Get32(b, e2 + 8);
    EXPECT_EQ(off1, kHeader + 11u * (1024 + 128));
    EXPECT_EQ(off2, off1 + 1024);
    EXPECT_TRUE(std::equal(nearly.begin(), nearly.end(), b.begin() + off1));
    const auto p = Pattern(128, 5);
    EXPECT_TRUE(std::equal(p.begin(), p.end(), b.begin() + off2));
    EXPECT_TRUE(
        std::all_of(&b[Entry(t, 3)], &b[Entry(t, 26)], [](uint8_t v) { return v == 0xFF; }));
}

TEST(FddExport, RefusesTracksOfMoreThan26Sectors) {
    VDisk d;
    d.Init(VDISK_2DD, 2, 2);
    for (int r = 1; r <= 27; r++)
        d.Track(1, 1)->AddSector(NewSector(1, 1, 1, r, 0, Pattern(128, r), 24));
    const std::string file = ScratchFile("fdd_27.fdd");
    Remove(file);
    EXPECT_EQ(d.ExportFDD(PathOf(file)), 0);
    EXPECT_FALSE(Exists(file));
    d.Track(1, 1)->ClrSector();
    for (int r = 1; r <= 26; r++)
        d.Track(1, 1)->AddSector(NewSector(1, 1, 1, r, 0, Pattern(128, r), 24));
    EXPECT_EQ(d.ExportFDD(PathOf(file)), 1);
}

TEST(FddRoundTrip, MixedSizesDensitiesAndDeletedMarks) {
    VDisk src;
    src.Init(VDISK_2DD, 40, 2);
    std::strcpy(src.name, "ROUND TRIP");
    for (int c = 0; c < 40; c++)
        for (int h = 0; h < 2; h++)
            for (int r = 1; r <= 4; r++) {
                const int n = (c + r) % 4;
                const int mfm = (c % 3) != 0;
                const auto data = r == 2 ? std::vector<uint8_t>(128 << n, static_cast<uint8_t>(c))
                                         : Pattern(128 << n, c * 8 + h * 4 + r);
                src.Track(c, h)->AddSector(NewSector(mfm, c, h, r, n, data,
                                                     mfm ? Gap3MFM[n] : Gap3FM[n],
                                                     r == 3 ? SECT_DELETED : 0));
            }
    // A single-sided slot is written as an empty track.
    src.tracks[39][1].reset();
    const std::string file = ScratchFile("fdd_roundtrip.fdd");
    ASSERT_EQ(src.ExportFDD(PathOf(file)), 1);
    VDisk back;
    ASSERT_EQ(back.ImportFDD(PathOf(file)), 1);
    EXPECT_EQ(back.type, 1);  // first unused track is 79
    EXPECT_EQ(back.cylinders, 40);
    EXPECT_STREQ(back.name, "ROUND TRIP");
    EXPECT_EQ(back.Track(39, 1)->sectors, nullptr);
    vdtest::ExpectSameSectors(src, back, 40);
}

TEST(FddImport, SurvivesDamagedTables) {
    FddBuilder f;
    for (int t = 0; t < 4; t++) {
        f.Add(t, 0, t / 2, t % 2, 1, 1, Pattern(256, t));
        f.Add(t, 1, t / 2, t % 2, 2, 2, {}, 0xE5, true, false);
    }
    ImportDamaged(&VDisk::ImportFDD, f.b, 0, Entry(5, 0), "fdd_damaged.fdd", 400);
}
