// Damaged, truncated and crafted flux files: each is refused with its reason
// or read with the warning it deserves, never read past its end.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;

const double kSck = Shape{}.clockHz;

// Two revolutions of an erased-looking track: a transition every two cells of
// a 500 kbit/s disk in a 300 rpm drive.
Flux Tone(double clockHz) {
    Flux f;
    const double cell = 2e-6 * clockHz;
    for (int r = 0; r <= 2; r++) f.index.push_back(static_cast<uint64_t>(10 + r * 100000 * cell));
    for (int k = 1; k < 100000; k++) f.times.push_back(static_cast<uint64_t>(k * 2 * cell));
    return f;
}

using Make = std::function<std::string(const std::string& dir)>;  // returns the file to read
void None(Bytes&) {}
void Straight(Flux&) {}

// A one-track tone capture, an SCP file when the name says so, else a
// KryoFlux stream: its flux bent, its bytes spoilt, then an SCP checksum made
// right again unless asked otherwise.
Make File(const char* name, std::function<void(Bytes&)> spoil,
          std::function<void(Flux&)> bend = Straight, bool resum = true) {
    return [=](const std::string& dir) {
        const bool scp = std::string(name).ends_with(".SCP");
        Flux f = Tone(scp ? 40e6 : kSck);
        bend(f);
        Bytes b = scp ? MakeScp({{0, f}}) : MakeStream(f);
        spoil(b);
        if (scp && resum && b.size() >= 16) Put32(b, 12, ScpSum(b));
        Spit(dir + "/" + name, b);
        return std::string(name);
    };
}
const auto Scp = [](auto spoil, bool resum = true) {
    return File("disk.SCP", spoil, Straight, resum);
};
const auto Kf = [](std::function<void(Bytes&)> spoil, std::function<void(Flux&)> bend = Straight) {
    return File("track00.0.raw", spoil, bend);
};

struct Hostile {
    const char* name;
    Make make;
    const char* error = nullptr;    // the reason after "<file>: ", or null when the file loads
    const char* warning = nullptr;  // the warning, or null; %08X: the header's sum, the bytes'
    friend void PrintTo(const Hostile& h, std::ostream* os) { *os << h.name; }
};

constexpr size_t kTrk = 0x10 + 168 * 4;  // where the only track header starts
const char* const kSum =
    "checksum mismatch: the header says 0x%08X, the bytes sum to 0x%08X; read anyway";
const char* const kCut = "1 stream ends early (first: track 0.0)";

// clang-format off
const Hostile kFiles[] = {
    {"ScpTooShort", Scp([](Bytes& b) { b.resize(100); }), "too short for an SCP header"},
    {"ScpNoSignature", Scp([](Bytes& b) { b[0] = 'X'; }), "no SCP signature"},
    {"ScpNoRevolutions", Scp([](Bytes& b) { b[5] = 0; }), "no revolutions"},
    {"ScpRangeBackwards", Scp([](Bytes& b) { b[6] = 5, b[7] = 2; }), "track range out of order"},
    {"ScpRangePastTheTable", Scp([](Bytes& b) { b[7] = 200; }), "track range out of order"},
    {"ScpEightBitValues", Scp([](Bytes& b) { b[9] = 8; }), "flux values of 8 bits"},
    {"ScpThreeHeads", Scp([](Bytes& b) { b[10] = 3; }), "heads value 3"},
    {"ScpTrackPastTheEnd", Scp([](Bytes& b) { Put32(b, 0x10, b.size() - 8); }), "track 0 header lies outside the file"},
    {"ScpTrackWithoutSignature", Scp([](Bytes& b) { b[kTrk] = 'X'; }), "track 0 header has no TRK signature"},
    {"ScpTrackNamesAnother", Scp([](Bytes& b) { b[kTrk + 3] = 7; }), "track 0 header names track 7"},
    {"ScpHugeFluxCount", Scp([](Bytes& b) { Put32(b, kTrk + 8, 0x7FFFFFFF); }), "track 0 holds too many flux values"},
    {"ScpFluxPastTheEnd", Scp([](Bytes& b) { Put32(b, kTrk + 12, 0xFFFFFF00); }), "track 0 flux data lies outside the file"},
    {"ScpEndlessRevolution", Scp([](Bytes& b) { Put32(b, kTrk + 4, 0xFFFFFFFF); }),
     "track 0: a revolution is longer than any track"},
    {"ScpNoTrackAtAll", Scp([](Bytes& b) { Put32(b, 0x10, 0); }), "no track holds flux"},
    {"ScpChecksumWrong", Scp([](Bytes& b) { b[12] ^= 1; }, false), nullptr, kSum},
    {"ScpAllZeroFlux", Scp([](Bytes& b) { std::fill(b.begin() + kTrk + 28, b.end(), 0); }, false), "no track holds flux", kSum},
    {"ScpFooter", Scp([](Bytes& b) { b[8] |= 0x20, b.resize(b.size() + 48), b.insert(b.end(), {'F', 'P', 'C', 'S'}); })},
    {"KryoFluxNotAStreamName", File("disk.raw", None), "not a stream file name of the form trackNN.S.raw"},
    {"KryoFluxEmptyStream", Kf([](Bytes& b) { b.clear(); }), "no track holds flux", "1 stream ends early"},
    {"KryoFluxOnlyBlocks", Kf([](Bytes& b) {
         b.clear(), Oob(b, 2, Le32({0, 0, 0})), Oob(b, 4, Bytes{'s', 'c', 'k', '=', 'x'});
         Oob(b, 9, Bytes(3, 0xEE)), b.insert(b.end(), {0x0D, 0x0D, 0x0D, 0x0D}); }), "no track holds flux"},
    // Without its stream end and end-of-file blocks, then a Flux3 code without its last byte.
    {"KryoFluxCutInsideAFlux", Kf([](Bytes& b) { b.resize(b.size() - 16), b.insert(b.end(), {0x0C, 0x01}); }), nullptr, kCut},
    {"KryoFluxCutInTheFirstRevolution", Kf([](Bytes& b) { b.resize(60000); }), nullptr, kCut},
    {"KryoFluxBlockRunsPastTheEnd", Kf([](Bytes& b) {
         b.resize(b.size() - 4), Oob(b, 4, {}), b[b.size() - 2] = 0xFF, b[b.size() - 1] = 0xFF; }), nullptr, kCut},
    {"KryoFluxNoIndexAtAll", Kf(None, [](Flux& f) { f.index.clear(); }), nullptr, "1 track holds no whole revolution"},
    {"KryoFluxCaptureError", Kf([](Bytes& b) { b[b.size() - 8] = 1; }),  // the stream end's result
     nullptr, "1 stream reports a capture error (first: track 0.0)"},
    {"KryoFluxMissingTrack", [](const std::string& d) { Kf(None)(d); return File("track02.0.raw", None)(d); },
     nullptr, "1 track is missing from the set, left blank (first: track 1.0)"},
    {"KryoFluxUpperCaseNames", File("TRACK00.0.RAW", None)},
    {"KryoFluxEndlessRevolution", Kf(None, [](Flux& f) {
         f.index[1] = f.index[0] + 1000000000, f.index[2] = f.index[1] + 1, f.times.push_back(f.index[2]); }),
     "a revolution is longer than any track"},
};
// clang-format on

