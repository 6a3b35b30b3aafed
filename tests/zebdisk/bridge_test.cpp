// Images in and out of the track-level disk: sector images through the
// encoder and decoder, and HFE files, whose header, track list and interleaved
// bit-reversed pieces are checked byte by byte and built independently here.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <tuple>

#include "track/decoder_stream.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// A long first track (11000 units or more) marks a 300 rpm 2HD medium. Name and
// write protection come from the file and travel on through a D88 image.
TEST(Bridge, MediumRpmNameAndProtectionBothWays) {
    for (const auto& [file, size, ro, type, rate, rpm] :
         {std::tuple{"br_imp.hdm", 1261568, 0, ZEB_2HD, 1000, 360},
          {"br_imp.2hq", 1474560, 1, ZEB_2HD, 1000, 300},
          {"br_imp.2dd", 737280, 0, ZEB_2DD, 500, 300}}) {
        SCOPED_TRACE(file);
        Spit(file, dectest::Pattern(size, 1));
        ASSERT_EQ(chmod(file, ro ? 0444 : 0644), 0);
        ZEBDisk d, e;
        VDisk v;
        char n[2][zebhdr::kNameLen];
        ASSERT_TRUE(d.Import(PathOf(file), 1));
        EXPECT_EQ(std::tuple(d.Type(), d.Rate(), d.Rpm(), std::string(d.GetName(n[0])),
                             d.HeaderInt(zebhdr::kWriteProtect)),
                  std::tuple(type, rate, rpm, std::string(file), ro));
        d.SetHeaderInt(zebhdr::kWriteProtect, ro * 7);
        ASSERT_TRUE(d.Export(PathOf("br_imp.d88"), 0));
        ASSERT_TRUE(v.Import(PathOf("br_imp.d88"), 1) && e.Import(PathOf("br_imp.d88"), 1));
        EXPECT_EQ(std::tuple(std::string(v.name), v.writeProtect, std::string(e.GetName(n[1])),
                             e.HeaderInt(zebhdr::kWriteProtect)),
                  std::tuple(std::string(file), ro, std::string(file), ro));
    }
}

TEST(HfeExport, HeaderAndTrackListByteByByte) {
    for (const auto& [type, rpm, wp, cyls, bitRate, mode, length] :
         {std::tuple{ZEB_2HD, 360, 0, 84, 500, 1, 41666},
          {ZEB_2HD, 300, 1, 84, 500, 1, 50000},
          {ZEB_2DD, 300, 0, 84, 250, 7, 25000},
          {ZEB_2D, 300, 1, 42, 250, 7, 25000}}) {
        SCOPED_TRACE(length * 10 + type);
        ZEBDisk d;
        ASSERT_TRUE(d.Init(type, 0, rpm, 0));
        d.SetHeaderInt(zebhdr::kWriteProtect, wp);
        ASSERT_TRUE(d.ExportHFE(PathOf("hfe_hdr.hfe")));
        Bytes want = {'H', 'X', 'C', 'P', 'I', 'C', 'F', 'E', 0, static_cast<uint8_t>(cyls), 2, 0};
        want.resize(1024, 0xFF);
        Put16(want, 12, bitRate), Put16(want, 14, rpm), Put16(want, 18, 1);
        want[16] = static_cast<uint8_t>(mode), want[17] = 1, want[20] = wp ? 0 : 0xFF;
        const int blocks = (length + 511) / 512;
        for (int c = 0; c < cyls; c++)
            Put16(want, 512 + c * 4, 2 + c * blocks), Put16(want, 514 + c * 4, length);
        const Bytes f = Slurp("hfe_hdr.hfe");
        ASSERT_EQ(f.size(), 1024u + static_cast<size_t>(cyls * blocks) * 512);
        EXPECT_TRUE(Bytes(f.begin(), f.begin() + 1024) == want);
    }
}

// Cylinder 3: heads of different lengths; 4: 512 bytes a side, so the last
// piece is written as zeros; 5: nothing on head 0.
TEST(HfeExport, SidesInterleavedBitReversedAtTheShorterLength) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    d.SetHeaderInt(zebhdr::kCylinders, 7);
    for (int t = 0; t < 14; t++)
        std::memcpy(d.GetTrackData(t / 2, t % 2), dectest::Pattern(12800, t).data(), 12800);
    const int lengths[] = {90000, 80003, 512 * 8, 512 * 8 + 5, 0, 100000};
    for (int i = 0; i < 6; i++) d.SetRecordInt(6 + i, zebrec::kBitLength, lengths[i]);
    ASSERT_TRUE(d.ExportHFE(PathOf("hfe_interleave.hfe")));
    Bytes want(1024);
    for (int c = 0; c < 7; c++) {
        const size_t per = size_t(std::min(d.GetTrackLen(c, 0), d.GetTrackLen(c, 1)) / 8);
        const size_t pieces = (per + 255) / 256;
        for (size_t i = 0; i < pieces * 512; i++) {
            const size_t k = i % 256, piece = i / 512;
            const bool cut = piece == pieces - 1 && k >= per % 256;
            want.push_back(cut ? 0 : Flip(d.GetTrackData(c, i / 256 % 2)[piece * 256 + k]));
        }
    }
    const Bytes f = Slurp("hfe_interleave.hfe");
    ASSERT_EQ(f.size(), want.size());
    EXPECT_TRUE(std::equal(f.begin() + 1024, f.end(), want.begin() + 1024));
}

// Under 43 tracks always 2D; E = K / (first length x 4) picks the rpm, a tie 360.
TEST(HfeImport, MediumAndRpmFromTrackCountBitRateAndFirstLength) {
    // clang-format off
    for (const auto& [tracks, bitRate, firstPerSide, type, rate, rpm] :
         {std::tuple{42, 500, 12500, ZEB_2D, 500, 300}, {40, 250, 10417, ZEB_2D, 500, 360},
          {80, 250, 12500, ZEB_2DD, 500, 300}, {80, 250, 6250, ZEB_2DD, 500, 360},
          {43, 250, 11363, ZEB_2DD, 500, 360}, {43, 250, 11364, ZEB_2DD, 500, 300},
          {80, 500, 25000, ZEB_2HD, 1000, 300}, {84, 300, 20833, ZEB_2HD, 1000, 360}}) {
        // clang-format on
        std::vector<Bytes> sides[2];  // every track 64 bytes a side except the first
        for (int c = 0; c < tracks; c++)
            for (auto& s : sides) s.push_back(dectest::Pattern(c ? 64 : firstPerSide, c));
        Spit("hfe_medium.hfe", MakeHfe(bitRate, sides));
        ZEBDisk d;
        ASSERT_TRUE(d.Import(PathOf("hfe_medium.hfe"), 1));
        EXPECT_EQ(std::tuple(d.Type(), d.Rate(), d.Rpm(), d.GetTrackLen(0, 1)),
                  std::tuple(type, rate, rpm, firstPerSide * 8))
            << tracks << " " << firstPerSide;
    }
}

}  // namespace
