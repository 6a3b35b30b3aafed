#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fileio/filepath.h"
#include "zebdisk/zebdisk.h"

namespace {

// Lays out an HFE file the way the format describes it, independently of the
// writer under test: header, track list, then per track 512-byte blocks of two
// 256-byte halves, each byte with its first cell in the least significant bit.
struct HfeBuilder {
    int bitRate = 250;
    int rpm = 300;
    int listBlock = 1;
    uint8_t pad = 0xFF;  // fill of the unused tail of a track's last block
    // sides[c][s]: the cells of one side, first cell in the most significant bit.
    std::vector<std::vector<uint8_t>> sides[2];

    void AddTrack(std::vector<uint8_t> s0, std::vector<uint8_t> s1) {
        sides[0].push_back(std::move(s0));
        sides[1].push_back(std::move(s1));
    }

    static uint8_t Lsb(uint8_t b) {
        uint8_t r = 0;
        for (int i = 0; i < 8; i++)
            if (b & (0x80 >> i)) r = static_cast<uint8_t>(r | (1 << i));
        return r;
    }
    static void Put16(std::vector<uint8_t>& f, size_t off, unsigned v) {
        f[off] = static_cast<uint8_t>(v);
        f[off + 1] = static_cast<uint8_t>(v >> 8);
    }

