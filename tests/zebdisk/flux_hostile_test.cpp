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

// Two revolutions of an erased-looking track: a transition every two cells of
// a 500 kbit/s disk in a 300 rpm drive.
Flux Tone(double clockHz) {
    Flux f;
    const double cell = 2e-6 * clockHz;
    for (int r = 0; r <= 2; r++) f.index.push_back(static_cast<uint64_t>(10 + r * 100000 * cell));
    for (int k = 1; k < 100000; k++) f.times.push_back(static_cast<uint64_t>(k * 2 * cell));
    return f;
}

void Put32(Bytes& b, size_t at, uint32_t v) {
    FieldWriter(b.data(), b.size()).U32(at, v);
}
constexpr size_t kTrack0 = 0x10 + 168 * 4;  // where the only track header starts

struct Hostile {
    const char* name;
    std::function<void(Bytes&)> spoil;
    const char* error;    // the reason after "<file>: ", or null when the file loads
    const char* warning;  // expected warning when it loads, or null
    bool resum = true;    // the checksum is made right again after the damage
};

void PrintTo(const Hostile& h, std::ostream* os) {
    *os << h.name;
}

// clang-format off
const Hostile kScp[] = {
    {"TooShort", [](Bytes& b) { b.resize(100); }, "too short for an SCP header", nullptr},
    {"NoSignature", [](Bytes& b) { b[0] = 'X'; }, "no SCP signature", nullptr},
    {"NoRevolutions", [](Bytes& b) { b[5] = 0; }, "no revolutions", nullptr},
    {"RangeBackwards", [](Bytes& b) { b[6] = 5, b[7] = 2; }, "track range out of order", nullptr},
    {"RangePastTheTable", [](Bytes& b) { b[7] = 200; }, "track range out of order", nullptr},
    {"EightBitValues", [](Bytes& b) { b[9] = 8; }, "flux values of 8 bits", nullptr},
    {"ThreeHeads", [](Bytes& b) { b[10] = 3; }, "heads value 3", nullptr},
    {"TrackPastTheEnd", [](Bytes& b) { Put32(b, 0x10, static_cast<uint32_t>(b.size() - 8)); },
     "track 0 header lies outside the file", nullptr},
    {"TrackWithoutSignature", [](Bytes& b) { b[kTrack0] = 'X'; },
     "track 0 header has no TRK signature", nullptr},
    {"TrackNamesAnother", [](Bytes& b) { b[kTrack0 + 3] = 7; },
     "track 0 header names track 7", nullptr},
    {"HugeFluxCount", [](Bytes& b) { Put32(b, kTrack0 + 8, 0x7FFFFFFF); },
     "track 0 holds too many flux values", nullptr},
    {"FluxPastTheEnd", [](Bytes& b) { Put32(b, kTrack0 + 12, 0xFFFFFF00); },
     "track 0 flux data lies outside the file", nullptr},
    {"EndlessRevolution", [](Bytes& b) { Put32(b, kTrack0 + 4, 0xFFFFFFFF); },
     "track 0: a revolution is longer than any track", nullptr},
    {"NoTrackAtAll", [](Bytes& b) { Put32(b, 0x10, 0); }, "no track holds flux", nullptr},
    {"ChecksumWrong", [](Bytes& b) { b[12] ^= 1; }, nullptr, "checksum mismatch", false},
    {"AllZeroFlux", [](Bytes& b) { std::fill(b.begin() + kTrack0 + 28, b.end(), 0); },
     "no track holds flux", "checksum mismatch", false},
};
// clang-format on

std::string HostileName(const testing::TestParamInfo<Hostile>& info) {
    return info.param.name;
}

void ExpectOutcome(const ZEBDisk& z, bool loaded, const std::string& file, const Hostile& h) {
    if (h.error) {
        EXPECT_FALSE(loaded);
        EXPECT_EQ(z.report.error, file + ": " + h.error);
        EXPECT_FALSE(z.initialized);
    } else {
        EXPECT_TRUE(loaded) << z.report.error;
    }
    if (h.warning) {
        ASSERT_EQ(z.report.warnings.size(), 1u);
        EXPECT_NE(z.report.warnings[0].find(h.warning), std::string::npos) << z.report.warnings[0];
    } else {
        EXPECT_TRUE(z.report.warnings.empty());
    }
}

class HostileScp : public testing::TestWithParam<Hostile> {};

