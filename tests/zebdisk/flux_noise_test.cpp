// Flux captures under noise, with the index anywhere in a track or inside its last sector, the
// cells kept in every track-level form, sectors spoilt in some revolutions, and a real capture
// whose last sectors cross the index: every sector must come back good, and only once.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "noisecapture.h"
#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;
using noisecapture::Geometry;

// The noise model itself, on a track of one transition every four cells:
// every revolution as long as the track's own speed makes it, the intervals
// spread as the displacement and the wobble make them.
TEST(NoisyFlux, RevolutionsAndIntervalsFollowTheModel) {
    constexpr int kBits = 80000;
    const std::vector<uint8_t> cells(kBits / 8, 0x88);
    const double kCell = 2e-6 * 40e6;
    for (auto [sigma, wobble, offset] :
         {std::tuple{0.0, 0.0, 0.0}, std::tuple{0.05, 0.0, 0.01}, std::tuple{0.0, 0.015, 0.0},
          std::tuple{0.1, 0.015, 0.01}}) {
        Noise n;
        n.sigma = sigma, n.wobble = wobble, n.offset = offset, n.revolutions = 3;
        const Flux f = NoisyFlux(cells.data(), kBits, n);
        ASSERT_EQ(f.index.size(), 4u);
        const double rev = double(f.index[1] - f.index[0]);
        // Time is the integral of 1 / speed: 1 / sqrt(1 - wobble^2) over a turn.
        const double nominal = kBits * kCell / std::sqrt(1 - wobble * wobble);
        EXPECT_NEAR(rev, nominal, nominal * offset + 1) << sigma;
        EXPECT_NEAR(double(f.index[3] - f.index[2]), rev, 2) << sigma;
        double sum = 0, sq = 0;
        for (size_t i = 1; i < f.times.size(); i++) {
            const double v = double(f.times[i] - f.times[i - 1]) / (rev / kBits);
            sum += v, sq += v * v;
        }
        const double count = double(f.times.size() - 1), mean = sum / count;
        EXPECT_NEAR(mean, 4, 0.001) << sigma;
        // Two displaced ends an interval, and 4 x wobble x sin over the turn.
        const double want = std::sqrt(2 * sigma * sigma + 8 * wobble * wobble);
        EXPECT_NEAR(std::sqrt(sq / count - mean * mean), want, 0.05 * want + 0.02) << sigma;
    }
}

// The index where asked, and each revolution running on from the last.
TEST(NoisyFlux, IndexLiesAtTheGivenCell) {
    std::vector<uint8_t> cells(10000 / 8);
    cells[1000 / 8] = 0x80;  // one transition, at cell 1000
    Noise n;
    n.wobble = 0, n.offset = 0, n.indexCell = 600, n.revolutions = 3;
    const Flux f = NoisyFlux(cells.data(), 10000, n);
    std::vector<double> after;
    for (size_t r = 0; r < 3; r++)
        for (uint64_t t : f.times)
            if (t > f.index[r] && t <= f.index[r + 1]) after.push_back(double(t - f.index[r]) / 80);
    ASSERT_EQ(after.size(), 3u);
    for (double cellsAfter : after) EXPECT_NEAR(cellsAfter, 400.5, 0.02);
}

// Where the index falls: anywhere, or inside the last sector of every track, its ID field
// before the index and its data after it, the seam in gap 2, in the data or in the data CRC.
enum Seam { kAnywhere, kGap2, kData, kCrc };
struct CaptureCase {
    std::string name;
    Geometry disk;
    double sigma;
    Seam seam = kAnywhere;
    bool kryoflux = false;
    std::string via = "";  // ".zeb" or ".hfe": the cells go through that file and back first
    uint32_t seed = 1;
    friend void PrintTo(const CaptureCase& c, std::ostream* os) { *os << c.name; }
};

class NoisyCapture : public testing::TestWithParam<CaptureCase> {};

TEST_P(NoisyCapture, EverySectorComesBackOnce) {
    const CaptureCase& p = GetParam();
    const std::string dir = Scratch("capture_" + p.name), mid = dir + "/mid" + p.via;
    Noise n;
    n.sigma = p.sigma, n.seed = p.seed;
    if (p.seam != kAnywhere) {
        const auto at = noisecapture::LastSector(p.disk, dir);
        ASSERT_GE(at.id, 0);
        const int cpb = p.disk.mfm ? 16 : 32;
        n.indexCell = p.seam == kGap2   ? at.gap2 + 5 * cpb
                      : p.seam == kData ? (at.data + at.crc) / 2
                                        : at.crc + cpb / 2 + 3;
    }
    VDisk source;
    const std::string capture = noisecapture::WriteCapture(p.disk, n, dir, p.kryoflux, source);
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(capture), 1)) << z.report.error;
    ASSERT_TRUE(p.via == ".zeb" ? z.ConvertEnc() && z.Save(PathOf(mid), 1) && z.Load(PathOf(mid), 0)
                : p.via == ".hfe" ? z.Export(PathOf(mid), 0) && z.Import(PathOf(mid), 1)
                                  : true);
    ASSERT_TRUE(z.Export(PathOf(dir + "/out.d88"), 0));
    const auto r = noisecapture::Compare(source, p.disk.cylinders, p.disk.heads, dir + "/out.d88");
    const int all = p.disk.cylinders * p.disk.heads * p.disk.sectors;
    EXPECT_EQ(std::tuple(r.sectors, r.good, r.twice), std::tuple(all, all, 0));
}

