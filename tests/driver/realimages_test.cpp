// Disk images written by other people's tools, taken where the folder exists:
// each through zebconv to every format, and the result read back. A source
// refused by its format's rules says why; every result holds what its format
// can hold of the source.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "driver/driver_run.h"
#include "zebdisk/zebdisk.h"

using namespace drivertest;

namespace {

const std::string kDir = ZEBKIT_REALIMAGES_DIR;

// {sectors, cylinders holding any} of an image read back by the library; {-1, 0} when refused.
std::pair<int, int> ReadBack(const std::string& file) {
    ZEBDisk d;
    if (!(file.ends_with(".zeb") ? d.Load(PathOf(file), 0) : d.Import(PathOf(file), 1)))
        return {-1, 0};
    std::pair<int, int> held{0, 0};
    for (int c = 0; c < d.Cylinders(); c++) {
        int here = 0;
        for (int h = 0; h < d.Heads(); h++)
            if (auto t = d.Analyze(c, h, 0)) here += t->SectorCount();
        held.first += here;
        if (here) held.second = c + 1;
    }
    return held;
}

const char* const kTargets[] = {".zeb", ".hfe", ".d88", ".hdm", ".2hq", ".2hc",
                                ".2dd", ".2d",  ".dim", ".fdi", ".fdd", ".nfd"};
constexpr int kNotReadBack = -2;  // written, but of a size that reads as no plain image

struct RealImage {
    const char* file;
    const char* refused;  // the reason after "Error : <path>: ", or "" when it reads
    int sectors, cylinders;
    // Per destination in kTargets order: the sectors kept, -1 where the format refuses the
    // disk (status 14), or kNotReadBack.
    std::vector<int> kept;
};
// clang-format off
const RealImage kImages[] = {
    // 77 x 2 x 8 x 1,024: every 8 x 1,024 format holds it all; 18, 15 and 9 x 512 refuse it.
    {"x68000-blank.d88", "", 1232, 77, {1232, 1232, 1232, 1232, -1, -1, -1, -1, 1232, 1232, 1232, 1232}},
    {"x68000-human68k-blank.xdf", "", 1232, 77, {1232, 1232, 1232, 1232, -1, -1, -1, -1, 1232, 1232, 1232, 1232}},
    {"pc98-blank.fdi", "", 1232, 77, {1232, 1232, 1232, 1232, -1, -1, -1, -1, 1232, 1232, 1232, 1232}},
    // 80 x 2 x 18 x 512: only .2HQ, .FDI and the sector-keeping formats.
    {"ensoniq-blank-1440k.img", "", 2880, 80, {2880, 2880, 2880, -1, 2880, -1, -1, -1, 2880, 2880, 2880, 2880}},
    // 16 x 256 sectors marked single density a track: no 2D track holds them in FM, so they
    // are read as MFM, which holds them all.
    {"mz80b-ipl-selector-2d.d88", "", 1120, 35, {1120, 1120, 1120, -1, -1, -1, -1, -1, -1, 1120, 1120, 1120}},
    // 40 x 2 x 9 x 512 at 250 kbit/s; as .2D it has 368,640 bytes, no plain image size.
    {"pc-sector-test-360k.hfe", "", 720, 40, {720, 720, 720, -1, -1, -1, -1, kNotReadBack, -1, 720, 720, 720}},
    {"fm7-empty.d77", "track 40.0 at offset 451248: its first sector header says 0 sectors", 0, 0, {}},
    {"flux/pc-sector-test-360k.img", "not a plain image size (368640 bytes; the sizes that are: "
     "1261568, 1228800, 1474560, 737280, 36840)", 0, 0, {}},
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
    struct stat st;
    if (stat(kDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        GTEST_SKIP() << "no real images at " << kDir;
    const RealImage& k = GetParam();
    const std::string src = kDir + "/" + k.file;
    // Test cases may run side by side: every file of this one carries its name.
    const std::string tag = "real_" + ImageName({k, 0});
    if (k.refused[0]) {
        const ToolRun r = RunTool(ZEBCONV_PATH, "-i " + src + " -o " + tag + ".zeb", tag);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err,
                  "Error : " + src + ": " + k.refused + "\nResult             : Import failed\n");
        return;
    }
    EXPECT_EQ(ReadBack(src), std::pair(k.sectors, k.cylinders));
    for (size_t i = 0; i <= std::size(kTargets); i++) {
        const std::string ext = kTargets[i % std::size(kTargets)], form = i ? "" : " -f raw";
        SCOPED_TRACE(ext + form);
        const std::string out = tag + ext;
        std::remove(out.c_str());
        const ToolRun r = RunTool(ZEBCONV_PATH, "-i " + src + " -o " + out + form, tag);
        const int kept = k.kept[i % std::size(kTargets)];
        EXPECT_EQ(r.status, kept == -1 ? 14 : 0) << r.err;
        if (kept == kNotReadBack) {
            EXPECT_EQ(Slurp(out).size(), 368640u);
        }
        if (kept < 0) continue;
        EXPECT_TRUE(r.err.ends_with("Result             : Success\n")) << r.err;
        EXPECT_EQ(ReadBack(out), std::pair(kept, k.cylinders));
    }
}

INSTANTIATE_TEST_SUITE_P(Folder, RealImages, testing::ValuesIn(kImages), ImageName);

}  // namespace