class HostileFlux : public testing::TestWithParam<Hostile> {};

TEST_P(HostileFlux, RefusedWithItsReasonOrReadWithAWarning) {
    const Hostile& h = GetParam();
    const std::string dir = Scratch(std::string("hostile_") + h.name);
    mkdir(dir.c_str(), 0755);
    const std::string file = h.make(dir);
    ZEBDisk z;
    const bool loaded = z.Import(PathOf(dir + "/" + file), 1);
    EXPECT_EQ(loaded, !h.error) << z.report.error;
    EXPECT_EQ(z.report.error, h.error ? file + ": " + h.error : "");
    const Bytes b = Slurp(dir + "/" + file);
    const std::vector<std::string>& said = z.report.warnings;
    char want[160] = "";
    if (h.warning)
        std::snprintf(want, sizeof want, h.warning,
                      b.size() < 16 ? 0 : FieldReader(b.data(), 16).U32(12), ScpSum(b));
    ASSERT_EQ(said.size(), h.warning ? 1u : 0u) << (said.empty() ? "" : said[0]);
    EXPECT_EQ(said.empty() ? "" : said[0].substr(0, std::strlen(want)), want);
}

INSTANTIATE_TEST_SUITE_P(Files, HostileFlux, testing::ValuesIn(kFiles),
                         [](const auto& row) { return std::string(row.param.name); });

// A 200,000-clock flux inside the first revolution (three carries before its
// remainder) and another around the second index: the pulse after the first
// lands where its time puts it, and the revolution keeps its length.
TEST(LongFlux, CarriesAndAnIndexInsideAFluxKeepTheTime) {
    for (const bool kryoFlux : {false, true}) {
        SCOPED_TRACE(kryoFlux ? "KryoFlux" : "SCP");
        const double clock = kryoFlux ? kSck : 40e6, perSample = 2e-6 * clock / 8;
        Flux f = Tone(clock);
        const uint64_t gap = f.index[0] + 1600000, around = f.index[1] - 150000;
        std::erase_if(f.times, [&](uint64_t t) {
            return (t > gap && t < gap + 200000) || (t > around && t < around + 200000);
        });
        f.times.insert(f.times.end(), {gap + 200000, around + 200000});
        std::sort(f.times.begin(), f.times.end());
        const std::string file =
            kryoFlux ? StreamName(Scratch("long_flux_set"), 0) : Scratch("long_flux.scp");
        mkdir(Scratch("long_flux_set").c_str(), 0755);
        Spit(file, kryoFlux ? MakeStream(f) : MakeScp({{0, f}}));
        ZEBDisk z;
        ASSERT_TRUE(z.Import(PathOf(file), 1)) << z.report.error;
        // A misplaced index or carry moves things by thousands of samples.
        EXPECT_NEAR(z.GetTrackLen(0, 0), double(f.index[1] - f.index[0]) / perSample, 20.0);
        const uint8_t* d = z.GetTrackData(0, 0);
        auto bit = [&](int s) { return (d[s >> 3] >> (7 - (s & 7))) & 1; };
        const int s0 = static_cast<int>(double(gap - f.index[0]) / perSample);
        const int s1 = static_cast<int>(double(gap + 200000 - f.index[0]) / perSample);
        int edges = 0;
        for (int s = s0 + 4; s < s1 - 2; s++) edges += bit(s) && !bit(s - 1);
        EXPECT_EQ(edges, 0);
        EXPECT_TRUE(bit(s1 - 1) || bit(s1) || bit(s1 + 1));
    }
}

}  // namespace
