// ZEB and HFE files as other writers lay them out: every file the format
// allows loads and converts (unformatted tracks of no bits, track blocks
// smaller than the nominal track, HFE tracks of length 0); the others are
// refused, each with its reason.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <tuple>

#include "signal/rawconv.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/properties.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// Tracks of at least this many cells hold one 128-byte MFM sector, R = c + 1.
constexpr int kSectorCells = 8000;

uint8_t DataByte(int c, int h, int i) {
    return static_cast<uint8_t>(c * 3 + h + i * 7);
}

// The stored bits of track (c, h): cells written by the encoder, or for a raw
// track the pulses of those cells (bits / 8 of them), (bits + 7) / 8 bytes.
Bytes TrackData(bool raw, int bits, int c, int h) {
    const int cells = raw ? bits / 8 : bits;
    Bytes enc(static_cast<size_t>(cells) / 8 + 2);
    VTrack t;
    if (cells >= kSectorCells) {
        Bytes data(128);
        for (int i = 0; i < 128; i++) data[static_cast<size_t>(i)] = DataByte(c, h, i);
        t.AddSector(MakeFormattedSector(1, c, h, c + 1, 0, data.data(), 128, 0));
    }
    if (cells > 0) t.Encode(0, enc.data(), cells);
    Bytes out(static_cast<size_t>(bits + 7) / 8 + 1);
    if (!raw) out.assign(enc.begin(), enc.begin() + static_cast<long>(out.size()));
    if (raw && bits > 0) Encode2Raw(enc.data(), cells, out.data(), bits);
    out.resize(static_cast<size_t>(bits + 7) / 8);
    return out;
}

struct ZebLayout {
    int version, type, storedRate, rpm, cyls, block;
    int (*bits)(int c, int h);  // of version 1: the one length of every track
};

Bytes ZebImage(const ZebLayout& z) {
    Bytes f(256);
    FieldWriter w(f.data(), f.size());
    w.Bytes(0, "ZEB", 3), w.U8(3, static_cast<uint32_t>(z.version)), w.Bytes(4, "LOADME", 7);
    w.I32(68, z.type), w.I32(72, z.cyls), w.I32(76, 2), w.I32(80, z.storedRate);
    w.I32(84, z.rpm), w.I32(96, z.version == 1 ? z.bits(0, 0) / 8 : 0), w.I32(100, z.block);
    const bool raw = z.type == ZEB_RAW;
    for (int c = 0; c < z.cyls; c++) {
        for (int h = 0; h < 2; h++) {
            const int bits = z.bits(c, h);
            Bytes b(static_cast<size_t>(z.block));
            const Bytes data = TrackData(raw, bits, c, h);
            const size_t at = z.version == 1 ? 0 : 16;
            std::copy(data.begin(), data.end(), b.begin() + static_cast<long>(at));
            FieldWriter r(b.data(), 16);
            if (z.version > 1)
                r.I32(0, c), r.I32(4, h), r.I32(12, z.version == 2 ? bits / 8 : bits);
            f.insert(f.end(), b.begin(), b.end());
        }
    }
    return f;
}

// 42 cylinders of 2D cells in HFE: 100,000 cells a side; every fourth cylinder
// from 1 has length 0 in the track list.
int HfeBits(int c, int) {
    return c % 4 == 1 ? 0 : 100000;
}
Bytes HfeImage() {
    std::vector<Bytes> sides[2];
    for (int c = 0; c < 42; c++)
        for (int h = 0; h < 2; h++) sides[h].push_back(TrackData(false, HfeBits(c, h), c, h));
    return MakeHfe(250, sides);
}

int RawMixed(int c, int h) {  // samples: unformatted, short, or a sector
    const int slot = c * 2 + h;
    return slot % 5 == 0 ? 0 : slot % 2 ? 12000 : 80000;
}
int Raw80000(int, int) {
    return 80000;
}
int NoBits(int, int) {
    return 0;
}
int CellsMixed(int c, int h) {
    return (c * 2 + h) % 3 == 0 ? 0 : 32000;
}

