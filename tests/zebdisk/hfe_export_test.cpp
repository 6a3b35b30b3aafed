#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fileio/filepath.h"
#include "zebdisk/zebdisk.h"

namespace {

std::vector<uint8_t> ReadFile(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

// Reverses the bit order of a byte one bit at a time (HFE keeps the first cell
// in the least significant bit).
uint8_t Flip(uint8_t b) {
    uint8_t r = 0;
    for (int i = 0; i < 8; i++)
        if (b & (1 << i)) r = static_cast<uint8_t>(r | (0x80 >> i));
    return r;
}

bool Exists(const std::string& name) {
    return std::ifstream(name, std::ios::binary).good();
}

unsigned U16At(const std::vector<uint8_t>& f, size_t off) {
    return f[off] | (f[off + 1] << 8);
}

// A blank disk of the given kind with random bytes in every record.
void FillRandom(ZEBDisk& d, uint32_t seed) {
    std::mt19937 rng(seed);
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        uint8_t* p = d.GetTrackData(slot / 2, slot % 2);
        const int n = d.RecordDataSize(slot);
        for (int i = 0; i < n; i++) p[i] = static_cast<uint8_t>(rng());
    }
}

Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

TEST(HfeExport, HeaderAndTrackListByteByByte) {
    struct Case {
        const char* file;
        int type;
        int rpm;
        int writeProtect;
        unsigned cylinders;
        unsigned bitRate;
        uint8_t mode;
        unsigned sideBytes;  // min head length / 8 at the nominal length
    };
    const Case cases[] = {
        {"hfe_hdr_2hd360.hfe", ZEB_2HD, 360, 0, 84, 500, 1, 166666 / 8},
        {"hfe_hdr_2hd300.hfe", ZEB_2HD, 300, 1, 84, 500, 1, 200000 / 8},
        {"hfe_hdr_2dd.hfe", ZEB_2DD, 0, 0, 84, 250, 7, 100000 / 8},
        {"hfe_hdr_2d.hfe", ZEB_2D, 0, 1, 42, 250, 7, 100000 / 8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        ZEBDisk d;
        ASSERT_TRUE(d.Init(c.type, 0, c.rpm, 0));
        d.SetHeaderInt(zebhdr::kWriteProtect, c.writeProtect);
        ASSERT_TRUE(d.ExportHFE(PathOf(c.file)));
        const std::vector<uint8_t> f = ReadFile(c.file);
        ASSERT_GE(f.size(), 1024u);

        std::vector<uint8_t> want(1024, 0xFF);
        const char sig[] = "HXCPICFE";
        for (int i = 0; i < 8; i++) want[static_cast<size_t>(i)] = static_cast<uint8_t>(sig[i]);
        want[8] = 0;
        want[9] = static_cast<uint8_t>(c.cylinders);
        want[10] = 2;
        want[11] = 0;
        want[12] = static_cast<uint8_t>(c.bitRate & 0xFF);
        want[13] = static_cast<uint8_t>(c.bitRate >> 8);
        const unsigned rpm = static_cast<unsigned>(d.Rpm());
        want[14] = static_cast<uint8_t>(rpm & 0xFF);
        want[15] = static_cast<uint8_t>(rpm >> 8);
        want[16] = c.mode;
        want[17] = 1;
        want[18] = 1;
        want[19] = 0;
        want[20] = c.writeProtect ? 0x00 : 0xFF;
        const unsigned length = c.sideBytes * 2;
        const unsigned blocks = (length + 511) / 512;
        for (unsigned cyl = 0; cyl < c.cylinders; cyl++) {
            const unsigned block = 2 + cyl * blocks;
            want[512 + cyl * 4] = static_cast<uint8_t>(block & 0xFF);
            want[513 + cyl * 4] = static_cast<uint8_t>(block >> 8);
            want[514 + cyl * 4] = static_cast<uint8_t>(length & 0xFF);
            want[515 + cyl * 4] = static_cast<uint8_t>(length >> 8);
        }
        for (size_t i = 0; i < 1024; i++) ASSERT_EQ(f[i], want[i]) << "byte " << i;
        EXPECT_EQ(f.size(), 1024u + static_cast<size_t>(c.cylinders) * blocks * 512);
    }
}

TEST(HfeExport, SidesInterleavedBitReversedWithShorterHeadLength) {
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
    FillRandom(d, 7);
    // Cylinder 3: head 1 shorter, and not a whole number of bytes.
    d.SetRecordInt(3 * 2 + 0, zebrec::kBitLength, 90000);
    d.SetRecordInt(3 * 2 + 1, zebrec::kBitLength, 80003);
    // Cylinder 5: 512 bytes a side, an exact multiple of 256.
    d.SetRecordInt(5 * 2 + 0, zebrec::kBitLength, 512 * 8);
    d.SetRecordInt(5 * 2 + 1, zebrec::kBitLength, 512 * 8 + 5);
    // Cylinder 6: nothing on head 0, so nothing at all.
    d.SetRecordInt(6 * 2 + 0, zebrec::kBitLength, 0);
    ASSERT_TRUE(d.ExportHFE(PathOf("hfe_interleave.hfe")));
    const std::vector<uint8_t> f = ReadFile("hfe_interleave.hfe");
    ASSERT_GE(f.size(), 1024u);

    size_t expectBlock = 2;
    size_t total = 1024;
    for (int c = 0; c < d.Cylinders(); c++) {
        SCOPED_TRACE(c);
        const int bits = std::min(d.GetTrackLen(c, 0), d.GetTrackLen(c, 1));
        const size_t per = static_cast<size_t>(bits / 8);
        const size_t block = U16At(f, 512 + static_cast<size_t>(c) * 4);
        const size_t length = U16At(f, 514 + static_cast<size_t>(c) * 4);
        ASSERT_EQ(block, expectBlock);
        ASSERT_EQ(length, per * 2);
        const size_t pieces = (per + 255) / 256;
        ASSERT_LE((block + pieces) * 512, f.size());
        for (size_t i = 0; i < pieces; i++) {
            for (int s = 0; s < 2; s++) {
                const uint8_t* src = d.GetTrackData(c, s);
                for (size_t k = 0; k < 256; k++) {
                    const size_t at = i * 256 + k;
                    // The last piece holds only per % 256 bytes: zero when per is a multiple of
                    // 256.
                    const bool inLast = i == pieces - 1;
                    const uint8_t want = (inLast && k >= per % 256) ? 0 : Flip(src[at]);
                    ASSERT_EQ(f[(block + i) * 512 + static_cast<size_t>(s) * 256 + k], want)
                        << "piece " << i << " side " << s << " byte " << k;
                }
            }
        }
        expectBlock += pieces;
        total += pieces * 512;
    }
    EXPECT_EQ(U16At(f, 514 + 3 * 4), 80003u / 8 * 2);
    EXPECT_EQ(U16At(f, 514 + 6 * 4), 0u);
    EXPECT_EQ(f.size(), total);
}

TEST(HfeExport, RefusesWhatTheFormatCannotHold) {
    ZEBDisk blank;
    EXPECT_FALSE(blank.ExportHFE(PathOf("hfe_uninit.hfe")));
    EXPECT_FALSE(Exists("hfe_uninit.hfe"));

    // A side longer than the 16-bit track length field can describe.
    ZEBDisk d;
    ASSERT_TRUE(d.Init(ZEB_2HD, 0, 0, 0));
    d.NewRecord(0, 40000 + 16, 0, 0, 40000 * 8);
    d.NewRecord(1, 40000 + 16, 0, 1, 40000 * 8);
    EXPECT_FALSE(d.ExportHFE(PathOf("hfe_toolong.hfe")));
    EXPECT_FALSE(Exists("hfe_toolong.hfe"));

    // A bit length beyond the record's data is written from the data it has.
    ZEBDisk e;
    ASSERT_TRUE(e.Init(ZEB_2DD, 0, 0, 0));
    e.NewRecord(0, 16 + 100, 0, 0, 8000 * 8);
    std::fill_n(e.GetTrackData(0, 0), 100, 0xAC);
    e.SetRecordInt(1, zebrec::kBitLength, 8000 * 8);
    ASSERT_TRUE(e.ExportHFE(PathOf("hfe_short_record.hfe")));
    const std::vector<uint8_t> f = ReadFile("hfe_short_record.hfe");
    ASSERT_EQ(U16At(f, 514), 16000u);
    for (size_t k = 0; k < 512; k++) EXPECT_EQ(f[1024 + k], k < 100 ? 0x35 : 0) << k;
}

}  // namespace