TEST_P(HostileScp, RefusedWithItsReasonOrReadWithAWarning) {
    std::map<int, Flux> tracks{{0, Tone(40e6)}};
    Bytes b = MakeScp(tracks);
    GetParam().spoil(b);
    if (GetParam().resum && b.size() >= 0x10) {
        uint32_t sum = 0;
        for (size_t i = 0x10; i < b.size(); i++) sum += b[i];
        Put32(b, 12, sum);
    }
    const std::string file = std::string("hostile_") + GetParam().name + ".scp";
    Spit(Scratch(file), b);
    ZEBDisk z;
    const bool loaded = z.Import(PathOf(Scratch(file)), 1);
    ExpectOutcome(z, loaded, file, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Files, HostileScp, testing::ValuesIn(kScp), HostileName);

TEST(ScpVariants, FooterAndUpperCaseExtensionAreRead) {
    ScpOptions o;
    o.footer = true;
    Spit(Scratch("footer.SCP"), MakeScp({{0, Tone(40e6)}, {1, Tone(40e6)}}, o));
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(Scratch("footer.SCP")), 1)) << z.report.error;
    EXPECT_TRUE(z.report.warnings.empty());
    EXPECT_EQ(z.Type(), ZEB_RAW);
    char name[zebhdr::kNameLen];
    EXPECT_STREQ(z.GetName(name), "footer.SCP");
}

TEST(ScpVariants, CaptureStartingAndEndingAnywhere) {
    // Tracks 9 to 12 only: 4.1, 5.0, 5.1, 6.0.
    std::map<int, Flux> tracks;
    for (int t = 9; t <= 12; t++) tracks[t] = Tone(40e6);
    Spit(Scratch("range.scp"), MakeScp(tracks));
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(Scratch("range.scp")), 1)) << z.report.error;
    for (int slot = 0; slot < 20; slot++) {
        const bool captured = slot >= 9 && slot <= 12;
        // A captured track holds its pulses; the others are blank.
        const uint8_t* d = z.GetTrackData(slot / 2, slot % 2);
        bool any = false;
        for (int i = 0; i < z.GetTrackLen(slot / 2, slot % 2) / 8 && !any; i++) any = d[i] != 0;
        EXPECT_EQ(any, captured) << "slot " << slot;
    }
}

// KryoFlux sets: the folder holds the named files of one set.
std::string SetDir(const std::string& name) {
    const std::string dir = Scratch("set_" + name);
    mkdir(dir.c_str(), 0755);
    for (int c = 0; c < 84; c++)
        for (int h = 0; h < 2; h++) {
            char f[32];
            std::snprintf(f, sizeof f, "/track%02d.%d.raw", c, h);
            std::remove((dir + f).c_str());
        }
    return dir;
}

struct HostileSet {
    const char* name;
    // Writes the set into the folder; returns the file name given to the reader.
    std::function<std::string(const std::string& dir)> make;
    const char* error;
    const char* warning;
};

void PrintTo(const HostileSet& h, std::ostream* os) {
    *os << h.name;
}

const double kSck = 18432000.0 * 73 / 14 / 2;

std::string Write(const std::string& dir, const char* name, const Bytes& b) {
    Spit(dir + "/" + name, b);
    return name;
}

// clang-format off
const HostileSet kSets[] = {
    {"NotAStreamName", [](const std::string& d) { return Write(d, "disk.raw", MakeStream(Tone(kSck))); },
     "not a stream file name of the form trackNN.S.raw", nullptr},
    {"EmptyStream", [](const std::string& d) { return Write(d, "track00.0.raw", {}); },
     "no track holds flux", "1 stream ends early"},
    {"OnlyBlocks", [](const std::string& d) {
         Bytes b;
         Oob(b, 2, Le32({0, 0, 0}));
         Oob(b, 4, Bytes{'s', 'c', 'k', '=', 'x'});
         Oob(b, 9, Bytes(3, 0xEE));
         b.insert(b.end(), {0x0D, 0x0D, 0x0D, 0x0D});
         return Write(d, "track00.0.raw", b); },
     "no track holds flux", nullptr},
    {"CutInsideAFlux",
     [](const std::string& d) {
         StreamOptions o;
         o.ending = false;
         Bytes b = MakeStream(Tone(kSck), o);
         b.insert(b.end(), {0x0C, 0x01});  // a Flux3 code without its last byte
         return Write(d, "track00.0.raw", b);
     },
     nullptr, "1 stream ends early (first: track 0.0)"},
    {"CutInTheFirstRevolution",
     [](const std::string& d) {
         StreamOptions o;
         o.cutAt = 60000;
         return Write(d, "track00.0.raw", MakeStream(Tone(kSck), o));
     },
     nullptr, "1 stream ends early (first: track 0.0)"},
    {"BlockRunsPastTheEnd", [](const std::string& d) {
         Bytes b = MakeStream(Tone(kSck));
         b.resize(b.size() - 4);  // the end-of-file block
         Oob(b, 4, {});
         b[b.size() - 2] = 0xFF, b[b.size() - 1] = 0xFF;
         return Write(d, "track00.0.raw", b); },
     nullptr, "1 stream ends early (first: track 0.0)"},
    {"NoIndexAtAll", [](const std::string& d) {
         Flux f = Tone(kSck);
         f.index.clear();
         return Write(d, "track00.0.raw", MakeStream(f)); },
     nullptr, "1 track holds no whole revolution"},
    {"CaptureError", [](const std::string& d) {
         Bytes b = MakeStream(Tone(kSck));
         b[b.size() - 4 - 4] = 1;  // result of the stream end block
         return Write(d, "track00.0.raw", b); },
     nullptr, "1 stream reports a capture error (first: track 0.0)"},
    {"MissingTrack", [](const std::string& d) {
         Write(d, "track00.0.raw", MakeStream(Tone(kSck)));
         Write(d, "track02.0.raw", MakeStream(Tone(kSck)));
         return std::string("track02.0.raw"); },
     nullptr, "1 track is missing from the set, left blank (first: track 1.0)"},
    {"UpperCaseNames", [](const std::string& d) {
         Write(d, "TRACK00.0.RAW", MakeStream(Tone(kSck)));
         return std::string("TRACK00.0.RAW"); },
     nullptr, nullptr},
    {"EndlessRevolution", [](const std::string& d) {
         Flux f = Tone(kSck);
         f.index[1] = f.index[0] + 1000000000;
         f.index[2] = f.index[1] + 1;
         f.times.push_back(f.index[2]);
         return Write(d, "track00.0.raw", MakeStream(f)); },
     "a revolution is longer than any track", nullptr},
};
// clang-format on