struct Loadable {
    const char* what;
    const char* file;
    ZebLayout zeb;              // version 0: the HFE image above
    int type, rate, rpm, cyls;  // after loading
    int (*bits)(int c, int h);  // after loading
};
// clang-format off
const Loadable kLoadable[] = {
    {"v3 raw at 4000, 10240-byte blocks, 0 to 80000 samples", "ld_v3raw.zeb",
     {3, ZEB_RAW, 4000, 300, 42, 10240, RawMixed}, ZEB_RAW, 4000, 300, 42, RawMixed},
    {"v2 raw, lengths in bytes, data rate stored", "ld_v2raw.zeb",
     {2, ZEB_RAW, 2000, 300, 42, 10240, RawMixed}, ZEB_RAW, 4000, 300, 42, RawMixed},
    {"v1 raw, one length for all", "ld_v1raw.zeb",
     {1, ZEB_RAW, 2000, 300, 42, 10240, Raw80000}, ZEB_RAW, 4000, 300, 42, Raw80000},
    {"v1 unformatted in 16-byte blocks", "ld_v1none.zeb",
     {1, ZEB_2D, 250, 300, 42, 16, NoBits}, ZEB_2D, 500, 300, 42, NoBits},
    {"v3 2DD cells in 4096-byte blocks", "ld_v3cells.zeb",
     {3, ZEB_2DD, 500, 300, 84, 4096, CellsMixed}, ZEB_2DD, 500, 300, 84, CellsMixed},
    {"v3 2HD unformatted in 16-byte blocks", "ld_v3none.zeb",
     {3, ZEB_2HD, 1000, 360, 84, 16, NoBits}, ZEB_2HD, 1000, 360, 84, NoBits},
    {"HFE with tracks of length 0", "ld_zero.hfe", {}, ZEB_2D, 500, 300, 42, HfeBits},
};
// clang-format on

void PrintTo(const Loadable& k, std::ostream* os) {
    *os << k.what;
}

std::string LoadableName(const testing::TestParamInfo<Loadable>& info) {
    std::string n = info.param.file;
    for (char& ch : n)
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return n;
}

class MustLoad : public testing::TestWithParam<Loadable> {};

TEST_P(MustLoad, LoadsConvertsAndSaves) {
    const Loadable& k = GetParam();
    SCOPED_TRACE(k.what);
    const bool hfe = k.zeb.version == 0;
    Spit(k.file, hfe ? HfeImage() : ZebImage(k.zeb));
    ZEBDisk d;
    ASSERT_TRUE(hfe ? d.Import(PathOf(k.file), 1) : d.Load(PathOf(k.file), 0)) << d.report.error;
    EXPECT_EQ(d.report.error, "");
    EXPECT_EQ(PropertyBlock(ReadProperties(d)),
              PropertyBlock({k.type, hfe ? "BLANK IMAGE" : "LOADME", k.cyls, 2, k.rate, k.rpm}));

    // Every track as stored; the slots the file lacks blank at the nominal length.
    const int nominal = k.rate * 60000 / k.rpm;
    for (int c = 0; c < k.cyls; c++) {
        for (int h = 0; h < 2; h++) {
            const bool held = hfe || c < k.zeb.cyls;
            const int bits = held ? k.bits(c, h) : nominal;
            ASSERT_EQ(d.GetTrackLen(c, h), bits) << c << "." << h;
            ASSERT_GE(d.RecordDataSize(c * 2 + h) * 8, bits);
            if (!held) continue;
            const Bytes want = TrackData(k.type == ZEB_RAW, bits, c, h);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), d.GetTrackData(c, h)))
                << c << "." << h;
        }
    }

    // Through the decoder: a sector where the track holds one, none elsewhere.
    // Test cases may run side by side: every file of this one carries its name.
    const std::string out = std::string(k.file) + "_out";
    ASSERT_TRUE(d.Export(PathOf(out + ".d88"), 0)) << d.report.error;
    // A raw disk is converted on the way: its cell rate, 2D or 2DD by its cylinders.
    const bool raw = k.type == ZEB_RAW;
    EXPECT_EQ(PropertyBlock(ReadProperties(d)),
              PropertyBlock({raw ? (k.cyls > 42 ? ZEB_2DD : ZEB_2D) : k.type,
                             hfe ? "BLANK IMAGE" : "LOADME", k.cyls, 2, raw ? k.rate / 8 : k.rate,
                             k.rpm}));
    VDisk v;
    ASSERT_EQ(v.Import(PathOf(out + ".d88"), 1), 1);
    ASSERT_GE(v.cylinders, std::min(k.cyls, 80));
    for (int c = 0; c < v.cylinders; c++) {
        for (int h = 0; h < 2; h++) {
            const int bits = hfe || c < k.zeb.cyls ? k.bits(c, h) : 0;
            const int cells = k.type == ZEB_RAW ? bits / 8 : bits;
            const VTrack* t = v.Track(c, h);
            ASSERT_NE(t, nullptr);
            ASSERT_EQ(t->SectorCount(), cells >= kSectorCells ? 1 : 0) << c << "." << h;
            if (cells < kSectorCells) continue;
            const VSector* s = t->sectors;
            EXPECT_EQ(std::tuple(s->idC, s->idH, s->idR, s->length, s->data[100]),
                      std::tuple(c, h, c + 1, 128, DataByte(c, h, 100)));
        }
    }

    // Raw and back, HFE and ZEB out: the tracks of no bits stay empty.
    ASSERT_TRUE(d.ConvertRaw());
    for (int c = 0; c < std::min(k.cyls, k.zeb.cyls + (hfe ? 84 : 0)); c++)
        EXPECT_EQ(d.GetTrackLen(c, 0) == 0, k.bits(c, 0) == 0) << c;
    ASSERT_TRUE(d.ConvertEnc());
    ASSERT_TRUE(d.ExportHFE(PathOf(out + ".hfe")));
    ASSERT_TRUE(d.Save(PathOf(out + ".zeb"), 1));
    ZEBDisk e;
    ASSERT_TRUE(e.Load(PathOf(out + ".zeb"), 0)) << e.report.error;
    for (int slot = 0; slot < 2 * k.cyls; slot++)
        EXPECT_EQ(e.GetTrackLen(slot / 2, slot % 2), d.GetTrackLen(slot / 2, slot % 2)) << slot;
}