constexpr Geometry kMfm{"Mfm", 2, 2, 8, 3, true, 500, 360}, kFm{"Fm", 2, 2, 16, 0, false, 250, 300},
    k2D{"Mfm2D", 2, 2, 16, 1, true, 250, 300};

std::vector<CaptureCase> CaptureCases() {
    // clang-format off
    std::vector<CaptureCase> v = {
        {"SeamMfmGap2", kMfm, 0.0, kGap2},
        {"SeamMfmData", kMfm, 0.0, kData},
        {"SeamMfmCrcNoisy", kMfm, 0.03, kCrc},
        {"SeamMfmDataKryoFlux", kMfm, 0.03, kData, true},
        {"SeamFmGap2Noisy", kFm, 0.03, kGap2},
        {"SeamFmData", kFm, 0.0, kData},
        {"SeamFmCrcKryoFlux", kFm, 0.0, kCrc, true},
        {"SeamInD88", k2D, 0.05, kData},
        {"SeamThroughZeb", k2D, 0.05, kData, false, ".zeb"},
        {"SeamThroughHfe", k2D, 0.05, kData, false, ".hfe"},
    };
    // clang-format on
    for (const Geometry& g : noisecapture::kNoiseDisks)
        for (double sigma : {0.03, 0.05, 0.07, 0.09})
            v.push_back({std::string(g.name) + "_Sigma" + std::to_string(int(sigma * 100 + 0.5)), g,
                         sigma, kAnywhere, false, "", static_cast<uint32_t>(sigma * 1000)});
    return v;
}
INSTANTIATE_TEST_SUITE_P(Captures, NoisyCapture, testing::ValuesIn(CaptureCases()),
                         [](const auto& row) { return row.param.name; });

// Sector R 3 of every track spoilt in the given revolutions of two: good from either, and a
// sector bad in both counted once.
TEST(SpoiltRevolutions, GoodFromAnyRevolutionLossesCounted) {
    const struct {
        const char* name;
        std::vector<std::pair<int, int>> damage;  // {revolution, R}
        int good;
        std::vector<std::string> warnings;
    } cases[] = {
        // clang-format off
        {"first", {{0, 3}}, 18, {}},
        {"second", {{1, 3}}, 18, {}},
        {"both", {{0, 3}, {1, 3}}, 16, {"2 of 18 sectors read bad in every revolution (first: track 0.0, R 3)"}},
        // clang-format on
    };
    VDisk v;
    v.Init(VDISK_2DD, 2, 1);
    for (int c = 0; c < 2; c++) AddTrack(v, c, 0, 1, 9, 2);
    Shape s;
    s.revolutions = 2, s.jitter = 0.05, s.clockHz = 40e6;
    for (const auto& k : cases) {
        SCOPED_TRACE(k.name);
        const std::string base = Scratch(std::string("spoilt_") + k.name);
        const auto tracks = Capture(v, base + ".src.d88", s, k.damage);
        ASSERT_EQ(tracks.size(), 2u);
        Spit(base + ".scp", MakeScp(tracks, 1));
        ZEBDisk z;
        ASSERT_TRUE(z.Import(PathOf(base + ".scp"), 1));
        EXPECT_EQ(z.report.warnings, k.warnings);
        ASSERT_TRUE(z.Export(PathOf(base + ".d88"), 0));
        const auto r = noisecapture::Compare(v, 2, 1, base + ".d88");
        EXPECT_EQ(std::tuple(r.sectors, r.good, r.twice), std::tuple(18, k.good, 0));
    }
}

// A real Atari single-density capture, written in a slower drive: the last
// sector of many tracks crosses the index. The sector image made from the same
// disk holds zeros for two sectors that could not be read then (cylinder 12
// R 10 and cylinder 14 R 6, also unreadable in every revolution here); the
// other 718 must come back, each once.
TEST(RealCapture, FmScpWithSectorsAcrossTheIndex) {
    const std::string dir = std::string(ZEBKIT_REALIMAGES_DIR) + "/flux/";
    const std::string scp = dir + "atari-dos3-fm-sd.scp", out = Scratch("real_atari.d88");
    const Bytes want = Slurp(dir + "atari-dos3-fm-sd.img");
    if (Slurp(scp).empty() || want.empty())
        GTEST_SKIP() << "the real flux capture is not on this machine (" << dir << ")";
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(scp), 1)) << z.report.error;
    ASSERT_TRUE(z.Export(PathOf(out), 0));
    ASSERT_EQ(want.size(), 720u * 128);
    VDisk source;  // the image's sectors as FM sectors of 128 bytes, fillers left out
    source.Init(VDISK_2D, 40, 1);
    for (int c = 0; c < 40; c++) {
        VTrack* t = source.NewTrack(c, 0);
        for (int r = 1; r <= 18; r++)
            if ((c != 12 || r != 10) && (c != 14 || r != 6))
                t->AddSector(
                    MakeSector(0, c, 0, r, 0, &want[size_t(c * 18 + r - 1) * 128], 128, 11, 27, 0));
    }
    const auto r = noisecapture::Compare(source, 40, 1, out);
    EXPECT_EQ(std::tuple(r.sectors, r.good, r.twice), std::tuple(718, 718, 0));
}

}  // namespace
