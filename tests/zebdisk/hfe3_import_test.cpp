// HFE version 3: the opcodes among a track's cells, one stream built here per
// case, and the real version 3 file against the D88 it was made from.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// Opcodes as they read once each byte's bits are reversed.
constexpr uint8_t kNop = 0xF0, kIndex = 0xF1, kRate = 0xF2, kSkip = 0xF3, kRand = 0xF4;

TEST(Hfe3Import, EachOpcodeBecomesCellsIndexOrWarning) {
    const struct {
        const char* name;
        Bytes stream, cells;  // side 1 of one cylinder; cells first in the top bit
        int bits;             // -1: the file is refused
        std::string said;     // the warning, or the reason of a refusal
        const char* signature = "HXCHFEV3";
    } cases[] = {
        // clang-format off
        {"plain", {0x12, 0x34, 0x56}, {0x12, 0x34, 0x56}, 24, ""},
        {"no-op", {0x12, kNop, 0x34, kNop}, {0x12, 0x34}, 16, ""},
        {"index", {0x12, 0x34, kIndex, 0x56}, {0x56, 0x12, 0x34}, 24, ""},
        {"the first index counts", {kIndex, 0x12, kIndex, 0x34}, {0x12, 0x34}, 16, ""},
        {"the file's rate", {kRate, 72, 0x12}, {0x12}, 8, ""},
        {"rate change mid-track", {0x12, kRate, 72, 0x34, kRate, 60, 0x56}, {0x12, 0x34, 0x56}, 24, "1 track switches from the file's 250 kbit/s to another bit rate, which a track cannot hold here, and was kept at one rate (first: track 0.1, 300 kbit/s)"},
        // 0xB5 = 101 10101: the first 3 cells are skipped.
        {"skipped bits", {0x12, kSkip, 3, 0xB5, 0x34}, {0x12, 0xA9, 0xA0}, 21, ""},
        {"skipped bits then index", {kSkip, 4, 0x0C, kIndex, 0x12}, {0x12, 0xC0}, 12, ""},
        {"weak cells", {0x12, kRand, 0x34}, {0x12, 0x00, 0x34}, 24, "1 track holds 8 random (weak) cells in all, which a track cannot hold here; they were written as cells without flux (first: track 0.1)"},
        {"other bytes of four 1 cells are cells", {0xF8, 0xFF}, {0xF8, 0xFF}, 16, ""},
        {"version 1 has no opcodes", {0x12, kIndex, kRate}, {0x12, kIndex, kRate}, 24, "", "HXCPICFE"},
        {"rate byte cut off", {0x12, kRate}, {}, -1, "track 0.1: opcode 0xF2 (bit rate) at byte 1 is cut off by the end of the side's 2 bytes"},
        {"skipped cells cut off", {0x12, 0x34, kSkip, 3}, {}, -1, "track 0.1: opcode 0xF3 (skipped bits) at byte 2 is cut off by the end of the side's 4 bytes"},
        {"more cells skipped than a byte has", {kSkip, 9, 0x00}, {}, -1, "track 0.1: opcode 0xF3 (skipped bits) at byte 0 skips 9 cells of a byte of 8"},
        // clang-format on
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.name);
        const std::vector<Bytes> sides[2] = {{Bytes(k.stream.size(), 0x55)}, {k.stream}};
        Bytes f = MakeHfe(250, sides);
        std::memcpy(f.data(), k.signature, 8);
        Spit("hfe3_case.hfe", f);
        ZEBDisk d;
        ASSERT_EQ(d.Import(PathOf("hfe3_case.hfe"), 1), k.bits >= 0) << d.report.error;
        EXPECT_EQ(d.report.error, k.bits < 0 ? "hfe3_case.hfe: " + k.said : "");
        if (k.bits < 0) continue;
        EXPECT_EQ(d.GetTrackLen(0, 0), static_cast<int>(k.stream.size()) * 8);
        ASSERT_EQ(d.GetTrackLen(0, 1), k.bits);
        Bytes want = k.cells;
        if (k.signature[3] == 'H') want.push_back(0);  // version 3: clear past the cells
        EXPECT_EQ(Bytes(d.GetTrackData(0, 1), d.GetTrackData(0, 1) + want.size()), want);
        EXPECT_EQ(d.report.warnings, std::vector<std::string>(!k.said.empty(), k.said));
    }
}

// Every sector of a disk, as ID, status and data.
std::vector<std::tuple<int, int, int, int, int, Bytes>> Sectors(ZEBDisk& d) {
    std::vector<std::tuple<int, int, int, int, int, Bytes>> out;
    for (int t = 0; t < 2 * d.Cylinders(); t++)
        if (auto v = d.Analyze(t / 2, t % 2, 0))
            for (const VSector* s = v->sectors; s; s = s->next)
                out.emplace_back(s->idC, s->idH, s->idR, s->idN, s->status,
                                 Bytes(s->data, s->data + s->length));
    return out;
}

// Each track of the real file opens with an index and the file's own rate: no loss.
TEST(Hfe3Import, TheRealFileHoldsItsD88sSectors) {
    const std::string dir = ZEBKIT_REALIMAGES_DIR "/archive/";
    if (access((dir + "pc88-app-v3.hfe").c_str(), R_OK) != 0)
        GTEST_SKIP() << "no real images on this machine (" << dir << ")";
    ZEBDisk hfe, d88;
    ASSERT_TRUE(hfe.Import(PathOf(dir + "pc88-app-v3.hfe"), 1)) << hfe.report.error;
    ASSERT_TRUE(d88.Import(PathOf(dir + "pc88-app.d88"), 1)) << d88.report.error;
    EXPECT_EQ(hfe.report.warnings, std::vector<std::string>{});
    for (int t = 0; t < 2 * 40; t++) EXPECT_EQ(hfe.GetTrackLen(t / 2, t % 2), 100000) << t;
    const auto sectors = Sectors(hfe);
    EXPECT_EQ(sectors.size(), 1280u);
    EXPECT_TRUE(sectors == Sectors(d88));
}

}  // namespace