INSTANTIATE_TEST_SUITE_P(Files, MustLoad, testing::ValuesIn(kLoadable), LoadableName);

// A good 2DD file of two cylinders of 100000 cells, in 16384-byte blocks, and
// one 32-bit field of it set.
Bytes GoodZeb() {
    return ZebImage({3, ZEB_2DD, 500, 300, 2, 16384, [](int, int) { return 100000; }});
}
Bytes ZebWith(std::initializer_list<std::pair<size_t, int32_t>> fields) {
    Bytes f = GoodZeb();
    for (const auto& [off, v] : fields) FieldWriter(f.data(), f.size()).I32(off, v);
    return f;
}
Bytes GoodHfe() {
    std::vector<Bytes> sides[2];
    for (int c = 0; c < 80; c++)
        for (auto& s : sides) s.push_back(Bytes(c ? 64 : 12500, static_cast<uint8_t>(c)));
    return MakeHfe(250, sides);
}
Bytes HfeWith(size_t off, int v16) {
    Bytes f = GoodHfe();
    Put16(f, off, static_cast<size_t>(v16));
    return f;
}

struct Refused {
    const char* what;
    const char* file;
    Bytes (*build)();
    const char* reason;  // after "<file>: "
};
// clang-format off
const Refused kRefused[] = {
    {"the good file itself", "rf_good.zeb", [] { return ZebWith({}); }, ""},
    {"version 4", "rf_v4.zeb", [] { Bytes f = GoodZeb(); f[3] = 4; return f; },
     "version 4 (versions 1, 2 and 3 are read)"},
    {"85 cylinders", "rf_85.zeb", [] { return ZebWith({{72, 85}}); },
     "85 cylinders x 2 heads: more tracks than 84 x 2"},
    {"3 heads", "rf_3h.zeb", [] { return ZebWith({{76, 3}}); },
     "2 cylinders x 3 heads: more tracks than 84 x 2"},
    {"block of 15", "rf_b15.zeb", [] { return ZebWith({{100, 15}}); },
     "track block of 15 bytes cannot hold a track record"},
    {"no rpm", "rf_rpm.zeb", [] { return ZebWith({{84, 0}}); },
     "rate 500 kbit/s at 0 rpm gives no track length that can be held"},
    {"rate of no track", "rf_huge.zeb", [] { return ZebWith({{80, 0x7FFFFFFF}, {84, 1}}); },
     "rate 2147483647 kbit/s at 1 rpm gives no track length that can be held"},
    {"negative bit length", "rf_neg.zeb", [] { return ZebWith({{256 + 16384 + 12, -8}}); },
     "track 0.1: bit length -8 does not fit its 16368 data bytes"},
    {"bit length beyond its block", "rf_long.zeb", [] { return ZebWith({{256 + 12, 130945}}); },
     "track 0.0: bit length 130945 does not fit its 16368 data bytes"},
    {"negative index", "rf_idx.zeb", [] { return ZebWith({{256 + 8, -1}}); },
     "track 0.0: negative index offset -1"},
    {"blocks past the end", "rf_cut.zeb", [] { return ZebWith({{72, 3}}); },
     "file ends early at offset 65792 (6 tracks of 16384 bytes end at offset 98560)"},
    {"half a header", "rf_half.zeb", [] { return Bytes(100, 1); },
     "header: file ends early at offset 100 (256 bytes wanted from offset 0)"},
    {"empty", "rf_empty.zeb", [] { return Bytes(); }, "header: empty file"},
    {"HFE signature", "rf_sig.hfe", [] { Bytes f = GoodHfe(); f[7] = 'X'; return f; },
     "no HFE signature \"HXCPICFE\""},
    {"HFE without tracks", "rf_none.hfe", [] { Bytes f = GoodHfe(); f[9] = 0; return f; },
     "no tracks in the track list"},
    {"HFE of 85 tracks", "rf_85.hfe", [] { Bytes f = GoodHfe(); f[9] = 85; return f; },
     "85 tracks: more cylinders than 84"},
    {"HFE first track of length 0", "rf_first.hfe", [] { return HfeWith(514, 0); },
     "track 0 has length 0, so the rotation speed cannot be estimated"},
    {"HFE list past the end", "rf_list.hfe", [] { return HfeWith(18, 0xFFFF); },
     "track list: file ends early at offset 66560 (320 bytes wanted from offset 33553920)"},
    {"HFE track past the end", "rf_trk.hfe", [] { return HfeWith(512 + 10 * 4, 0xFFFF); },
     "file ends early at offset 66560 (track 10 ends at offset 33554432)"},
    {"HFE header cut", "rf_cut.hfe", [] { Bytes f = GoodHfe(); f.resize(25); return f; },
     "header: file ends early at offset 25 (26 bytes wanted from offset 0)"},
};
// clang-format on

