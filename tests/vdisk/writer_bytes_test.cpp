// The bytes each writer puts into its file, and the disks it refuses.
#include "image_builder.h"

using namespace vdt;

namespace {

// Header sizes, and the first table entries of tracks 0 and 1.
constexpr uint32_t kFddHdr = 0xC3FC, kNfdHdr = 0x10A10;
constexpr uint32_t kF0 = 0xDC, kN0 = 0x120, kN1 = kN0 + 26 * 16;

// One more sector (R 99) on a track.
void Extra(VDisk& d, int c, int h) {
    d.Track(c, h)->AddSector(Sec(1, c, h, 99, 0));
}
// One 10,000-byte sector a track, putting the estimate at the 11,000-byte threshold.
void Long(VDisk& d, int mfm, int gap3) {
    for (int h = 0; h < 2; h++) d.Track(0, h)->AddSector(Sec(mfm, 0, h, 1, 3, 0, 10000));
    d.Track(0, 0)->sectors->gap3 = d.Track(0, 1)->sectors->gap3 = gap3;
}
void D68Status(VDisk& d) {
    for (int st : std::initializer_list<int>{SECT_DELETED, SECT_IDCRC, SECT_IDCRC | SECT_DATACRC,
                                             SECT_DELETED | SECT_NODAM, SECT_NODAM | SECT_DATACRC})
        d.Track(0, 0)->AddSector(Sec(1, 0, 0, st, 0, st));
    d.writeProtect = 1;
}
void Dim2SD(VDisk& d) {
    d.NewTrack(0, 0);
    for (int r = 1; r <= 26; r++) d.Track(0, 0)->AddSector(Sec(0, 0, 0, r, 0));
}
// Per track: a uniform sector, one differing in its last byte only, a deleted FM one.
void FddFill(VDisk& d) {
    for (int t = 0; t < 2 * 82; t++) {
        VTrack* trk = d.Track(t / 2, t % 2);
        for (VSector* s = trk->sectors; s; s = s->next) std::memset(s->data, 0xE5, 1024);
        trk->sectors->next->data[1023] = 0xE6;
        trk->AddSector(Sec(0, t / 2, t % 2, 3, 0, SECT_DELETED));
    }
}

struct Pin {
    uint32_t off, val;
    bool wide = false;  // a 32-bit field, else one byte
};
// The name written is "ABCDEFGHIJKLMNOP" and 43 'Z's. Sector headers of the D68
// status row start at 688, 832, 976, 1120 and 1264.
// clang-format off
const std::vector<Pin> kD68 = {
    {0x0F, 'P'}, {0x10, 0}, {0x1A, 0x10}, {0x1B, 0x20}, {0x1C, 1408, true}, {0x20, 688, true},
    {0x24, 0, true}, {688 + 4, 5}, {688 + 7, 0x10}, {688 + 8, 0x10}, {832 + 7, 0}, {832 + 8, 0xA0},
    {976 + 8, 0xB0}, {1120 + 7, 0x10}, {1120 + 8, 0xF0}, {1264 + 7, 0}, {1264 + 8, 0xF0},
    {1264 + 14, 128}};
const std::vector<Pin> kDim = {
    {0, 0}, {154, 1}, {155, 0}, {0xAB, 'D'}, {0xB8, 0}, {0xBA, 4}, {0xC2, 'A'}, {0xFC, 'Z'},
    {0xFD, 0}, {0xFE, 0x19}, {0xFF, 0}};
const std::vector<Pin> kFdi = {
    {0, 0, true}, {4, 0x90, true}, {8, 4096, true}, {12, 77 * 16384, true}, {16, 1024, true},
    {20, 8, true}, {24, 2, true}, {28, 77, true}, {4095, 0}};
const std::vector<Pin> kFdd = {
    {0, 'V'}, {7, 0}, {8, 'A'}, {0x42, 'Z'}, {0x43, 0}, {0x88, 0}, {0x89, 0},
    {kF0 + 4, 0xE5}, {kF0 + 7, 1}, {kF0 + 8, 0xFFFFFFFF, true},                 // fill byte
    {kF0 + 12 + 4, 0xFF}, {kF0 + 12 + 8, kFddHdr, true},                        // stored
    {kF0 + 24 + 5, 1}, {kF0 + 24 + 6, 0}, {kF0 + 24 + 8, kFddHdr + 1024, true}, // FM, deleted
    {kF0 + 36, 0xFF}, {0xC3DB, 0xFF},                                           // unused
    {0xC3DC, 0xFFFF, true}, {0xC3E0, 0, true}, {0xC3EC, 0x10000, true},         // trailer
    {0xC3F0, 0xFFFFFFFF, true}, {0xC3F4, 0xFFFFFFFF, true}, {0xC3F8, 0, true}};
const std::vector<Pin> kNfd = {
    {0x10, 'A'}, {0x110, kNfdHdr, true}, {0x114, 0}, {0x115, 2}, {kN0 + 7, 0}, {kN0 + 10, 0x30},
    {kN1 + 7, 4}, {kN1 + 17 * 16 + 4, 1}, {kN1 + 18 * 16, 0xFF}, {kN1 + 18 * 16 + 10, 0xFF},
    {kN1 + 18 * 16 + 11, 0}};

struct Case {
    const char* file;
    int type, cyls, count, n;  // a uniform disk ...
    void (*tweak)(VDisk&);     // ... then changed by this
    int64_t size;              // -1: refused
    std::vector<Pin> pins;
};
const Case kCases[] = {
    // Plain: the extension picks the row; cylinders beyond it are left out.
    {"w.xdf", 7, 80, 8, 3, nullptr, 1261568, {}}, {"w.Dup", 7, 77, 8, 3, nullptr, 1261568, {}},
    {"w.IMG", 7, 77, 8, 3, nullptr, 1261568, {{8192, 8}, {16384 + 1025, 26}}},  // C, H, R order
    {"w.2d", 1, 40, 9, 2, nullptr, 368640, {}},
    {"w.HDM", 7, 76, 8, 3, nullptr, -1, {}},
    {"w.2dd", 3, 80, 9, 2, [](VDisk& d) { d.Track(79, 1)->sectors->idN = 3; }, -1, {}},
    // D68: status NODAM > DATACRC > IDCRC > DELETED, the mark from DELETED alone; media byte.
    {"w.d88", 7, 1, 0, 0, D68Status, 688 + 5 * 144, kD68},
    {"w.d68", 1, 43, 0, 0, nullptr, 688, {{0x1B, 0x10}, {0x1C, 688, true}}},
    {"w.D98", 3, 42, 0, 0, nullptr, 688, {{0x1B, 0x00}}},
    {"w.d88", 7, 84, 1, 0, nullptr, 688 + 164 * 144, {{0x20 + 163 * 4, 688 + 163 * 144, true}}},
    // DIM: the media byte from the shape; overtrack flag for media 0 beyond 77 cylinders.
    {"w.dim", 7, 77, 8, 3, nullptr, 256 + 154 * 8192, kDim},
    {"w.dim", 7, 80, 8, 3, nullptr, 256 + 160 * 8192, {{0, 0}, {0xFF, 1}}},
    {"w.dim", 7, 80, 9, 3, nullptr, 256 + 160 * 9216, {{0, 1}, {0xFF, 0}}},
    {"w.dim", 7, 80, 9, 3, [](VDisk& d) { d.Track(2, 0)->sectors->idH = 0x80; }, 256 + 160 * 9216,
     {{0, 3}}},  // media 3 numbering: H from 0x80 on
    {"w.dim", 7, 80, 15, 2, nullptr, 256 + 160 * 7680, {{0, 2}}},
    {"w.dim", 7, 82, 18, 2, nullptr, 256 + 164 * 9216, {{0, 9}, {164, 1}}},
    {"w.dim", 7, 80, 26, 1, Dim2SD, 256 + 26 * 128 + 159 * 26 * 256, {{0, 17}}},
    {"w.dim", 7, 80, 8, 3, [](VDisk& d) { d.NewTrack(0, 0); }, 256 + 159 * 8192, {{0, 0}, {1, 1}}},
    {"w.dim", 7, 77, 9, 3, nullptr, -1, {}},
    {"w.dim", 7, 80, 26, 1, nullptr, -1, {}},  // N=1 needs an FM N=0 first track
    // FDI: media by type, and for 2HD by the estimate (above 10,999: 0x30); conforming cylinders.
    {"w.fdi", 7, 80, 8, 3, [](VDisk& d) { Extra(d, 77, 1); }, 4096 + 77 * 16384, kFdi},
    {"w.fdi", 7, 1, 0, 0, [](VDisk& d) { Long(d, 1, 726); }, 4096 + 20000, {{4, 0x30, true}}},
    {"w.fdi", 7, 1, 0, 0, [](VDisk& d) { Long(d, 1, 725); }, 4096 + 20000, {{4, 0x90, true}}},
    {"w.fdi", 3, 2, 9, 2, nullptr, 4096 + 4 * 4608, {{4, 0x10, true}}},
    {"w.fdi", 1, 2, 16, 1, nullptr, 4096 + 4 * 4096, {{4, 0x50, true}}},
    // FDD: uniform data as a fill byte, the fixed trailer, 80 cylinders at most, 26 sectors.
    {"w.fdd", 7, 82, 2, 3, FddFill, kFddHdr + 160 * 1152, kFdd},
    // NFD: media per track (2HD from 11,000 on: 0x30), byte 7 = 4 on head 1, 163 tracks.
    {"w.nfd", 7, 84, 18, 2, nullptr, kNfdHdr + 163 * 9216, kNfd},
    {"w.nfd", 1, 2, 16, 1, nullptr, kNfdHdr + 4 * 4096, {{kN0 + 10, 0x10}}},
    {"w.nfd", 7, 1, 0, 0, [](VDisk& d) { Long(d, 0, 861); }, kNfdHdr + 20000, {{kN0 + 10, 0x30}}},
    {"w.nfd", 7, 1, 0, 0, [](VDisk& d) { Long(d, 0, 860); }, kNfdHdr + 20000, {{kN0 + 10, 0x90}}},
    {"w.nfd", 7, 2, 26, 0, [](VDisk& d) { Extra(d, 0, 1); }, -1, {}},
};
// clang-format on

TEST(ImageWriters, PinnedBytesAndRefusals) {
    for (const Case& k : kCases) {
        SCOPED_TRACE(std::string(k.file) + " row " + std::to_string(&k - kCases));
        VDisk d;
        Uniform(d, k.type, k.cyls, k.count, k.n);
        if (k.tweak) k.tweak(d);
        for (int j = 0; j < 59; j++) d.name[j] = static_cast<char>(j < 16 ? 'A' + j : 'Z');
        const Bytes b = Written(d, k.file);  // a refusal leaves no file
        ASSERT_EQ(static_cast<int64_t>(b.size()), std::max<int64_t>(k.size, 0));
        const FieldReader r(b.data(), b.size());
        for (const Pin& p : k.pins)
            EXPECT_EQ(p.wide ? r.U32(p.off) : r.U8(p.off), p.val) << "at " << p.off;
    }
}

}  // namespace
