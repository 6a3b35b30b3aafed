// Flux captures built from encoded sector disks, read back through the SCP and
// KryoFlux readers and exported to D88: every sector must come back.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;

enum class Format { kScp, kKryoFlux };
enum class Kind { kMfm2D, kMfm2DD, kMfm2HD360, kMfm2HD300, kFm2D, kMixed };

struct FluxCase {
    const char* name;
    Format format;
    Kind kind;
    double speed = 1.0;
    double jitter = 0.10;
    // Damaged sectors: {revolution, R} pairs, on every track.
    std::vector<std::pair<int, int>> damage = {};
    bool singleSided = false;
    bool fold = false;  // a 40-track disk read with single steps of an 80-track drive
    uint8_t resolution = 0;
    double sck = 0;  // KryoFlux clock named in the stream; 0 keeps the default
    int wantRate = 4000, wantRpm = 300, wantCylinders = 42;
};

// The disk of a kind, over a few cylinders (the rest of the capture is empty).
VDisk* Build(Kind kind, bool singleSided) {
    auto* v = new VDisk;
    const int heads = singleSided ? 1 : 2;
    switch (kind) {
        case Kind::kMfm2D:
            v->Init(VDISK_2D, 3, heads);
            for (int c = 0; c < 3; c++)
                for (int h = 0; h < heads; h++) AddTrack(*v, c, h, 1, 16, 1);
            break;
        case Kind::kMfm2DD:
            v->Init(VDISK_2DD, 80, heads);
            for (int c : {0, 1, 42, 79})
                for (int h = 0; h < heads; h++) AddTrack(*v, c, h, 1, 9, 2);
            break;
        case Kind::kMfm2HD360:
            v->Init(VDISK_2HD, 2, heads);
            for (int c = 0; c < 2; c++)
                for (int h = 0; h < heads; h++) AddTrack(*v, c, h, 1, 8, 3);
            break;
        case Kind::kMfm2HD300:
            v->Init(VDISK_2HD, 2, heads);
            for (int c = 0; c < 2; c++)
                for (int h = 0; h < heads; h++) AddTrack(*v, c, h, 1, 18, 2);
            break;
        case Kind::kFm2D:
            v->Init(VDISK_2D, 2, heads);
            for (int c = 0; c < 2; c++)
                for (int h = 0; h < heads; h++) AddTrack(*v, c, h, 0, 12, 0);
            break;
        case Kind::kMixed:
            v->Init(VDISK_2D, 3, heads);
            for (int c = 0; c < 3; c++)
                for (int h = 0; h < heads; h++)
                    AddTrack(*v, c, h, c == 0 && h == 0 ? 0 : 1, c == 0 && h == 0 ? 12 : 16,
                             c == 0 && h == 0 ? 0 : 1);
            break;
    }
    return v;
}

void PrintTo(const FluxCase& c, std::ostream* os) {
    *os << c.name;
}

std::string CaptureName(const testing::TestParamInfo<FluxCase>& info) {
    return info.param.name;
}

class FluxRoundTrip : public testing::TestWithParam<FluxCase> {};

