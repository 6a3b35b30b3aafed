// Disk images written by other people's tools, taken where the folder exists:
// each through zebconv to every format, and the result read back. A source
// refused by its format's rules says why; every result holds what its format
// can hold of the source.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "driver/driver_run.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

using namespace drivertest;

namespace {

const std::string kDir = ZEBKIT_REALIMAGES_DIR;

bool HaveImages() {
    struct stat st;
    return stat(kDir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Sectors and cylinders holding any, of a converted file read back by the library.
struct Held {
    int sectors = -1, cylinders = 0;
};
Held ReadBack(const std::string& file) {
    ZEBDisk d;
    const bool zeb = file.size() > 4 && file.substr(file.size() - 4) == ".zeb";
    if (!(zeb ? d.Load(PathOf(file), 0) : d.Import(PathOf(file), 1))) return {};
    Held h{0, 0};
    for (int c = 0; c < d.Cylinders(); c++) {
        int here = 0;
        for (int hd = 0; hd < d.Heads(); hd++) {
            auto t = d.Analyze(c, hd, 0);
            here += t ? t->SectorCount() : 0;
        }
        h.sectors += here;
        if (here) h.cylinders = c + 1;
    }
    return h;
}

// Every destination, with what it takes: "" a sector format whose geometry is fixed.
const char* const kTargets[] = {".zeb", ".hfe", ".d88", ".hdm", ".2hq", ".2hc",
                                ".2dd", ".2d",  ".dim", ".fdi", ".fdd", ".nfd"};

// Written, but of a size that reads as no plain image.
constexpr int kNotReadBack = -2;

struct RealImage {
    const char* file;
    const char* refused;  // the reason after "Error : <path>: ", or "" when it reads
    Held source;          // as read
    // Per destination in kTargets order: the sectors kept, -1 where the format
    // refuses the disk (status 14), or kNotReadBack.
    std::vector<int> kept;
};
// clang-format off
const RealImage kImages[] = {
    // 77 x 2 x 8 x 1,024: every 8 x 1,024 format holds it all; 18 x 512, 15 x 512, 9 x 512
    // refuse it.
    {"x68000-blank.d88", "", {1232, 77},
     {1232, 1232, 1232, 1232, -1, -1, -1, -1, 1232, 1232, 1232, 1232}},
    {"x68000-human68k-blank.xdf", "", {1232, 77},
     {1232, 1232, 1232, 1232, -1, -1, -1, -1, 1232, 1232, 1232, 1232}},
    {"pc98-blank.fdi", "", {1232, 77},
     {1232, 1232, 1232, 1232, -1, -1, -1, -1, 1232, 1232, 1232, 1232}},
    // 80 x 2 x 18 x 512: only .2HQ, .FDI and the sector-keeping formats; FDD keeps 80
    // cylinders, NFD 82, D88 82.
    {"ensoniq-blank-1440k.img", "", {2880, 80},
     {2880, 2880, 2880, -1, 2880, -1, -1, -1, 2880, 2880, 2880, 2880}},
    // 16 x 256 single-density sectors a track do not all fit a 2D track: the encoder keeps
    // what fits, and every later conversion keeps that.
    {"mz80b-ipl-selector-2d.d88", "", {630, 35},
     {630, 630, 630, -1, -1, -1, -1, -1, -1, -1, 630, 630}},
    // 40 x 2 x 9 x 512 at 250 kbit/s in a 2D disk; written as .2D it has 368,640 bytes,
    // which no plain image has when read.
    {"pc-sector-test-360k.hfe", "", {720, 40},
     {720, 720, 720, -1, -1, -1, -1, kNotReadBack, -1, 720, 720, 720}},
    // A track whose first sector header says 0 sectors makes a D88 import fail.
    {"fm7-empty.d77", "track 40.0 at offset 451248: its first sector header says 0 sectors",
     {}, {}},
    // 368,640 bytes is no plain image size.
    {"flux/pc-sector-test-360k.img", "not a plain image size (368640 bytes; the sizes that are: "
     "1261568, 1228800, 1474560, 737280, 36840)", {}, {}},
};
// clang-format on

std::string ImageName(const testing::TestParamInfo<RealImage>& info) {
    std::string n = info.param.file;
    for (char& ch : n)
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return n;
}
void PrintTo(const RealImage& k, std::ostream* os) {
    *os << k.file;
}

class RealImages : public testing::TestWithParam<RealImage> {};

TEST_P(RealImages, EveryFormatHoldsWhatItCan) {
    if (!HaveImages()) GTEST_SKIP() << "no real images at " << kDir;
    const RealImage& k = GetParam();
    const std::string src = kDir + "/" + k.file;
    // Test cases may run side by side: every file of this one carries its name.
    const std::string tag = ImageName({k, 0});
    if (k.refused[0]) {
        const ToolRun r =
            RunTool(ZEBCONV_PATH, "-i " + src + " -o real_" + tag + ".zeb", "real_" + tag);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err,
                  "Error : " + src + ": " + k.refused + "\nResult             : Import failed\n");
        return;
    }
    const Held source = ReadBack(src);
    EXPECT_EQ(std::pair(source.sectors, source.cylinders),
              std::pair(k.source.sectors, k.source.cylinders));
    for (size_t i = 0; i < std::size(kTargets); i++) {
        for (const char* form : {"", " -f raw"}) {
            const std::string ext = kTargets[i];
            if (form[0] && ext != ".zeb") continue;
            SCOPED_TRACE(ext + form);
            const std::string out = "real_" + tag + ext;
            std::remove(out.c_str());
            const ToolRun r =
                RunTool(ZEBCONV_PATH, "-i " + src + " -o " + out + form, "real_" + tag);
            const int kept = k.kept[i];
            EXPECT_EQ(r.status, kept == -1 ? 14 : 0) << r.err;
            if (kept == kNotReadBack) {
                EXPECT_EQ(Slurp(out).size(), 368640u);
            }
            if (kept < 0) continue;
            EXPECT_NE(r.err.find("Result             : Success\n"), std::string::npos);
            const Held h = ReadBack(out);
            EXPECT_EQ(std::pair(h.sectors, h.cylinders), std::pair(kept, k.source.cylinders));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Folder, RealImages, testing::ValuesIn(kImages), ImageName);

// A 2HD disk of 77 x 2 x 8 x 1,024 behind a D77 media byte of 2D, as such files
// come: read by what it holds, every sector kept, and the override said.
TEST(MediaOverride, A2HDDiskBehindA2DByteKeepsEverySector) {
    VDisk v;
    v.Init(VDISK_2HD, 77, 2);
    for (int t = 0; t < 154; t++)
        for (int r = 1; r <= 8; r++) {
            const std::vector<uint8_t> data(1024, static_cast<uint8_t>(t + r));
            v.Track(t / 2, t % 2)
                ->AddSector(MakeFormattedSector(1, t / 2, t % 2, r, 3, data.data(), 1024, 0));
        }
    ASSERT_EQ(v.Export(PathOf("towns_src.d77")), 1);
    std::string file = Slurp("towns_src.d77");
    file[0x1B] = 0x00;
    Spit("towns.d77", file);
    const ToolRun r = RunTool(ZEBCONV_PATH, "-i towns.d77 -o towns_out.d88", "towns");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err,
              "Warning : towns.d77: media byte 0x00 (2D) overridden: 70 track(s) lie beyond "
              "cylinder 41 and track 0.0 needs 8688 bytes, more than the 6250 of a 2D track; "
              "read as 2HD with 82 cylinders\nResult             : Success\n");
    const Held h = ReadBack("towns_out.d88");
    EXPECT_EQ(std::pair(h.sectors, h.cylinders), std::pair(1232, 77));
}

}  // namespace
