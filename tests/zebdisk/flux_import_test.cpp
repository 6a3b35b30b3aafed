// Flux captures built from encoded sector disks, and the one real capture at
// hand, read back through the SCP and KryoFlux readers: every sector must come
// back.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;

// A disk over a few cylinders (the rest of the capture is empty: an SCP file
// of 2DD starts at track 2) and what its capture must be read as. mfm -1:
// track 0.0 is FM (12 x 128), the rest MFM.
struct Layout {
    int type, cyls;
    std::vector<int> used;
    int mfm, count, n, rate, rpm, cylinders;
};
const Layout k2D{VDISK_2D, 3, {0, 1, 2}, 1, 16, 1, 4000, 300, 42};
const Layout k2DD{VDISK_2DD, 80, {1, 42, 79}, 1, 9, 2, 4000, 300, 84};
const Layout k2HD360{VDISK_2HD, 2, {0, 1}, 1, 8, 3, 8000, 360, 84};
const Layout k2HD300{VDISK_2HD, 2, {0, 1}, 1, 18, 2, 8000, 300, 84};
const Layout kFm2D{VDISK_2D, 2, {0, 1}, 0, 12, 0, 4000, 300, 42};
const Layout kMixed{VDISK_2D, 3, {0, 1, 2}, -1, 16, 1, 4000, 300, 42};

struct FluxCase {
    const char* name;
    bool kryoFlux;
    const Layout* layout;
    double speed = 1.0;
    std::vector<std::pair<int, int>> damage = {};  // {revolution, R}, on every track
    bool singleSided = false, fold = false;        // fold: a 40-track disk, an 80-track drive
    uint8_t resolution = 0;
    double sck = 0;  // KryoFlux clock named in the stream; 0 keeps the default
    friend void PrintTo(const FluxCase& c, std::ostream* os) { *os << c.name; }
};

class FluxRoundTrip : public testing::TestWithParam<FluxCase> {};

TEST_P(FluxRoundTrip, EverySectorComesBack) {
    const FluxCase& p = GetParam();
    const Layout& l = *p.layout;
    const std::string base = Scratch(std::string("import_") + p.name);
    const int heads = p.singleSided ? 1 : 2;
    VDisk want;
    want.Init(l.type, l.cyls, heads);
    for (int c : l.used)
        for (int h = 0; h < heads; h++) {
            const bool fm = l.mfm == 0 || (l.mfm < 0 && c + h == 0);
            AddTrack(want, c, h, !fm, fm ? 12 : l.count, fm ? 0 : l.n);
        }
    Shape s;
    s.speed = p.speed;
    s.cellSeconds = l.type == VDISK_2HD ? 1e-6 : 2e-6;
    s.clockHz = p.kryoFlux ? (p.sck > 0 ? p.sck : s.clockHz) : 40e6 / (p.resolution + 1);
    const auto tracks = Capture(want, base + "_orig.d88", s, p.damage, p.fold ? 2 : 1);
    ASSERT_FALSE(tracks.empty());
    std::string source = base + ".scp";
    if (p.kryoFlux) {
        // Every track up to the last, as a drive steps: those without sectors hold no flux.
        mkdir(base.c_str(), 0755);
        for (int t = 0; t <= tracks.rbegin()->first; t++)
            Spit(StreamName(base, t),
                 MakeStream(tracks.count(t) ? tracks.at(t) : Flux{}, p.sck, true));
        source = StreamName(base, 0);
    } else {
        Spit(source, MakeScp(tracks, p.singleSided, p.resolution));
    }
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(source), 1)) << z.report.error;
    EXPECT_EQ(std::tuple(z.Type(), z.Rate(), z.Rpm(), z.Cylinders()),
              std::tuple(ZEB_RAW, l.rate, l.rpm, l.cylinders));
    ASSERT_TRUE(z.Export(PathOf(base + "_out.d88"), 0));
    EXPECT_TRUE(SameD88(base + "_orig.d88", base + "_out.d88"));
}

// clang-format off
const FluxCase kCases[] = {
    {.name = "KryoFluxMfm2DSlow", .kryoFlux = true, .layout = &k2D, .speed = 1.03},
    {.name = "ScpMfm2DFast", .kryoFlux = false, .layout = &k2D, .speed = 0.97},
    {.name = "ScpMfm2DD", .kryoFlux = false, .layout = &k2DD},
    {.name = "KryoFluxMfm2DDOwnClock", .kryoFlux = true, .layout = &k2DD, .sck = 96109714.0},
    {.name = "ScpMfm2HD360", .kryoFlux = false, .layout = &k2HD360, .speed = 1.02},
    {.name = "ScpMfm2HD300Res50ns", .kryoFlux = false, .layout = &k2HD300, .resolution = 1},
    {.name = "KryoFluxMfm2HD300", .kryoFlux = true, .layout = &k2HD300, .speed = 0.98},
    {.name = "KryoFluxFm2D", .kryoFlux = true, .layout = &kFm2D},
    {.name = "ScpMixedFmMfm", .kryoFlux = false, .layout = &kMixed, .speed = 1.01},
    {.name = "ScpEveryRevolutionDamagedSomewhere", .kryoFlux = false, .layout = &k2D,
     .damage = {{0, 2}, {1, 5}, {2, 2}}},
    {.name = "KryoFluxEveryRevolutionDamagedSomewhere", .kryoFlux = true, .layout = &k2DD,
     .damage = {{0, 7}, {1, 1}, {2, 7}}},
    {.name = "ScpSingleSided", .kryoFlux = false, .layout = &k2D, .singleSided = true},
    {.name = "ScpFolded40Track", .kryoFlux = false, .layout = &k2D, .fold = true},
    {.name = "KryoFluxFolded40Track", .kryoFlux = true, .layout = &k2D, .fold = true},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Captures, FluxRoundTrip, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

// A KryoFlux set of a 360 KB IBM PC disk, three revolutions a track, against
// the sector image made from the same disk.
TEST(RealCapture, KryoFluxSetDecodesToItsSectorImage) {
    const std::string dir = std::string(ZEBKIT_REALIMAGES_DIR) + "/flux/pc-sector-test-360k";
    const std::string set = dir + "-kryoflux/track00.0.raw", out = Scratch("real_360k.2d");
    if (access(set.c_str(), R_OK) != 0 || access((dir + ".img").c_str(), R_OK) != 0)
        GTEST_SKIP() << "the real flux capture is not on this machine (" << dir << ")";
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(set), 1)) << z.report.error;
    EXPECT_EQ(z.report.warnings, std::vector<std::string>{});
    EXPECT_EQ(std::tuple(z.Type(), z.Rate(), z.Rpm(), z.Cylinders()),
              std::tuple(ZEB_RAW, 4000, 300, 42));
    char name[zebhdr::kNameLen];
    EXPECT_STREQ(z.GetName(name), "pc-sector-test-360k-kryoflux");  // the set's folder
    ASSERT_TRUE(z.Export(PathOf(out), 0));
    EXPECT_EQ(Slurp(out).size(), 368640u);
    EXPECT_TRUE(Slurp(out) == Slurp(dir + ".img"));
}

}  // namespace
