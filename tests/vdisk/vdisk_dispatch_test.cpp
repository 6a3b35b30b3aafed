#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "vdisk/imagecommon.h"
#include "vdisk_testutil.h"

using namespace vdtest;

namespace {

TEST(VDiskInit, CreatesEmptyTracksOnlyInsideTheGeometry) {
    VDisk d;
    std::strcpy(d.name, "old");
    d.writeProtect = 1;
    d.Init(VDISK_2HD, 77, 2);
    EXPECT_EQ(d.type, 7);
    EXPECT_EQ(d.cylinders, 77);
    EXPECT_EQ(d.heads, 2);
    EXPECT_EQ(d.name[0], '\0');
    EXPECT_EQ(d.writeProtect, 0);
    int made = 0;
    for (int c = 0; c < VDisk::kMaxCylinders; c++)
        for (int h = 0; h < 2; h++) {
            const VTrack* t = d.Track(c, h);
            if (c < 77) {
                ASSERT_NE(t, nullptr);
                EXPECT_EQ(t->SectorCount(), 0);
                EXPECT_EQ(t->sectors, nullptr);
                made++;
            } else {
                EXPECT_EQ(t, nullptr);
            }
        }
    EXPECT_EQ(made, 154);
}

TEST(VDiskInit, SingleSidedAndDegenerateGeometries) {
    VDisk d;
    d.Init(VDISK_2D, 40, 1);
    EXPECT_NE(d.Track(39, 0), nullptr);
    EXPECT_EQ(d.Track(0, 1), nullptr);

    // A new Init releases the previous tracks.
    d.Init(VDISK_2HD, 0, 2);
    EXPECT_EQ(d.Track(0, 0), nullptr);
    d.Init(VDISK_2HD, 5, 0);
    EXPECT_EQ(d.Track(0, 0), nullptr);

    // More cylinders than the table holds stay within the table.
    d.Init(VDISK_2HD, 200, 2);
    EXPECT_EQ(d.cylinders, VDisk::kMaxCylinders);
    EXPECT_NE(d.Track(83, 1), nullptr);
}

TEST(VDiskSlots, OutOfRangeSlotsAreNull) {
    VDisk d;
    d.Init(VDISK_2HD, 84, 2);
    for (auto [c, h] : std::vector<std::pair<int, int>>{{-1, 0}, {84, 0}, {0, 2}, {0, -1}}) {
        EXPECT_EQ(d.Track(c, h), nullptr);
        EXPECT_EQ(d.NewTrack(c, h), nullptr);
    }
    VTrack* t = d.NewTrack(3, 1);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(d.Track(3, 1), t);
}

TEST(VDiskLifeCycle, CleanupKeepsTracksClearReleasesThem) {
    VDisk d;
    d.Init(VDISK_2DD, 2, 2);
    d.Track(0, 0)->AddSector(NewSector(1, 0, 0, 1, 0, Pattern(128, 1), 24));
    std::strcpy(d.name, "disk");
    d.writeProtect = 1;
    d.Cleanup();
    EXPECT_EQ(d.type, 0);
    EXPECT_EQ(d.cylinders, 0);
    EXPECT_EQ(d.heads, 0);
    EXPECT_EQ(d.name[0], '\0');
    EXPECT_EQ(d.writeProtect, 0);
    EXPECT_NE(d.Track(0, 0), nullptr);
    d.Clear();
    EXPECT_EQ(d.Track(0, 0), nullptr);
}

TEST(VDiskImport, PlainSizeWinsOverAnyExtension) {
    const std::vector<uint8_t> bytes(1261568, 0x5A);
    for (const char* ext : {".img", ".IMG", ".Img", ".D88", ".nfd", ".xyz"}) {
        SCOPED_TRACE(ext);
        const std::string f = WriteFile(std::string("vd_plainsize") + ext, bytes);
        VDisk d;
        ASSERT_EQ(d.Import(PathOf(f), 1), 1);
        EXPECT_EQ(d.type, VDISK_2HD);
        EXPECT_EQ(d.cylinders, 77);
        EXPECT_EQ(Count(d, 76, 1), 8);
        Remove(f);
    }
}

TEST(VDiskImport, UnknownExtensionOrMissingFileFails) {
    const std::string f = WriteFile("vd_unknown.abc", std::vector<uint8_t>(5000, 1));
    VDisk d;
    EXPECT_EQ(d.Import(PathOf(f), 1), 0);
    EXPECT_EQ(d.Import(PathOf(ScratchFile("vd_missing.d88")), 1), 0);
    Remove(f);
}

TEST(VDiskImport, DispatchesByExtensionIgnoringCase) {
    // A minimal D68 header-only disk: readable through every D68 extension.
    std::vector<uint8_t> img(0x2B0, 0);
    img[0x1B] = 0x20;
    Put32(img, 0x1C, 0x2B0);
    for (const char* ext : {".d68", ".D88", ".d77", ".D98"}) {
        SCOPED_TRACE(ext);
        const std::string f = WriteFile(std::string("vd_disp") + ext, img);
        VDisk d;
        EXPECT_EQ(d.Import(PathOf(f), 1), 1);
        EXPECT_EQ(d.type, VDISK_2HD);
        Remove(f);
    }
    // The same bytes are no DIM image.
    const std::string f = WriteFile("vd_disp.dim", img);
    VDisk d;
    EXPECT_EQ(d.Import(PathOf(f), 1), 0);
    Remove(f);
}

struct ExportCase {
    const char* ext;
    int cyls;
    int count;
    int n;
    int64_t size;  // -1: refused, no file
};

TEST(VDiskExport, ExtensionChoosesTheWriter) {
    const ExportCase cases[] = {
        {".xdf", 77, 8, 3, 1261568},  {".HDM", 80, 8, 3, 1261568}, {".2hd", 77, 8, 3, 1261568},
        {".Dup", 77, 8, 3, 1261568},  {".IMG", 77, 8, 3, 1261568}, {".2HC", 80, 15, 2, 1228800},
        {".2hq", 80, 18, 2, 1474560}, {".2DD", 80, 9, 2, 737280},  {".2d", 40, 9, 2, 368640},
        {".HDM", 77, 9, 3, -1},       {".HFE", 77, 8, 3, -1},      {".zeb", 77, 8, 3, -1},
        {".bin", 77, 8, 3, -1},
    };
    for (const ExportCase& e : cases) {
        SCOPED_TRACE(e.ext);
        VDisk d;
        FillUniformDisk(d, VDISK_2HD, e.cyls, e.count, e.n, 84);
        const std::string f = ScratchFile(std::string("vd_export") + e.ext);
        Remove(f);
        EXPECT_EQ(d.Export(PathOf(f)), e.size < 0 ? 0 : 1);
        EXPECT_EQ(FileSize(f), e.size);
        Remove(f);
    }
}

TEST(VDiskExport, AllD68ExtensionsWriteTheSameBytes) {
    VDisk d;
    FillUniformDisk(d, VDISK_2DD, 3, 4, 1, 54);
    std::strcpy(d.name, "SAME");
    std::vector<uint8_t> first;
    for (const char* ext : {".D68", ".d88", ".D77", ".d98"}) {
        SCOPED_TRACE(ext);
        const std::string f = ScratchFile(std::string("vd_d68same") + ext);
        ASSERT_EQ(d.Export(PathOf(f)), 1);
        const std::vector<uint8_t> got = ReadFile(f);
        if (first.empty())
            first = got;
        else
            EXPECT_EQ(got, first);
        Remove(f);
    }
    EXPECT_EQ(first.size(), 0x2B0u + 6u * 4u * (16u + 256u));
}

TEST(ImageCommon, CopyDiskNameStopsAtNulLimitOrLength) {
    char name[60];
    std::memset(name, 'x', sizeof(name));
    CopyDiskName(name, "ABC");
    EXPECT_STREQ(name, "ABC");
    for (char ch : std::string(name + 4, name + 60)) EXPECT_EQ(ch, '\0');

    const std::string longName(80, 'L');
    CopyDiskName(name, longName.c_str());
    EXPECT_EQ(std::strlen(name), 59u);

    CopyDiskName(name, "ABCDEFG", 3);
    EXPECT_STREQ(name, "ABC");
    CopyDiskName(name, nullptr);
    EXPECT_STREQ(name, "");
}

TEST(ImageCommon, TrackLengthEstimate) {
    struct Case {
        int mfmSectors;
        int fmSectors;
        int length;
        int gap3;
        int32_t expect;
    };
    const Case cases[] = {
        {8, 0, 1024, 116, 8 * (60 + 1024 + 2 + 116) + 212},  // 9,828
        {18, 0, 512, 84, 12056},
        {0, 26, 128, 27, 26 * (31 + 128 + 2 + 27) + 106},
        {1, 1, 128, 27, (60 + 130 + 27) + (31 + 130 + 27) + 212},  // tie: MFM
        {1, 2, 128, 27, (60 + 130 + 27) + 2 * (31 + 130 + 27) + 106},
        {0, 0, 0, 0, 0},
    };
    for (const Case& k : cases) {
        VTrack t;
        for (int i = 0; i < k.mfmSectors; i++)
            t.AddSector(MakeSector(1, 0, 0, i + 1, 0, nullptr, k.length, 22, k.gap3, 0));
        for (int i = 0; i < k.fmSectors; i++)
            t.AddSector(MakeSector(0, 0, 0, i + 1, 0, nullptr, k.length, 11, k.gap3, 0));
        EXPECT_EQ(EstimateTrackLength(&t), k.expect);
    }
    EXPECT_EQ(EstimateTrackLength(nullptr), 0);
}

TEST(ImageCommon, MakeSectorCopiesFieldsAndData) {
    const std::vector<uint8_t> src = Pattern(256, 9);
    std::unique_ptr<VSector> s(MakeSector(0, 300, 1, 7, 1, src.data(), 256, 11, 42, SECT_DELETED));
    EXPECT_EQ(s->mfm, 0);
    EXPECT_EQ(s->idC, 300 & 0xFF);
    EXPECT_EQ(s->idH, 1);
    EXPECT_EQ(s->idR, 7);
    EXPECT_EQ(s->idN, 1);
    EXPECT_EQ(s->gap2, 11);
    EXPECT_EQ(s->gap3, 42);
    EXPECT_EQ(s->status, SECT_DELETED);
    EXPECT_EQ(DataOf(s.get()), src);
    EXPECT_NE(s->data, src.data());

    std::unique_ptr<VSector> z(MakeSector(1, 0, 0, 1, 0, nullptr, 0, 22, 24, 0));
    EXPECT_EQ(z->length, 0);
    EXPECT_EQ(z->data, nullptr);
}

TEST(ImageCommon, WriteProtectProbeUsesOwnerWriteBit) {
    const std::string f = WriteFile("vd_probe.bin", {1, 2, 3});
    EXPECT_FALSE(ProbeWriteProtect(PathOf(f)));
    chmod(f.c_str(), 0444);
    EXPECT_TRUE(ProbeWriteProtect(PathOf(f)));
    Remove(f);
    EXPECT_TRUE(ProbeWriteProtect(PathOf(f)));
}

}  // namespace
