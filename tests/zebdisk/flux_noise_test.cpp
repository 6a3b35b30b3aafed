// Flux captures under noise, with the index anywhere in a track, and a real
// capture whose last sectors cross the index: every sector must come back
// good, and only once.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "noisecapture.h"
#include "zebdisk/flux_builder.h"

namespace {

using noisecapture::Geometry;
using noisecapture::kNoiseDisks;

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
        fluxsynth::Noise n;
        n.sigma = sigma, n.wobble = wobble, n.offset = offset, n.revolutions = 3;
        const fluxsynth::Flux f = fluxsynth::NoisyFlux(cells.data(), kBits, n);
        ASSERT_EQ(f.index.size(), 4u);
        const double rev = double(f.index[1] - f.index[0]);
        // Time is the integral of 1 / speed: 1 / sqrt(1 - wobble^2) over a turn.
        const double nominal = kBits * kCell / std::sqrt(1 - wobble * wobble);
        EXPECT_NEAR(rev, nominal, nominal * offset + 1) << sigma;
        EXPECT_NEAR(double(f.index[3] - f.index[2]), rev, 2) << sigma;
        double sum = 0, sq = 0;
        int count = 0;
        for (size_t i = 1; i < f.times.size(); i++) {
            const double v = double(f.times[i] - f.times[i - 1]) / (rev / kBits);
            sum += v, sq += v * v, count++;
        }
        const double mean = sum / count, sd = std::sqrt(sq / count - mean * mean);
        EXPECT_NEAR(mean, 4, 0.001) << sigma;
        // Two displaced ends an interval, and 4 x wobble x sin over the turn.
        const double want = std::sqrt(2 * sigma * sigma + 8 * wobble * wobble);
        EXPECT_NEAR(sd, want, 0.05 * want + 0.02) << sigma;
    }
}

// The index where asked, and each revolution running on from the last.
TEST(NoisyFlux, IndexLiesAtTheGivenCell) {
    std::vector<uint8_t> cells(10000 / 8);
    cells[1000 / 8] = 0x80;  // one transition, at cell 1000
    fluxsynth::Noise n;
    n.wobble = 0, n.offset = 0, n.indexCell = 600, n.revolutions = 3;
    const fluxsynth::Flux f = fluxsynth::NoisyFlux(cells.data(), 10000, n);
    std::vector<double> after;
    for (size_t r = 0; r < 3; r++)
        for (uint64_t t : f.times)
            if (t > f.index[r] && t <= f.index[r + 1]) after.push_back(double(t - f.index[r]) / 80);
    ASSERT_EQ(after.size(), 3u);
    for (double cellsAfter : after) EXPECT_NEAR(cellsAfter, 400.5, 0.02);
}

struct NoiseCase {
    const Geometry* disk;
    double sigma;
    friend void PrintTo(const NoiseCase& c, std::ostream* os) {
        *os << c.disk->name << " sigma " << c.sigma;
    }
};

class NoiseRecovery : public testing::TestWithParam<NoiseCase> {};

TEST_P(NoiseRecovery, EverySectorComesBack) {
    const auto [disk, sigma] = GetParam();
    fluxsynth::Noise n;
    n.sigma = sigma;
    n.seed = static_cast<uint32_t>(sigma * 1000);
    const auto r = noisecapture::Recover(
        *disk, n, fluxtest::Scratch("noise_" + std::string(disk->name) + std::to_string(n.seed)));
    EXPECT_EQ(r.sectors, disk->cylinders * disk->heads * disk->sectors);
    EXPECT_EQ(r.good, r.sectors);
    EXPECT_EQ(r.twice, 0);
}

std::vector<NoiseCase> NoiseCases() {
    std::vector<NoiseCase> v;
    for (const Geometry& g : kNoiseDisks)
        for (double sigma : {0.03, 0.05, 0.07, 0.09}) v.push_back({&g, sigma});
    return v;
}
INSTANTIATE_TEST_SUITE_P(Sigma, NoiseRecovery, testing::ValuesIn(NoiseCases()),
                         [](const auto& row) {
                             return std::string(row.param.disk->name) + "_" +
                                    std::to_string(static_cast<int>(row.param.sigma * 100 + 0.5));
                         });

// The index inside the last sector: its ID field before the index, its data
// after it, the seam in gap 2, in the data or in the data CRC.
enum Seam { kGap2, kData, kCrc };
struct SeamCase {
    const char* name;
    Geometry disk;
    Seam seam;
    double sigma;
    bool kryoflux = false;
    friend void PrintTo(const SeamCase& c, std::ostream* os) { *os << c.name; }
};

class IndexSeam : public testing::TestWithParam<SeamCase> {};

TEST_P(IndexSeam, LastSectorAcrossTheIndexComesBackOnce) {
    const SeamCase& p = GetParam();
    const std::string dir = fluxtest::Scratch(std::string("seam_") + p.name);
    const auto at = noisecapture::LastSector(p.disk, dir);
    ASSERT_GE(at.id, 0);
    const int cpb = p.disk.mfm ? 16 : 32;
    fluxsynth::Noise n;
    n.sigma = p.sigma;
    n.indexCell = p.seam == kGap2   ? at.gap2 + 5 * cpb
                  : p.seam == kData ? (at.data + at.crc) / 2
                                    : at.crc + cpb / 2 + 3;
    const auto r = noisecapture::Recover(p.disk, n, dir, p.kryoflux);
    EXPECT_EQ(r.sectors, p.disk.cylinders * p.disk.heads * p.disk.sectors);
    EXPECT_EQ(r.good, r.sectors);
    EXPECT_EQ(r.twice, 0);
}

constexpr Geometry kMfm{"Mfm", 2, 2, 8, 3, true, 500, 360};
constexpr Geometry kFm{"Fm", 2, 2, 16, 0, false, 250, 300};
// clang-format off
const SeamCase kSeams[] = {
    {"MfmGap2", kMfm, kGap2, 0.0},
    {"MfmData", kMfm, kData, 0.0},
    {"MfmCrcNoisy", kMfm, kCrc, 0.03},
    {"MfmDataKryoFlux", kMfm, kData, 0.03, true},
    {"FmGap2Noisy", kFm, kGap2, 0.03},
    {"FmData", kFm, kData, 0.0},
    {"FmCrc", kFm, kCrc, 0.0, true},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Captures, IndexSeam, testing::ValuesIn(kSeams),
                         [](const auto& row) { return std::string(row.param.name); });

// A real Atari single-density capture, written in a slower drive: the last
// sector of many tracks crosses the index. The sector image made from the same
// disk holds zeros for two sectors that could not be read then (cylinder 12
// R 10 and cylinder 14 R 6, also unreadable in every revolution here); the
// other 718 must come back, each once.
TEST(RealCapture, FmScpWithSectorsAcrossTheIndex) {
    const std::string dir = std::string(ZEBKIT_REALIMAGES_DIR) + "/flux/";
    const std::string scp = dir + "atari-dos3-fm-sd.scp", img = dir + "atari-dos3-fm-sd.img";
    if (access(scp.c_str(), R_OK) != 0 || access(img.c_str(), R_OK) != 0)
        GTEST_SKIP() << "the real flux capture is not on this machine (" << dir << ")";
    const std::string out = fluxtest::Scratch("real_atari.d88");
    ZEBDisk z;
    ASSERT_TRUE(z.Import(fluxtest::PathOf(scp), 1)) << z.report.error;
    ASSERT_TRUE(z.Export(fluxtest::PathOf(out), 0));
    const fluxtest::Bytes want = fluxtest::Slurp(img);
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