    std::vector<uint8_t> Build() const {
        const size_t tracks = sides[0].size();
        const size_t listAt = static_cast<size_t>(listBlock) * 512;
        std::vector<uint8_t> f(listAt + 512, 0xFF);
        std::memcpy(f.data(), "HXCPICFE", 8);
        f[8] = 0;
        f[9] = static_cast<uint8_t>(tracks);
        f[10] = 2;
        f[11] = 0;
        Put16(f, 12, static_cast<unsigned>(bitRate));
        Put16(f, 14, static_cast<unsigned>(rpm));
        f[16] = 7;
        f[17] = 0xFF;
        Put16(f, 18, static_cast<unsigned>(listBlock));
        f[20] = 0xFF;
        for (size_t c = 0; c < tracks; c++) {
            const size_t per = sides[0][c].size();
            const size_t block = f.size() / 512;
            Put16(f, listAt + c * 4, static_cast<unsigned>(block));
            Put16(f, listAt + c * 4 + 2, static_cast<unsigned>(per * 2));
            const size_t blocks = (per * 2 + 511) / 512;
            f.resize(f.size() + blocks * 512, pad);
            for (size_t i = 0; i < per; i++)
                for (int s = 0; s < 2; s++)
                    f[(block + i / 256) * 512 + static_cast<size_t>(s) * 256 + i % 256] =
                        Lsb(sides[s][c][i]);
        }
        return f;
    }
};

std::vector<uint8_t> RandomBytes(std::mt19937& rng, size_t n) {
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

void WriteFile(const std::string& name, const std::vector<uint8_t>& data) {
    chmod(name.c_str(), 0644);  // a name protected by an earlier run
    std::ofstream f(name, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

std::vector<uint8_t> ReadFile(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

HfeBuilder Uniform(int tracks, int bitRate, size_t perSide, uint32_t seed) {
    std::mt19937 rng(seed);
    HfeBuilder b;
    b.bitRate = bitRate;
    for (int c = 0; c < tracks; c++)
        b.AddTrack(RandomBytes(rng, perSide), RandomBytes(rng, perSide));
    return b;
}

TEST(HfeImport, MediumAndRpmFromTrackCountBitRateAndFirstLength) {
    struct Case {
        const char* file;
        int tracks;
        int bitRate;
        size_t firstLength;  // both sides together
        int type;
        int rate;
        int rpm;
    };
    const Case cases[] = {
        {"hfe_m_2d.hfe", 42, 500, 25000, ZEB_2D, 500, 300},  // 42 tracks: 2D whatever the rate
        {"hfe_m_2d_360.hfe", 40, 250, 20834, ZEB_2D, 500, 360},
        {"hfe_m_2dd_300.hfe", 80, 250, 25000, ZEB_2DD, 500, 300},   // E = 300
        {"hfe_m_2dd_600.hfe", 80, 250, 12500, ZEB_2DD, 500, 360},   // E = 600
        {"hfe_m_2dd_tie.hfe", 43, 250, 22726, ZEB_2DD, 500, 360},   // E = 330: tie gives 360
        {"hfe_m_2dd_329.hfe", 43, 250, 22728, ZEB_2DD, 500, 300},   // E = 329
        {"hfe_m_2hd_300.hfe", 80, 500, 50000, ZEB_2HD, 1000, 300},  // 1.44 MB style
        {"hfe_m_2hd_360.hfe", 77, 500, 41666, ZEB_2HD, 1000, 360},  // 1.2 MB style
        {"hfe_m_2hd_other.hfe", 84, 300, 41666, ZEB_2HD, 1000, 360},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        HfeBuilder b = Uniform(c.tracks, c.bitRate, 64, 1);
        b.sides[0][0].resize(c.firstLength / 2);
        b.sides[1][0].resize(c.firstLength / 2);
        WriteFile(c.file, b.Build());
        ZEBDisk d;
        ASSERT_TRUE(d.ImportHFE(PathOf(c.file)));
        EXPECT_EQ(d.Type(), c.type);
        EXPECT_EQ(d.Rate(), c.rate);
        EXPECT_EQ(d.Rpm(), c.rpm);
        EXPECT_EQ(d.Heads(), 2);
        EXPECT_EQ(d.Cylinders(), c.type == ZEB_2D ? 42 : 84);
    }
}

TEST(HfeImport, SidesRestoredWithLengthsAndNominalBlankTracks) {
    std::mt19937 rng(99);
    HfeBuilder b;
    b.bitRate = 250;
    // Side lengths of whole blocks, of half blocks and of odd sizes.
    const size_t lengths[] = {12500, 12500, 256, 300, 1, 12800, 9999};
    for (size_t n : lengths) b.AddTrack(RandomBytes(rng, n), RandomBytes(rng, n));
    for (int c = static_cast<int>(std::size(lengths)); c < 80; c++)
        b.AddTrack(RandomBytes(rng, 12500), RandomBytes(rng, 12500));
    WriteFile("hfe_sides.hfe", b.Build());

    ZEBDisk d;
    ASSERT_TRUE(d.Import(PathOf("hfe_sides.hfe"), 1));
    ASSERT_EQ(d.initialized, 1);
    ASSERT_EQ(d.Type(), ZEB_2DD);
    for (int c = 0; c < 80; c++) {
        for (int s = 0; s < 2; s++) {
            SCOPED_TRACE(testing::Message() << "c" << c << " s" << s);
            const std::vector<uint8_t>& want = b.sides[s][static_cast<size_t>(c)];
            const int slot = c * 2 + s;
            EXPECT_EQ(d.RecordInt(slot, zebrec::kCylinder), c);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kHead), s);
            EXPECT_EQ(d.RecordInt(slot, zebrec::kIndexOffset), 0);
            EXPECT_EQ(d.GetTrackLen(c, s), static_cast<int>(want.size() * 8));
            ASSERT_GE(static_cast<size_t>(d.RecordDataSize(slot)), (want.size() + 255) / 256 * 256);
            ASSERT_EQ(std::memcmp(d.GetTrackData(c, s), want.data(), want.size()), 0);
        }
    }
    // Cylinders the file does not have stay blank at the nominal length.
    for (int c = 80; c < 84; c++) {
        EXPECT_EQ(d.GetTrackLen(c, 1), 100000);
        const uint8_t* p = d.GetTrackData(c, 1);
        EXPECT_EQ(std::count(p, p + d.RecordDataSize(c * 2 + 1), 0), d.RecordDataSize(c * 2 + 1));
    }
}

TEST(HfeImport, LongTracksGetRecordsRoundedUpToWholePieces) {
    struct Case {
        const char* file;
        int tracks;
        int bitRate;
        size_t perSide;
    };
    const Case cases[] = {
        {"hfe_long_2d.hfe", 2, 250, 32767},    // longest a track list entry can describe
        {"hfe_long_2d_b.hfe", 3, 250, 16300},  // M/2 + 16 fits 16384, the rounded pieces do not
        {"hfe_long_2hd.hfe", 80, 500, 32700},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        HfeBuilder b = Uniform(c.tracks, c.bitRate, c.perSide, 5);
        b.pad = 0x5A;
        WriteFile(c.file, b.Build());
        ZEBDisk d;
        ASSERT_TRUE(d.ImportHFE(PathOf(c.file)));
        const size_t rounded = (c.perSide + 255) / 256 * 256;
        EXPECT_GE(static_cast<size_t>(d.BlockSize()), rounded + 16);
        for (int slot = 0; slot < d.Cylinders() * 2; slot++)
            ASSERT_GE(static_cast<size_t>(d.RecordDataSize(slot)), rounded) << slot;
        for (int t = 0; t < c.tracks; t++) {
            for (int s = 0; s < 2; s++) {
                EXPECT_EQ(d.GetTrackLen(t, s), static_cast<int>(c.perSide * 8));
                ASSERT_EQ(std::memcmp(d.GetTrackData(t, s),
                                      b.sides[s][static_cast<size_t>(t)].data(), c.perSide),
                          0);
            }
        }
    }
}

TEST(HfeImport, ExportsBackByteIdentical) {
    // A file laid out as this program writes it (list at block 1, zeroed tails)
    // comes back out unchanged.
    std::mt19937 rng(3);
    HfeBuilder b;
    b.bitRate = 500;
    b.rpm = 360;
    b.pad = 0x00;
    for (int c = 0; c < 84; c++) {
        // Side lengths that are not multiples of 256, so no zeroed last piece is implied.
        b.AddTrack(RandomBytes(rng, 20833), RandomBytes(rng, 20833));
    }
    std::vector<uint8_t> src = b.Build();
    src[16] = 1;  // interface mode of a 2HD disk
    src[17] = 1;
    WriteFile("hfe_same_in.HFE", src);
    ZEBDisk d;
    ASSERT_TRUE(d.Import(PathOf("hfe_same_in.HFE"), 1));
    ASSERT_TRUE(d.Export(PathOf("hfe_same_out.Hfe"), 0));
    EXPECT_EQ(ReadFile("hfe_same_out.Hfe"), src);
}

TEST(HfeImport, HostileFilesAreRefused) {
    const HfeBuilder base = Uniform(80, 250, 12500, 11);
    const std::vector<uint8_t> good = base.Build();
    using Mutate = std::function<void(std::vector<uint8_t>&)>;
    auto set16 = [](std::vector<uint8_t>& f, size_t off, unsigned v) {
        HfeBuilder::Put16(f, off, v);
    };
    struct Case {
        const char* file;
        Mutate mutate;
    };
    const Case cases[] = {
        {"hfe_bad_sig.hfe", [](auto& f) { f[7] = 'X'; }},
        {"hfe_bad_tracks0.hfe", [](auto& f) { f[9] = 0; }},
        {"hfe_bad_tracks85.hfe", [](auto& f) { f[9] = 85; }},
        {"hfe_bad_tracks255.hfe", [](auto& f) { f[9] = 255; }},
        {"hfe_bad_list0.hfe", [&](auto& f) { set16(f, 18, 0); }},
        {"hfe_bad_list_far.hfe", [&](auto& f) { set16(f, 18, 0xFFFF); }},
        {"hfe_bad_list_end.hfe",
         [&](auto& f) { set16(f, 18, static_cast<unsigned>(f.size() / 512)); }},
        {"hfe_bad_block_far.hfe", [&](auto& f) { set16(f, 512 + 10 * 4, 0xFFFF); }},
        {"hfe_bad_block_last.hfe",
         [&](auto& f) { set16(f, 512 + 79 * 4, static_cast<unsigned>(f.size() / 512 - 1)); }},
        {"hfe_bad_len0_first.hfe", [&](auto& f) { set16(f, 512 + 2, 0); }},
        {"hfe_bad_len0_mid.hfe", [&](auto& f) { set16(f, 512 + 40 * 4 + 2, 0); }},
        {"hfe_bad_len_huge.hfe", [&](auto& f) { set16(f, 512 + 79 * 4 + 2, 0xFFFF); }},
        {"hfe_bad_trunc_data.hfe", [](auto& f) { f.resize(f.size() - 100); }},
        {"hfe_bad_trunc_list.hfe", [](auto& f) { f.resize(600); }},
        {"hfe_bad_trunc_hdr.hfe", [](auto& f) { f.resize(25); }},
        {"hfe_bad_hdr_only.hfe", [](auto& f) { f.resize(512); }},
        {"hfe_bad_empty.hfe", [](auto& f) { f.clear(); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        std::vector<uint8_t> f = good;
        c.mutate(f);
        WriteFile(c.file, f);
        ZEBDisk d;
        EXPECT_FALSE(d.ImportHFE(PathOf(c.file)));
        ZEBDisk e;
        ASSERT_TRUE(e.Init(ZEB_2HD, 0, 0, 0));
        EXPECT_FALSE(e.Import(PathOf(c.file), 1));
        EXPECT_EQ(e.initialized, 0);
    }
    ZEBDisk d;
    EXPECT_FALSE(d.ImportHFE(PathOf("hfe_no_such_file.hfe")));
    EXPECT_EQ(d.initialized, 0);
}

TEST(HfeImport, WriteProtectionFollowsTheFilesPermission) {
    WriteFile("hfe_ro.hfe", Uniform(80, 250, 100, 2).Build());
    ASSERT_EQ(chmod("hfe_ro.hfe", 0444), 0);
    ZEBDisk d;
    ASSERT_TRUE(d.ImportHFE(PathOf("hfe_ro.hfe")));
    EXPECT_EQ(d.readOnly, 1);
    ASSERT_EQ(chmod("hfe_ro.hfe", 0644), 0);
    ASSERT_TRUE(d.ImportHFE(PathOf("hfe_ro.hfe")));
    EXPECT_EQ(d.readOnly, 0);
}

}  // namespace
