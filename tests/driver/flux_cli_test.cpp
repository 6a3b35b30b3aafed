// zebconv and zebscan on flux captures: the routes a user takes from an SCP
// file, and the lines a refused or doubtful file prints.
#include <gtest/gtest.h>

#include <string>

#include "driver/driver_run.h"
#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;

struct Route {
    const char* name;
    const char* tool;  // ZEBCONV_PATH or ZEBSCAN_PATH
    const char* out;   // zebconv's destination extension and options
    int status;
    const char* err;  // how standard error begins
    int type, rate;   // a ZEB destination's type and rate
    friend void PrintTo(const Route& r, std::ostream* os) { *os << r.name; }
};

const char* const kOk = "Result             : Success\n";

// clang-format off
const Route kRoutes[] = {
    {"ToD88", ZEBCONV_PATH, ".d88", 0, kOk, 0, 0},
    {"ToD88Mb8877", ZEBCONV_PATH, ".d88 -a mb8877", 0, kOk, 0, 0},
    {"ToRawZebKeepsTheSignal", ZEBCONV_PATH, ".zeb -f raw", 0, kOk, ZEB_RAW, 4000},
    {"ToZebKeepsCells", ZEBCONV_PATH, ".zeb", 0, kOk, ZEB_2D, 500},
    {"Zebscan", ZEBSCAN_PATH, "", 0, "", 0, 0},
    {"NotAnScpFile", ZEBCONV_PATH, ".d88", 2,
     "Error : disk.scp: no SCP signature\nResult             : Import failed\n", 0, 0},
    {"ChecksumMismatch", ZEBCONV_PATH, ".d88", 0, "Warning : checksum mismatch: ", 0, 0},
};
// clang-format on

class FluxCli : public testing::TestWithParam<Route> {};

// A three-cylinder 2D disk captured in three revolutions, the first with a
// damaged sector on every track.
TEST_P(FluxCli, RunsAsAUserSeesIt) {
    const Route& r = GetParam();
    const std::string base = Scratch(std::string("cli_") + r.name), scp = base + "/disk.scp";
    mkdir(base.c_str(), 0755);
    VDisk want;
    want.Init(VDISK_2D, 3, 2);
    for (int c = 0; c < 3; c++)
        for (int h = 0; h < 2; h++) AddTrack(want, c, h, 1, 16, 1);
    Shape s;
    s.clockHz = 40e6;
    Bytes b = MakeScp(Capture(want, base + "/orig.d88", s, {{0, 4}}));
    if (r.status) b[0] = 'X';
    if (r.err[0] == 'W') b[12] ^= 0x55;
    Spit(scp, b);
    const std::string out = base + "/out" + r.out;
    const auto run = drivertest::RunTool(r.tool, r.out[0] ? "-i " + scp + " -o " + out : scp, base);
    EXPECT_EQ(run.status, r.status) << run.err;
    EXPECT_EQ(run.err.substr(0, std::strlen(r.err)), r.err);
    const bool scan = r.tool == std::string(ZEBSCAN_PATH);
    EXPECT_TRUE(run.err.ends_with(scan ? "" : r.status ? "Import failed\n" : kOk)) << run.err;
    if (r.status) return;
    if (scan) {  // the damaged sectors read in later revolutions
        EXPECT_NE(run.out.find("Sectors good       : 96\n"), std::string::npos) << run.out;
    } else if (r.out[1] == 'z') {
        ZEBDisk z;
        ASSERT_TRUE(z.Load(PathOf(out.substr(0, out.find(' '))), 0));
        EXPECT_EQ(std::pair(z.Type(), z.Rate()), std::pair(r.type, r.rate));
    } else {
        EXPECT_NE(run.out.find("DIsk Type          : RAW\n"), std::string::npos) << run.out;
        EXPECT_TRUE(SameD88(base + "/orig.d88", out.substr(0, out.find(' '))));
    }
}

INSTANTIATE_TEST_SUITE_P(Routes, FluxCli, testing::ValuesIn(kRoutes),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
