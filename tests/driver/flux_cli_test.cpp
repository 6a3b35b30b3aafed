// zebconv and zebscan on flux captures: the routes a user takes from an SCP
// file or a KryoFlux set, and the lines a refused or doubtful file prints.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "driver/driver_run.h"
#include "zebdisk/flux_builder.h"

namespace {

using drivertest::RunTool;
using namespace fluxtest;

// A three-cylinder 2D disk and its SCP capture (three revolutions, the first
// with a damaged sector on every track).
struct Capture {
    std::unique_ptr<VDisk> disk{new VDisk};
    std::string scp = Scratch("cli_disk.scp");
};

const Capture& TheCapture() {
    static Capture* made = [] {
        auto* cap = new Capture;
        VDisk& v = *cap->disk;
        v.Init(VDISK_2D, 3, 2);
        for (int c = 0; c < 3; c++)
            for (int h = 0; h < 2; h++) AddTrack(v, c, h, 1, 16, 1);
        auto enc = std::make_unique<Encoded>();
        if (!Encode(v, Scratch("cli_disk_orig.d88"), enc.get())) std::abort();
        std::map<int, Flux> tracks;
        for (int slot = 0; slot < 6; slot++) {
            Shape s;
            s.clockHz = 40e6;
            s.seed = static_cast<uint32_t>(slot + 9);
            s.damageRev = 0;
            std::tie(s.damageFrom, s.damageTo) = DataCells(*enc, slot, 4);
            s.damageTo = s.damageFrom + 300;
            tracks[slot] = CellsToFlux(enc->cells[slot].data(), enc->bits[slot], s);
        }
        Spit(cap->scp, MakeScp(tracks));
        return cap;
    }();
    return *made;
}

struct Route {
    const char* name;
    const char* args;  // after "-i <capture> -o "
    const char* out;
};

void PrintTo(const Route& r, std::ostream* os) {
    *os << r.name;
}

class FluxCli : public testing::TestWithParam<Route> {};

TEST_P(FluxCli, ScpToD88KeepsEverySector) {
    const Route& r = GetParam();
    const std::string out = Scratch(r.out);
    std::remove(out.c_str());
    const auto run = RunTool(ZEBCONV_PATH, "-i " + TheCapture().scp + " -o " + out + r.args,
                             std::string("flux_") + r.name);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "Result             : Success\n");
    EXPECT_NE(run.out.find("DIsk Type          : RAW\n"), std::string::npos) << run.out;
    VDisk got;
    ASSERT_TRUE(got.Import(PathOf(out), 1));
    EXPECT_EQ(SectorDiff(*TheCapture().disk, got, 3, 2), "");
}

// clang-format off
const Route kRoutes[] = {
    {"Upd765", "", "cli_flux.d88"},
    {"Mb8877", " -a mb8877", "cli_flux_mb.d88"},
};
// clang-format on

std::string RouteName(const testing::TestParamInfo<Route>& info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Routes, FluxCli, testing::ValuesIn(kRoutes), RouteName);

TEST(FluxCliZeb, RawKeepsTheSignalAndEncodedKeepsCells) {
    const std::string raw = Scratch("cli_flux_raw.zeb"), enc = Scratch("cli_flux_enc.zeb");
    std::remove(raw.c_str());
    std::remove(enc.c_str());
    ASSERT_EQ(
        RunTool(ZEBCONV_PATH, "-i " + TheCapture().scp + " -o " + raw + " -f raw", "flux_r").status,
        0);
    ASSERT_EQ(RunTool(ZEBCONV_PATH, "-i " + TheCapture().scp + " -o " + enc, "flux_e").status, 0);
    ZEBDisk r, e;
    ASSERT_TRUE(r.Load(PathOf(raw), 0));
    ASSERT_TRUE(e.Load(PathOf(enc), 0));
    EXPECT_EQ(r.Type(), ZEB_RAW);
    EXPECT_EQ(r.Rate(), 4000);
    EXPECT_EQ(e.Type(), ZEB_2D);
    EXPECT_EQ(e.Rate(), 500);
}

TEST(FluxCliScan, ZebscanListsACapture) {
    const auto run = RunTool(ZEBSCAN_PATH, TheCapture().scp, "flux_scan");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(run.out.empty());
}

TEST(FluxCliErrors, RefusedFileSaysWhyAndExits2) {
    Bytes b = Bytes(1000, 0);
    Spit(Scratch("cli_bad.scp"), b);
    const auto run = RunTool(
        ZEBCONV_PATH, "-i " + Scratch("cli_bad.scp") + " -o " + Scratch("cli_bad.d88"), "flux_bad");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err,
              "Error : cli_bad.scp: no SCP signature\nResult             : Import failed\n");
}

TEST(FluxCliErrors, ChecksumMismatchWarnsAndConverts) {
    const std::string text = drivertest::Slurp(TheCapture().scp);
    Bytes b(text.begin(), text.end());
    b[12] ^= 0x55;
    Spit(Scratch("cli_sum.scp"), b);
    const auto run = RunTool(
        ZEBCONV_PATH, "-i " + Scratch("cli_sum.scp") + " -o " + Scratch("cli_sum.d88"), "flux_sum");
    EXPECT_EQ(run.status, 0);
    uint32_t sum = 0;
    for (size_t i = 16; i < b.size(); i++) sum += b[i];
    const uint32_t said = FieldReader(b.data(), b.size()).U32(12);
    char want[160];
    std::snprintf(want, sizeof want,
                  "Warning : checksum mismatch: the header says 0x%08X, the bytes sum to 0x%08X; "
                  "read anyway\nResult             : Success\n",
                  static_cast<unsigned>(said), static_cast<unsigned>(sum));
    EXPECT_EQ(run.err, want);
}

}  // namespace
