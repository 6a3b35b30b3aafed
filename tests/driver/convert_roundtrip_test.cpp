// End to end through zebconv: every image format to ZEB (encoded or raw) or HFE
// and back again gives the same file, byte for byte.
#include <gtest/gtest.h>

#include <ostream>
#include <random>

#include "driver/driver_run.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

using namespace drivertest;

namespace {

std::string Random(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::string v(n, '\0');
    for (char& b : v) b = static_cast<char>(rng());
    return v;
}

// 77 cylinders of 8 x 1,024 bytes, as every sector format can hold it.
std::string SectorImage(const std::string& ext, const char* name, int seed) {
    VDisk v;
    v.Init(VDISK_2HD, 77, 2);
    for (int t = 0; t < 154; ++t) {
        VTrack* track = v.NewTrack(t / 2, t % 2);
        for (int r = 1; r <= 8; ++r) {
            const std::string data = Random(1024, static_cast<uint32_t>(seed * 1000 + t * 8 + r));
            track->AddSector(MakeSector(1, t / 2, t % 2, r, 3,
                                        reinterpret_cast<const uint8_t*>(data.data()), 1024, 22,
                                        116, 0));
        }
    }
    CopyDiskName(v.name, name);
    const std::string file = std::string("rt_src_") + name + ext;
    EXPECT_TRUE(v.Export(PathOf(file)));
    return Slurp(file);
}

struct Trip {
    const char* name;
    const char* ext;   // of the source and of the result
    size_t plainSize;  // 0: built through a VDisk
    const char* mid;   // the intermediate file
    const char* opts;
};

const Trip kTrips[] = {
    {"hdm", ".hdm", 1261568, "mid.zeb", ""},       // 77 x 2 x 8 x 1024, 360 rpm
    {"2hc", ".2hc", 1228800, "mid.zeb", ""},       // 80 x 2 x 15 x 512
    {"2hq", ".2hq", 1474560, "mid.zeb", ""},       // 80 x 2 x 18 x 512, 300 rpm
    {"2dd", ".2dd", 737280, "mid.zeb", ""},        // 80 x 2 x 9 x 512
    {"d88second", ".d88", 0, "mid.zeb", " -n 2"},  // the second disk of two
    {"dim", ".dim", 0, "mid.zeb", ""},
    {"fdi", ".fdi", 0, "mid.zeb", ""},
    {"fdd", ".fdd", 0, "mid.zeb", ""},
    {"nfd", ".nfd", 0, "mid.zeb", " -a mb8877"},
    {"hfe2hq", ".2hq", 1474560, "mid.HFE", ""},
    {"hfehdm", ".hdm", 1261568, "mid.hfe", ""},
    {"raw2dd", ".2dd", 737280, "mid.zeb", " -f raw"},
    {"rawhdm", ".hdm", 1261568, "mid.Zeb", " -f R -a mb8877"},
};

// Shown by the test runner in place of the parameter's bytes.
void PrintTo(const Trip& t, std::ostream* os) {
    *os << t.ext << " via " << t.mid << t.opts;
}

class RoundTrip : public testing::TestWithParam<Trip> {};

TEST_P(RoundTrip, BackToTheSameBytes) {
    const Trip& t = GetParam();
    const std::string base = std::string("rt_") + t.name, src = base + t.ext;
    const std::string mid = base + "_" + t.mid, out = base + "_out" + t.ext;
    const std::string want = t.plainSize ? Random(t.plainSize, 7) : SectorImage(t.ext, t.name, 1);
    Spit(src, (std::string(t.name) == "d88second" ? SectorImage(t.ext, "FIRST", 2) : "") + want);
    ToolRun r = RunTool(ZEBCONV_PATH, "-i " + src + " -o " + mid + t.opts, base + "_1");
    ASSERT_EQ(r.status, 0) << r.err;
    r = RunTool(ZEBCONV_PATH, "-i " + mid + " -o " + out + t.opts, base + "_2");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(Slurp(out) == want);
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, testing::ValuesIn(kTrips),
                         [](const testing::TestParamInfo<Trip>& p) { return p.param.name; });

}  // namespace
