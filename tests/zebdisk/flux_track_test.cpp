// Tracks read from flux into cells: a sector across the index stays whole in
// every track-level form the cells are written to, a sector spoilt in one
// revolution comes from another, and one spoilt in all is counted once.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "noisecapture.h"
#include "zebdisk/flux_builder.h"

namespace {

using noisecapture::Geometry;

constexpr Geometry kDisk{"Mfm2D", 2, 2, 16, 1, true, 250, 300};

// Through an encoded ZEB or an HFE file and back, or straight to D88.
class AcrossTheIndex : public testing::TestWithParam<const char*> {};

TEST_P(AcrossTheIndex, EveryFormKeepsTheSector) {
    const std::string via = GetParam();
    const std::string dir = fluxtest::Scratch("across_" + via.substr(1));
    const auto at = noisecapture::LastSector(kDisk, dir);
    ASSERT_GE(at.id, 0);
    fluxsynth::Noise n;
    n.sigma = 0.05;
    n.indexCell = (at.data + at.crc) / 2;
    VDisk source;
    const std::string capture = noisecapture::WriteCapture(kDisk, n, dir, false, source);
    const std::string mid = dir + "/mid" + via, out = dir + "/out.d88";
    ZEBDisk z;
    ASSERT_TRUE(z.Import(noisecapture::PathOf(capture), 1));
    if (via == ".zeb") {
        ASSERT_TRUE(z.ConvertEnc() && z.Save(noisecapture::PathOf(mid), 1));
        ASSERT_TRUE(z.Load(noisecapture::PathOf(mid), 0));
    } else if (via == ".hfe") {
        ASSERT_TRUE(z.Export(noisecapture::PathOf(mid), 0));
        ASSERT_TRUE(z.Import(noisecapture::PathOf(mid), 1));
    }
    ASSERT_TRUE(z.Export(noisecapture::PathOf(out), 0));
    const auto r = noisecapture::Compare(source, kDisk.cylinders, kDisk.heads, out);
    EXPECT_EQ(std::tuple(r.sectors, r.good, r.twice), std::tuple(64, 64, 0));
}

INSTANTIATE_TEST_SUITE_P(Forms, AcrossTheIndex, testing::Values(".d88", ".zeb", ".hfe"),
                         [](const auto& row) { return std::string(row.param + 1); });

// Sector R 3 of every track spoilt in the given revolutions of two.
struct LossCase {
    const char* name;
    std::vector<std::pair<int, int>> damage;  // {revolution, R}
    int good;
    std::vector<std::string> warnings;
};

class SpoiltRevolutions : public testing::TestWithParam<LossCase> {};

TEST_P(SpoiltRevolutions, GoodFromAnyRevolutionLossesCounted) {
    const LossCase& p = GetParam();
    const std::string base = fluxtest::Scratch(std::string("spoilt_") + p.name);
    VDisk v;
    v.Init(VDISK_2DD, 2, 1);
    for (int c = 0; c < 2; c++) fluxtest::AddTrack(v, c, 0, 1, 9, 2);
    fluxtest::Shape s;
    s.revolutions = 2;
    s.jitter = 0.05;
    s.clockHz = 40e6;
    const auto tracks = fluxtest::Capture(v, base + ".src.d88", s, p.damage);
    ASSERT_EQ(tracks.size(), 2u);
    fluxtest::Spit(base + ".scp", fluxtest::MakeScp(tracks, 1));
    ZEBDisk z;
    ASSERT_TRUE(z.Import(fluxtest::PathOf(base + ".scp"), 1));
    EXPECT_EQ(z.report.warnings, p.warnings);
    ASSERT_TRUE(z.Export(fluxtest::PathOf(base + ".d88"), 0));
    const auto r = noisecapture::Compare(v, 2, 1, base + ".d88");
    EXPECT_EQ(std::tuple(r.sectors, r.good, r.twice), std::tuple(18, p.good, 0));
}

INSTANTIATE_TEST_SUITE_P(
    Captures, SpoiltRevolutions,
    testing::Values(LossCase{"First", {{0, 3}}, 18, {}}, LossCase{"Second", {{1, 3}}, 18, {}},
                    LossCase{
                        "Both",
                        {{0, 3}, {1, 3}},
                        16,
                        {"2 of 18 sectors read bad in every revolution (first: track 0.0, R 3)"}}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