TEST_P(FluxRoundTrip, EverySectorComesBack) {
    const FluxCase& p = GetParam();
    std::unique_ptr<VDisk> want(Build(p.kind, p.singleSided));
    auto enc = std::make_unique<Encoded>();
    ASSERT_TRUE(Encode(*want, Scratch(std::string(p.name) + "_orig.d88"), enc.get()));
    const bool hd = p.kind == Kind::kMfm2HD360 || p.kind == Kind::kMfm2HD300;

    Shape shape;
    shape.speed = p.speed;
    shape.jitter = p.jitter;
    shape.cellSeconds = hd ? 1e-6 : 2e-6;
    if (p.format == Format::kScp) shape.clockHz = 40e6 / (p.resolution + 1);
    if (p.sck > 0) shape.clockHz = p.sck;

    std::map<int, Flux> tracks;  // by physical cylinder x 2 + head
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        if (!enc->bits[slot] || !want->Track(slot / 2, slot % 2) ||
            !want->Track(slot / 2, slot % 2)->sectors)
            continue;
        const int c = slot / 2, h = slot % 2;
        shape.seed = static_cast<uint32_t>(slot + 1);
        std::vector<Flux> revs;
        // Every damaged revolution is spoilt separately; the cells of the
        // others come from one clean pass.
        Flux f = CellsToFlux(enc->cells[slot].data(), enc->bits[slot], shape);
        for (auto [rev, r] : p.damage) {
            Shape d = shape;
            d.damageRev = rev;
            std::tie(d.damageFrom, d.damageTo) = DataCells(*enc, slot, r);
            ASSERT_LT(d.damageFrom, d.damageTo);
            d.damageFrom += 64, d.damageTo = d.damageFrom + 400;
            const Flux spoilt = CellsToFlux(enc->cells[slot].data(), enc->bits[slot], d);
            // Take the spoilt revolution's transitions in place of the clean ones.
            std::vector<uint64_t> t;
            for (uint64_t x : f.times)
                if (x <= f.index[rev] || x > f.index[rev + 1]) t.push_back(x);
            for (uint64_t x : spoilt.times)
                if (x > f.index[rev] && x <= f.index[rev + 1]) t.push_back(x);
            std::sort(t.begin(), t.end());
            f.times = t;
        }
        tracks[(p.fold ? 2 * c : c) * 2 + h] = f;
    }

    std::string source;
    if (p.format == Format::kScp) {
        ScpOptions o;
        o.heads = p.singleSided ? 1 : 0;
        o.resolution = p.resolution;
        source = Scratch(std::string(p.name) + ".scp");
        Spit(source, MakeScp(tracks, o));
    } else {
        const std::string dir = Scratch(std::string(p.name) + "_set");
        mkdir(dir.c_str(), 0755);
        StreamOptions o;
        o.sck = p.sck;
        o.nops = true;
        for (int t = 0; t < 168; t++)
            std::remove((dir + "/track" + (t / 2 < 10 ? "0" : "") + std::to_string(t / 2) + "." +
                         std::to_string(t % 2) + ".raw")
                            .c_str());
        for (const auto& [number, f] : tracks) {
            char name[32];
            std::snprintf(name, sizeof name, "/track%02d.%d.raw", number / 2, number % 2);
            Spit(dir + name, MakeStream(f, o));
        }
        // The odd tracks of a single-stepped 40-track disk hold no flux.
        if (p.fold)
            for (int c = 1; c < 6; c += 2) {
                char name[32];
                std::snprintf(name, sizeof name, "/track%02d.0.raw", c);
                Spit(dir + name, MakeStream(Flux{{}, {100, 200000, 400000}}, o));
            }
        source = dir + "/track00.0.raw";
    }

    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(source), 1)) << z.report.error;
    EXPECT_EQ(z.Type(), ZEB_RAW);
    EXPECT_EQ(z.Rate(), p.wantRate);
    EXPECT_EQ(z.Rpm(), p.wantRpm);
    EXPECT_EQ(z.Cylinders(), p.wantCylinders);
    const std::string out = Scratch(std::string(p.name) + "_out.d88");
    ASSERT_TRUE(z.Export(PathOf(out), 0));
    VDisk got;
    ASSERT_TRUE(got.Import(PathOf(out), 1));
    EXPECT_EQ(SectorDiff(*want, got, 84, 2), "");
}

// clang-format off
const FluxCase kCases[] = {
    {.name = "KryoFluxMfm2DSlow", .format = Format::kKryoFlux, .kind = Kind::kMfm2D, .speed = 1.03},
    {.name = "ScpMfm2DFast", .format = Format::kScp, .kind = Kind::kMfm2D, .speed = 0.97},
    {.name = "ScpMfm2DD", .format = Format::kScp, .kind = Kind::kMfm2DD, .wantCylinders = 84},
    {.name = "KryoFluxMfm2DDOwnClock", .format = Format::kKryoFlux, .kind = Kind::kMfm2DD,
     .sck = 96109714.0, .wantCylinders = 84},
    {.name = "ScpMfm2HD360", .format = Format::kScp, .kind = Kind::kMfm2HD360, .speed = 1.02,
     .wantRate = 8000, .wantRpm = 360, .wantCylinders = 84},
    {.name = "ScpMfm2HD300Res50ns", .format = Format::kScp, .kind = Kind::kMfm2HD300,
     .resolution = 1, .wantRate = 8000, .wantRpm = 300, .wantCylinders = 84},
    {.name = "KryoFluxMfm2HD300", .format = Format::kKryoFlux, .kind = Kind::kMfm2HD300,
     .speed = 0.98, .wantRate = 8000, .wantRpm = 300, .wantCylinders = 84},
    {.name = "KryoFluxFm2D", .format = Format::kKryoFlux, .kind = Kind::kFm2D},
    {.name = "ScpMixedFmMfm", .format = Format::kScp, .kind = Kind::kMixed, .speed = 1.01},
    {.name = "KryoFluxDamagedFirstRevolution", .format = Format::kKryoFlux, .kind = Kind::kMfm2D,
     .damage = {{0, 3}}},
    {.name = "ScpEveryRevolutionDamagedSomewhere", .format = Format::kScp, .kind = Kind::kMfm2D,
     .damage = {{0, 2}, {1, 5}, {2, 2}}},
    {.name = "KryoFluxEveryRevolutionDamagedSomewhere", .format = Format::kKryoFlux,
     .kind = Kind::kMfm2DD, .damage = {{0, 7}, {1, 1}, {2, 7}}, .wantCylinders = 84},
    {.name = "ScpSingleSided", .format = Format::kScp, .kind = Kind::kMfm2D, .singleSided = true},
    {.name = "ScpFolded40Track", .format = Format::kScp, .kind = Kind::kMfm2D, .fold = true},
    {.name = "KryoFluxFolded40Track", .format = Format::kKryoFlux, .kind = Kind::kMfm2D,
     .fold = true},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Captures, FluxRoundTrip, testing::ValuesIn(kCases), CaptureName);

}  // namespace
