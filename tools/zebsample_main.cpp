// zebsample: writes the built-in sample disks used by the demo and the tests.
//
//   zebsample OUTFILE
//
// The extension of OUTFILE picks the disk:
//   .hdm .xdf .2hd .dup .img   2HD, 77 cylinders of 8 x 1,024-byte sectors
//   .2hc                       2HD, 80 cylinders of 15 x 512
//   .2hq                       2HD, 80 cylinders of 18 x 512 (1.44 MB)
//   .2dd                       2DD, 80 cylinders of 9 x 512
//   .2d                        2D, 40 cylinders of 9 x 512 (an IBM PC 360 KB disk)
//   .scp                       that 2D disk as a flux capture: two revolutions
//                              a track, transitions off their cells by up to 5%
//   .dd.scp                    a noisy capture (transitions off their cells by
//                              0.03 cells, one standard deviation; speed wobbling;
//                              the index anywhere) of 40 cylinders, one side, of
//                              16 x 256 (250 kbit/s MFM, 300 rpm), three revolutions
//   .2hd.scp                   the same of a PC-98 2HD disk, 80 cylinders of
//                              8 x 1,024 (360 rpm), two revolutions
//   .d88 .d77 .d68 .d98 .nfd   a PC-98 style 2HD disk: cylinder 0 head 0 holds
//   .fdd                       26 FM sectors of 128 bytes, every other track 26
//                              MFM sectors of 256 bytes; one deleted sector
//   .fdi .dim                  the 8 x 1,024 disk
//   .zeb                       a blank 2HD track-level disk
// The sector contents are a fixed text followed by pseudo-random bytes, so
// every run writes the same file.
#include <strings.h>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <map>
#include <vector>

#include "fluxsynth.h"
#include "noisecapture.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

