// What the track-level disk reports: sectors the encoder leaves out on import
// (counted from the first one left out), sides cut to the shorter one in HFE, and why a save or
// export is refused.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// Its 16 x 256 sectors a track are marked single density, which no 2D track holds.
TEST(DiskReport, TheRealTwoDDiskKeepsAll1120SectorsInMfm) {
    const std::string file = ZEBKIT_REALIMAGES_DIR "/mz80b-ipl-selector-2d.d88";
    if (access(file.c_str(), R_OK) != 0) GTEST_SKIP() << "no real images on this machine";
    ZEBDisk d;
    ASSERT_TRUE(d.Import(PathOf(file), 1));
    EXPECT_EQ(d.report.warnings,
              std::vector<std::string>{"70 tracks marked single density do not fit a 2D track "
                                       "in FM but do in MFM, and were encoded in MFM (first: "
                                       "track 0.0)"});
    int sectors = 0;
    for (int t = 0; t < 2 * d.Cylinders(); t++)
        if (auto v = d.Analyze(t / 2, t % 2, 0)) sectors += v->SectorCount();
    EXPECT_EQ(sectors, 1120);
}

// A D88 track marked single density that only MFM fits on a track of the disk's type is
// encoded in MFM; where FM fits, or nothing does, the density byte stands.
TEST(DiskReport, SingleDensityThatOnlyMfmFitsIsEncodedInMfm) {
    auto encoded = [](const char* type) {
        return std::string("4 tracks marked single density do not fit a ") + type +
               " track in FM but do in MFM, and were encoded in MFM (first: track 0.0)";
    };
    const struct {
        int count, n, media, mfm, kept;  // kept: sectors a track
        std::string warning;
    } cases[] = {
        {16, 0, 0x00, 0, 16, ""},
        {16, 1, 0x00, 1, 16, encoded("2D")},
        {26, 0, 0x20, 0, 26, ""},
        {26, 1, 0x20, 1, 26, encoded("2HD")},
        {11, 2, 0x10, 0, 5,  // fits neither
         "24 of 44 sectors do not fit their tracks and were left out (first: track 0.0, R 6)"},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(&k - cases);
        VDisk v;
        v.Init(VDISK_2DD, 2, 2);
        const Bytes data(128u << k.n, 0x5A);
        for (int t = 0; t < 4; t++)
            for (int r = 1; r <= k.count; r++)
                v.Track(t / 2, t % 2)
                    ->AddSector(MakeFormattedSector(0, t / 2, t % 2, r, k.n, data.data(),
                                                    static_cast<int>(data.size()), 0));
        ASSERT_TRUE(v.Export(PathOf("dr_density.d88")));
        Bytes file = Slurp("dr_density.d88");
        file[0x1B] = static_cast<uint8_t>(k.media);
        Spit("dr_density.d88", file);
        ZEBDisk d;
        ASSERT_TRUE(d.Import(PathOf("dr_density.d88"), 1));
        EXPECT_EQ(d.report.warnings, k.warning.empty() ? std::vector<std::string>{}
                                                       : std::vector<std::string>{k.warning});
        for (int t = 0; t < 4; t++) {
            auto a = d.Analyze(t / 2, t % 2, 0);
            ASSERT_TRUE(a);
            EXPECT_EQ(std::pair(a->mfmCount, a->fmCount),
                      std::pair(k.mfm * k.kept, !k.mfm * k.kept));
        }
    }
}

TEST(DiskReport, HfeCutsTheLongerSideOfACylinder) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    d.SetRecordInt(5 * 2 + 1, zebrec::kBitLength, 99000);  // 5.0 keeps 100000
    d.SetRecordInt(7 * 2 + 0, zebrec::kBitLength, 90000);
    d.SetRecordInt(7 * 2 + 1, zebrec::kBitLength, 90007);  // the same whole bytes
    ASSERT_TRUE(d.Export(PathOf("dr_cut.hfe"), 0));
    EXPECT_EQ(d.report.warnings,
              std::vector<std::string>{"1 track is longer than the other side of its cylinder "
                                       "and was cut to that length (first: track 5.0)"});
}

struct RefusalCase {
    const char* name;
    bool (*run)(ZEBDisk&);
    std::string error;
};
void PrintTo(const RefusalCase& c, std::ostream* os) {
    *os << c.name;
}

bool Blank(ZEBDisk& d) {
    return d.Init(ZEB_2HD, 0, 0, 0);
}
const std::string kKnown =
    "; known: .ZEB .HFE .MFI .XDF .HDM .2HD .DUP .IMG .2HC .2HQ .2DD .2D .D68 .D88 .D77 .D98 .DIM "
    ".FDI .FDD .NFD .IMD";

// clang-format off
const RefusalCase kRefusals[] = {
    {"SaveOfNoDisk", [](ZEBDisk& d) { return d.Save(PathOf("dr_none.zeb"), 1); },
     "no disk to save"},
    {"SaveUnderAnotherExtension", [](ZEBDisk& d) { return Blank(d) && d.Save(PathOf("dr.d88"), 1); },
     "dr.d88: a ZEB image must be named .ZEB"},
    {"SaveOfABadGeometry", [](ZEBDisk& d) {
         Blank(d), d.SetHeaderInt(zebhdr::kCylinders, 90);
         return d.Save(PathOf("dr_geo.zeb"), 1); },
     "dr_geo.zeb: a ZEB image holds at most 84 cylinders and 2 heads, the disk has 90 and 2"},
    {"PartialSaveOfAMissingFile", [](ZEBDisk& d) {
         std::remove("dr_gone.zeb");
         return Blank(d) && d.Save(PathOf("dr_gone.zeb"), 0); },
     "cannot write dr_gone.zeb: No such file or directory"},
    {"ExportOfNoDisk", [](ZEBDisk& d) { return d.Export(PathOf("dr_none.d88"), 0); },
     "no disk to export"},
    {"ExportToAnUnknownExtension", [](ZEBDisk& d) { return Blank(d) && d.Export(PathOf("dr.abc"), 0); },
     ("dr.abc: unknown extension \".abc\"" + kKnown)},
    {"ExportWithoutExtension", [](ZEBDisk& d) { return Blank(d) && d.Export(PathOf("dr_out"), 0); },
     ("dr_out: no extension" + kKnown)},
    {"ExportOfABlankDiskToAPlainImage", [](ZEBDisk& d) { return Blank(d) && d.Export(PathOf("dr.2hq"), 0); },
     "dr.2hq: .2HQ holds 80 cylinders of 18 x 512-byte sectors, the disk has no sectors"},
    {"HfeOfATrackTooLongForItsList", [](ZEBDisk& d) {
         Blank(d), d.NewRecord(0, 300000, 0, 0, 2000000), d.NewRecord(1, 300000, 0, 1, 2000000);
         return d.Export(PathOf("dr_long.hfe"), 0); },
     "dr_long.hfe: cylinder 0 needs 500000 bytes, more than the 65535 a .HFE track holds"},
};
// clang-format on

class DiskRefusal : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(DiskRefusal, NamesTheFileAndSaysWhy) {
    ZEBDisk d;
    EXPECT_FALSE(GetParam().run(d));
    EXPECT_EQ(d.report.error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(SaveAndExport, DiskRefusal, ::testing::ValuesIn(kRefusals),
                         [](const auto& p) { return std::string(p.param.name); });

}  // namespace
