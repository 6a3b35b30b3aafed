// Reader rules the files do not spell out, header fields the readers interpret, and hostile
// files every reader must refuse without reading past the file, track table or buffers.
#include "image_builder.h"

using namespace vdt;

namespace {

TEST(DimImport, SectorIdsFollowTheMediaByte) {
    // {media, c, h, index, R, H of the id, N, mfm}
    const int cases[][8] = {
        {1, 0, 0, 1, 11, 0, 3, 1},   {1, 0, 1, 0, 10, 1, 3, 1},   {1, 2, 0, 8, 18, 0, 3, 1},
        {3, 0, 0, 1, 2, 0x80, 3, 1}, {3, 0, 1, 0, 1, 0x81, 3, 1}, {17, 0, 0, 25, 26, 0, 0, 0},
        {17, 0, 1, 0, 1, 1, 1, 1},   {2, 0, 1, 14, 15, 1, 2, 1},  {9, 2, 0, 17, 18, 0, 2, 1},
        {0, 2, 0, 7, 8, 0, 3, 1},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE("row " + std::to_string(&k - cases));
        const Bytes file = DimImage(k[0], {0, 1, 4});
        VDisk d;
        ExpectImport(d, Put("ids.dim", file), "");
        EXPECT_STREQ(d.name, "ids.dim");  // no comment: the file's name
        const VSector* s = d.Track(k[1], k[2])->GetSectorByIndex(k[3]);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(std::tuple(s->idC, s->idH, s->idR, s->idN, s->mfm, s->gap3),
                  std::tuple(k[1], k[5], k[4], k[6], k[7], (k[7] ? Gap3MFM : Gap3FM)[k[6]]));
        const VSector* last = d.Track(2, 0)->GetLasttSector();  // the sizes add up to the file
        EXPECT_EQ(Bytes(last->data, last->data + last->length),
                  Bytes(file.end() - last->length, file.end()));
    }
}

TEST(D68Import, CylindersFromMediaByteAndFullTable) {
    // {media, offset of the one track (688: a full table follows the header), its table
    // index, type, cylinders}: a cut table, or none for cylinder 0 head 0, gives 80.
    const uint32_t cases[][5] = {
        {0x10, 688, 0, 3, 82}, {0x20, 720, 0, 7, 80}, {0x20, 688, 3, 7, 80}};
    for (const auto& k : cases) {
        Bytes b(k[1] + 16 + 256, 0);
        W(b).U8(0x1B, k[0]), W(b).U32(0x20 + 4 * k[2], k[1]), W(b).U8(k[1] + 4, 1);
        W(b).U16(k[1] + 14, 256);
        VDisk d;
        ExpectImport(d, Put("geo.d77", b), "");
        EXPECT_EQ(std::tuple(d.type, d.cylinders), (std::tuple<int, int>(k[3], k[4])));
    }
}

TEST(D68MediaOffset, ChainOfDisksAndItsLimits) {
    VDisk a, b, d;
    Uniform(a, VDISK_2HD, 1, 1, 0);
    Uniform(b, VDISK_2DD, 2, 1, 1);
    Bytes both = Written(a, "chain1.d88"), two = Written(b, "chain2.d88");
    const int n1 = static_cast<int>(both.size()), end = 0x1E0100, rest = end - n1;
    both.insert(both.end(), two.begin(), two.end());
    both.resize(end);  // room for the largest disk size
    // {header patched (-1: none, 0: disk 1, 1: disk 2), its disk size, disk number, offset}
    const int cases[][4] = {{-1, 0, -3, 0},       {-1, 0, 1, 0},    {-1, 0, 2, n1},
                            {0, 511, 2, -1},      {0, 512, 2, 512}, {0, 0x1E0000, 2, 0x1E0000},
                            {0, 0x1E0001, 2, -1}, {1, 100, 2, n1},  {1, 100, 3, -1},
                            {1, 0x1E0000, 3, -1}, {1, rest, 3, end}};
    for (const auto& k : cases) {
        Bytes img = both;
        if (k[0] >= 0) W(img).U32(k[0] * n1 + 0x1C, k[1]);
        EXPECT_EQ(d.GetD68MediaOffset(PathOf(Put("chain.d88", img)), k[2]), k[3]) << &k - cases;
    }
    EXPECT_EQ(d.Import(PathOf(Scratch("chain.d88")), 3), 0);  // disk 3 begins at the end
    EXPECT_EQ(d.GetD68MediaOffset(PathOf(Put("s.d88", Bytes(600))), 2), -1);
}

// A valid image of two cylinders of two 256-byte sectors (DIM: media 0, tracks 0 and 3; plain:
// 2HD by its size).
Bytes Valid(const std::string& ext) {
    if (ext == ".dim") return DimImage(0, {0, 3});
    if (ext == ".img") return Bytes(1261568, 0xE5);
    VDisk d;
    Uniform(d, VDISK_2HD, 2, 2, 1);
    return Written(d, "valid" + ext);
}
constexpr size_t kF0 = 0xDC, kN0 = 0x120;  // first FDD and NFD table entries

// One byte of the file set to v; the file cut to n bytes, or by -n.
template <size_t off, uint8_t v>
void Set(Bytes& b) {
    b[off] = v;
}
template <long n>
void Size(Bytes& b) {
    b.resize(n < 0 ? b.size() - static_cast<size_t>(-n) : static_cast<size_t>(n));
}
template <size_t off, uint32_t v, size_t size = 0>
void Set32(Bytes& b) {
    W(b).U32(off, v);
    if (size) b.resize(size);
}

struct Patch {
    const char* ext;
    void (*spoil)(Bytes&);
    int type;                 // 0: refused
    const char* reason = "";  // of a refused file, after "<path>: "
    int protect = 0;
};
// clang-format off
const Patch kPatches[] = {
    {".d88", Set<688 + 8, 0xB0>, 7},  // a status byte is not carried
    {".fdi", Set<4, 0x91>, 7}, {".fdi", Set<4, 0x30>, 7}, {".fdi", Set<4, 0xB0>, 7}, {".fdi", Set<4, 0x7F>, 3},
    {".fdi", Set<4, 0xF0>, 3}, {".fdi", Set<4, 0x50>, 1}, {".fdi", Set<4, 0xD0>, 1},
    {".fdd", Set<0x88, 1>, 7, "", 1}, {".nfd", Set<0x114, 1>, 7, "", 1},
    // Plain images by size alone, whatever the extension; the 2D row's own 36,840 bytes run
    // short, the 368,640 it writes are unknown, an empty file fails on its first read.
    {".d88", Size<1261568>, 7},
    {".d88", [](Bytes& b) { for (size_t i = 0; i < 164; i++) W(b).U32(0x20 + 4 * i, 688); }, 7},
    {".img", Size<36840>, 0, "track 3.1: file ends early at offset 36840 (4608 bytes wanted from offset 32256)"},
    {".img", Size<368640>, 0, "not a plain image size (368640 bytes; the sizes that are: 1261568, 1228800, 1474560, 737280, 36840)"},
    {".img", Size<0>, 0, "empty file"},
    {".d88", Set<0x1B, 0x30>, 0, "unknown media byte 0x30 (0x00, 0x10 and 0x20 are read)"},
    {".d88", Set<688 + 4, 0>, 0, "track 0.0 at offset 688: its first sector header says 0 sectors"},
    {".d88", [](Bytes& b) { W(b).U16(702, 16385), b.resize(b.size() + 16385); }, 0, "track 0.0: sector 1 of 16385 bytes (at most 16384 are read)"},
    {".d88", Set32<0x24, 0x7FFFFFF0>, 0, "track 0.1: offset 2147483632 lies beyond the end (2864 bytes)"},
    {".d88", Size<-1>, 0, "track 1.1: file ends early at offset 2863 (256 bytes wanted from offset 2608)"},
    {".d88", Size<600>, 0, "file ends early at offset 600 (a disk header is 688 bytes)"},
    {".dim", Size<-1>, 0, "track 1.1: file ends early at offset 16639 (8192 bytes wanted from offset 8448)"},
    {".dim", Set<0xB7, 0>, 0, "no DIM header text \"DIFC HEADER  \" at offset 0xAB"},
    {".dim", Set<0xB8, ' '>, 0, "no DIM header text \"DIFC HEADER  \" at offset 0xAB"},
    {".dim", Set<0, 4>, 0, "media byte 4 is none of 0, 1, 2, 3, 9, 17"},
    {".fdi", [](Bytes& b) { b.push_back(0); }, 0, "6145 bytes, but the header gives 6144 (4096 header + 2 x 2 x 2 x 256)"},
    {".fdi", Set<4, 0x20>, 0, "unknown media code 0x20"},
    {".fdi", Set32<0x18, 3>, 0, "3 heads (2 are read)"},
    {".fdi", Set32<0x14, 0, 4096>, 0, "0 sectors per track (1 to 255 are read)"},
    {".fdi", Set32<0x1C, 85, 4096 + 85 * 1024>, 0, "85 cylinders: more than 84"},
    {".fdi", Set32<0x14, 256, 4096 + 1024 * 256>, 0, "256 sectors per track (1 to 255 are read)"},
    {".fdi", Set32<0x10, 1000, 4096 + 8 * 1000>, 0, "sector length 1000 is not a power of two from 128 to 16384"},
    {".fdi", Set32<0x10, 64, 4096 + 8 * 64>, 0, "sector length 64 is not a power of two from 128 to 16384"},
    {".fdd", Size<0xC3FB>, 0, "header: file ends early at offset 50171 (50172 bytes wanted from offset 0)"},
    {".fdd", Set<3, '2'>, 0, "no signature \"VFD1.\""},
    {".fdd", Set<kF0 + 3, 7>, 0, "track 0.0: 16384 bytes of sector data at offset 50172 run past the end (52220 bytes)"},
    {".fdd", Set32<kF0 + 8, 52220 - 255>, 0, "track 0.0: 256 bytes of sector data at offset 51965 run past the end (52220 bytes)"},
    {".nfd", Size<0x10A0F>, 0, "header: file ends early at offset 68111 (68112 bytes wanted from offset 0)"},
    {".nfd", Set<13, '1'>, 0, "no signature \"T98FDDIMAGE.R0\""},
    {".nfd", Set<0x115, 1>, 0, "heads byte 1 (2 are read)"},
    {".nfd", Set<kN0 + 10, 0x20>, 0, "unknown media code 0x20"},
    {".nfd", Set<kN0 + 3, 7>, 0, "track 0.0: file ends early at offset 70160 (16384 bytes wanted from offset 68112)"},
};
// clang-format on

TEST(ImageReaders, PatchedAndHostileFiles) {
    VDisk d;
    for (const Patch& k : kPatches) {
        SCOPED_TRACE(std::string(k.ext) + " row " + std::to_string(&k - kPatches));
        Bytes b = Valid(k.ext);
        ExpectImport(d, Put(std::string("ok") + k.ext, b), "");  // one change a row
        k.spoil(b);
        ExpectImport(d, Put(std::string("patched") + k.ext, b), k.type ? "" : k.reason);
        if (!k.type) continue;
        EXPECT_EQ(d.type, k.type);
        EXPECT_EQ(d.writeProtect, k.protect);
        EXPECT_EQ(d.Track(0, 0)->sectors->status, 0);
    }
}

// Files that are no image at all: the system's word for it, or the types that are known.
TEST(ImageReaders, NoImageSaysWhy) {
    const std::string dir = Scratch("dir.d88");
    mkdir(dir.c_str(), 0755);
    const std::pair<std::string, std::string> cases[] = {
        {Scratch("missing.nfd"), "No such file or directory"},
        {dir, "is a directory"},
        {Put("unknown.abc", Bytes(5000, 1)),
         "unknown extension \".abc\"; known: .ZEB .HFE .SCP .RAW .MFI .XDF .HDM .2HD .DUP .IMG "
         ".2HC .2HQ .2DD .2D .D68 .D88 .D77 .D98 .DIM .FDI .FDD .NFD .IMD .TD0"},
    };
    for (const auto& [file, reason] : cases) {
        VDisk d;
        ExpectImport(d, file, reason);
    }
}

}  // namespace