namespace {

struct Geometry {
    const char* ext;
    int type, cylinders, sectors, n, gap3;
};

constexpr Geometry kPlain[] = {
    {".HDM", VDISK_2HD, 77, 8, 3, 116}, {".XDF", VDISK_2HD, 77, 8, 3, 116},
    {".2HD", VDISK_2HD, 77, 8, 3, 116}, {".DUP", VDISK_2HD, 77, 8, 3, 116},
    {".IMG", VDISK_2HD, 77, 8, 3, 116}, {".FDI", VDISK_2HD, 77, 8, 3, 116},
    {".DIM", VDISK_2HD, 77, 8, 3, 116}, {".2HC", VDISK_2HD, 80, 15, 2, 84},
    {".2HQ", VDISK_2HD, 80, 18, 2, 84}, {".2DD", VDISK_2DD, 80, 9, 2, 84},
    {".2D", VDISK_2D, 40, 9, 2, 84},
};
constexpr Geometry k360K = kPlain[10];

// Deterministic contents: a banner, then xorshift bytes.
std::vector<uint8_t> SectorData(int c, int h, int r, int len) {
    std::vector<uint8_t> d(static_cast<size_t>(len));
    char text[64];
    int t = std::snprintf(text, sizeof(text), "ZEBKIT SAMPLE C%02d H%d R%02d ", c, h, r);
    uint32_t x = static_cast<uint32_t>(c * 977 + h * 131 + r * 7 + 1);
    for (int i = 0; i < len; i++) {
        if (i < t) {
            d[static_cast<size_t>(i)] = static_cast<uint8_t>(text[i]);
            continue;
        }
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        d[static_cast<size_t>(i)] = static_cast<uint8_t>(x);
    }
    return d;
}

void AddTrack(VDisk& disk, int c, int h, int mfm, int sectors, int n, int gap3) {
    VTrack* t = disk.NewTrack(c, h);
    int len = 128 << n;
    for (int r = 1; r <= sectors; r++) {
        auto data = SectorData(c, h, r, len);
        t->AddSector(MakeSector(mfm, c, h, r, n, data.data(), len, mfm ? 22 : 11, gap3, 0));
    }
}

void BuildPlain(VDisk& disk, const Geometry& g) {
    disk.Init(g.type, g.cylinders, 2);
    for (int c = 0; c < g.cylinders; c++)
        for (int h = 0; h < 2; h++) AddTrack(disk, c, h, 1, g.sectors, g.n, g.gap3);
    std::snprintf(disk.name, sizeof(disk.name), "ZEBKIT SAMPLE");
}

void BuildPc98(VDisk& disk) {
    disk.Init(VDISK_2HD, 77, 2);
    for (int c = 0; c < 77; c++)
        for (int h = 0; h < 2; h++) {
            if (c == 0 && h == 0)
                AddTrack(disk, c, h, 0, 26, 0, Gap3FM[0]);
            else
                AddTrack(disk, c, h, 1, 26, 1, 51);
        }
    // One deleted sector, as some copy-protected disks carry.
    if (VSector* s = disk.Track(1, 0)->GetSectorByIndex(4)) s->status = SECT_DELETED;
    std::snprintf(disk.name, sizeof(disk.name), "ZEBKIT SAMPLE");
}

bool WriteFile(const fluxsynth::Bytes& b, const char* file) {
    std::FILE* f = std::fopen(file, "wb");
    if (!f) return false;
    const bool ok = std::fwrite(b.data(), 1, b.size(), f) == b.size();
    return std::fclose(f) == 0 && ok;
}

// The 2D sample as a drive would read it: each track encoded into its cells
// at 500 kbit/s and 300 rpm, then turned into flux times of an SCP capture
// (25 ns units).
bool WriteCapture(const VDisk& disk, const char* file) {
    constexpr int kCells = 100000;
    std::vector<uint8_t> cells(kCells / 8);
    std::map<int, fluxsynth::Flux> tracks;
    for (int c = 0; c < disk.cylinders; c++)
        for (int h = 0; h < 2; h++) {
            fluxsynth::Shape shape;
            shape.revolutions = 2;
            shape.clockHz = 40e6;
            shape.jitter = 0.05;
            shape.seed = static_cast<uint32_t>(c * 2 + h + 1);
            const int bits = disk.Track(c, h)->Encode(0, cells.data(), kCells);
            tracks[c * 2 + h] = fluxsynth::CellsToFlux(cells.data(), bits, shape);
        }
    return WriteFile(fluxsynth::MakeScp(tracks), file);
}

// A disk of known contents captured under realistic noise: its tracks encoded
// at the geometry's rate and speed, then each turned into flux of its own seed.
bool WriteNoisyCapture(const noisecapture::Geometry& g, int revolutions, const char* file) {
    VDisk disk;
    noisecapture::Build(disk, g);
    const int bits = 60000 * 2 * g.rateKbps / g.rpm;
    std::vector<uint8_t> cells(static_cast<size_t>(bits + 7) / 8);
    fluxsynth::Noise n;
    n.sigma = 0.03;
    n.revolutions = revolutions;
    n.cellSeconds = noisecapture::CellSeconds(g);
    std::map<int, fluxsynth::Flux> tracks;
    for (int c = 0; c < g.cylinders; c++)
        for (int h = 0; h < g.heads; h++) {
            n.seed = noisecapture::TrackSeed(1, c * 2 + h);
            const int len = disk.Track(c, h)->Encode(0, cells.data(), bits);
            tracks[c * 2 + h] = fluxsynth::NoisyFlux(cells.data(), len, n);
        }
    return WriteFile(fluxsynth::MakeScp(tracks, g.heads == 1 ? 1 : 0), file);
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTFILE\n", argv[0]);
        return 22;
    }
    Filepath out;
    out.SetPath(argv[1]);
    if (out.HasExt(".ZEB")) {
        ZEBDisk zeb;
        if (!zeb.Init(ZEB_2HD, 0, 0, 0)) return 14;
        zeb.SetName("ZEBKIT SAMPLE");
        return zeb.Save(out, 1) ? 0 : 14;
    }
    VDisk disk;
    if (out.HasExt(".SCP")) {
        const size_t len = std::strlen(argv[1]);
        auto endsWith = [&](const char* tail) {
            const size_t n = std::strlen(tail);
            return len >= n && strcasecmp(argv[1] + len - n, tail) == 0;
        };
        bool ok;
        if (endsWith(".dd.scp")) {
            ok = WriteNoisyCapture(noisecapture::kBenchDD, 3, argv[1]);
        } else if (endsWith(".2hd.scp")) {
            ok = WriteNoisyCapture(noisecapture::kBench2HD, 2, argv[1]);
        } else {
            BuildPlain(disk, k360K);
            ok = WriteCapture(disk, argv[1]);
        }
        if (ok) return 0;
        std::fprintf(stderr, "%s: cannot write %s\n", argv[0], argv[1]);
        return 14;
    }
    bool built = false;
    for (const Geometry& g : kPlain)
        if (out.HasExt(g.ext)) {
            BuildPlain(disk, g);
            built = true;
            break;
        }
    if (!built) {
        for (const char* e : {".D88", ".D77", ".D68", ".D98", ".NFD", ".FDD"})
            if (out.HasExt(e)) {
                BuildPc98(disk);
                built = true;
            }
    }
    if (!built) {
        std::fprintf(stderr, "%s: unknown sample format %s\n", argv[0], out.GetExt());
        return 22;
    }
    if (!disk.Export(out)) {
        std::fprintf(stderr, "%s: cannot write %s\n", argv[0], argv[1]);
        return 14;
    }
    return 0;
}