std::string SetName(const testing::TestParamInfo<HostileSet>& info) {
    return info.param.name;
}

class HostileKryoFlux : public testing::TestWithParam<HostileSet> {};

TEST_P(HostileKryoFlux, RefusedWithItsReasonOrReadWithAWarning) {
    const HostileSet& h = GetParam();
    const std::string dir = SetDir(h.name);
    const std::string file = h.make(dir);
    ZEBDisk z;
    const bool loaded = z.Import(PathOf(dir + "/" + file), 1);
    if (h.error) {
        EXPECT_FALSE(loaded);
        EXPECT_NE(z.report.error.find(h.error), std::string::npos) << z.report.error;
    } else {
        EXPECT_TRUE(loaded) << z.report.error;
    }
    if (h.warning) {
        ASSERT_FALSE(z.report.warnings.empty());
        EXPECT_NE(z.report.warnings[0].find(h.warning), std::string::npos) << z.report.warnings[0];
    } else {
        EXPECT_TRUE(z.report.warnings.empty()) << z.report.warnings[0];
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, HostileKryoFlux, testing::ValuesIn(kSets), SetName);

}  // namespace

namespace {

TEST(KryoFluxIndex, AnIndexInsideALongFluxIsPlacedExactly) {
    // A 200,000-clock flux (three overflows) holds the second index 150,000
    // clocks after it began; the first revolution, kept, spans index to index.
    Flux f = Tone(kSck);
    const uint64_t gapStart = f.index[1] - 150000;
    std::vector<uint64_t> t;
    for (uint64_t x : f.times)
        if (x <= gapStart || x >= gapStart + 200000) t.push_back(x);
    t.push_back(gapStart + 200000);
    std::sort(t.begin(), t.end());
    f.times = t;
    const std::string dir = SetDir("long_flux");
    Spit(dir + "/track00.0.raw", MakeStream(f));
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(dir + "/track00.0.raw"), 1)) << z.report.error;
    // Eight samples a 2 us cell; an overflow misplaced would be 10,900 samples.
    const double want = static_cast<double>(f.index[1] - f.index[0]) * 8 / (2e-6 * kSck);
    EXPECT_NEAR(z.GetTrackLen(0, 0), want, 20.0);
}

}  // namespace

namespace {

TEST(ScpVariants, AZeroValueCarries65536IntoTheNext) {
    // A 200,000-unit flux (three zero values before its remainder) in the
    // first revolution: the pulse after it lands where its time puts it.
    Flux f = Tone(40e6);
    const uint64_t gapStart = f.index[0] + 1600000;
    std::vector<uint64_t> t;
    for (uint64_t x : f.times)
        if (x <= gapStart || x > gapStart + 200000) t.push_back(x);
    t.push_back(gapStart + 200000);
    std::sort(t.begin(), t.end());
    f.times = t;
    Spit(Scratch("long_flux.scp"), MakeScp({{0, f}}));
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(Scratch("long_flux.scp")), 1)) << z.report.error;
    const uint8_t* d = z.GetTrackData(0, 0);
    // Eight samples a cell of 80 units: the gap spans samples s0 .. s1.
    const int s0 = static_cast<int>((gapStart - f.index[0]) / 10);
    const int s1 = static_cast<int>((gapStart + 200000 - f.index[0]) / 10);
    auto bit = [&](int s) { return (d[s >> 3] >> (7 - (s & 7))) & 1; };
    int edges = 0;
    for (int s = s0 + 4; s < s1 - 2; s++) edges += bit(s) && !bit(s - 1);
    EXPECT_EQ(edges, 0);
    EXPECT_TRUE(bit(s1 - 1) || bit(s1) || bit(s1 + 1));
}

}  // namespace