TEST(MustRefuse, EachFileWithItsReason) {
    for (const Refused& k : kRefused) {
        SCOPED_TRACE(k.what);
        Spit(k.file, k.build());
        ZEBDisk d;
        const bool zeb = std::string(k.file).find(".zeb") != std::string::npos;
        const bool loaded = zeb ? d.Load(PathOf(k.file), 0) : d.Import(PathOf(k.file), 1);
        EXPECT_EQ(loaded, k.reason[0] == 0);
        EXPECT_EQ(d.report.error, k.reason[0] ? std::string(k.file) + ": " + k.reason : "");
        EXPECT_EQ(d.initialized, loaded ? 1 : 0);
    }
}

TEST(MustRefuse, FilesThatAreNoFiles) {
    ASSERT_EQ(mkdir("rf_dir.zeb", 0755) == 0 || errno == EEXIST, true);
    ASSERT_EQ(mkdir("rf_dir.hfe", 0755) == 0 || errno == EEXIST, true);
    for (const auto& [file, reason] : {std::pair{"rf_missing.zeb", "No such file or directory"},
                                       {"rf_missing.hfe", "No such file or directory"},
                                       {"rf_dir.zeb", "is a directory"},
                                       {"rf_dir.hfe", "is a directory"}}) {
        ZEBDisk d;
        const bool zeb = std::string(file).find(".zeb") != std::string::npos;
        EXPECT_FALSE(zeb ? d.Load(PathOf(file), 0) : d.Import(PathOf(file), 1));
        EXPECT_EQ(d.report.error, std::string(file) + ": " + reason);
    }
}

}  // namespace
