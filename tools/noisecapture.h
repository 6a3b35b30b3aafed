// How much of a disk comes back from a noisy flux capture: a sector disk of
// known contents is encoded as the library encodes it, every track captured
// through the noise model of fluxsynth.h, the capture imported as any user's
// would be and exported to a sector image, and each sector compared with its
// source. The tests and benchmarks of the flux readers measure with it.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/filepath.h"
#include "fluxsynth.h"
#include "track/vtrack.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

namespace noisecapture {

// rateKbps is the drive's MFM data rate: a cell lasts 1 / (2 x rate), and an
// FM disk at that rate carries half as many bits.
struct Geometry {
    const char* name;
    int cylinders, heads, sectors, sizeCode;
    bool mfm;
    int rateKbps, rpm;
};

// The disks of the noise table: a PC-98 2HD, a 2D and a 1.44 MB disk.
inline constexpr Geometry kNoiseDisks[3] = {
    {"Pc98_2HD_8x1024", 10, 2, 8, 3, true, 500, 360},
    {"2D_16x256", 10, 2, 16, 1, true, 250, 300},
    {"1440K_18x512", 10, 2, 18, 2, true, 500, 300},
};

// The disks the flux benchmarks time: a single-sided DD disk of 40 cylinders
// and a PC-98 2HD disk of 80.
inline constexpr Geometry kBenchDD{"DD_40x1_16x256", 40, 1, 16, 1, true, 250, 300};
inline constexpr Geometry kBench2HD{"Pc98_2HD_80x2_8x1024", 80, 2, 8, 3, true, 500, 360};

struct Result {
    int sectors = 0;  // in the source
    int good = 0;     // exported without error and equal to the source's bytes
    int twice = 0;    // source sectors the export holds more than once
};

// Contents that vary from sector to sector: fills a decoder could mistake for
// gaps or syncs beside pseudo-random bytes.
inline std::vector<uint8_t> SectorData(int c, int h, int r, int length) {
    std::vector<uint8_t> d(static_cast<size_t>(length));
    auto x = static_cast<uint32_t>(c * 977 + h * 131 + r * 17 + 1);
    for (size_t i = 0; i < d.size(); i++) {
        x = x * 1103515245u + 12345u;
        switch ((c + h + r) % 5) {
            case 0:
                d[i] = 0x00;
                break;
            case 1:
                d[i] = i % 64 < 32 ? 0x4E : 0xA1;
                break;
            default:
                d[i] = static_cast<uint8_t>(x >> 16);
                break;
        }
    }
    return d;
}

inline double CellSeconds(const Geometry& g) {
    return 1.0 / (2000.0 * g.rateKbps);
}

inline void Build(VDisk& v, const Geometry& g) {
    v.Init(g.rateKbps >= 500  ? VDISK_2HD
           : g.cylinders > 42 ? VDISK_2DD
                              : VDISK_2D,
           g.cylinders, g.heads);
    for (int c = 0; c < g.cylinders; c++)
        for (int h = 0; h < g.heads; h++) {
            VTrack* t = v.NewTrack(c, h);
            for (int r = 1; r <= g.sectors; r++) {
                const auto d = SectorData(c, h, r, 128 << g.sizeCode);
                t->AddSector(MakeFormattedSector(g.mfm, c, h, r, g.sizeCode, d.data(),
                                                 static_cast<int>(d.size()), 0));
            }
        }
}

inline Filepath PathOf(const std::string& full) {
    Filepath p;
    p.SetPath(full.c_str());
    return p;
}

// The geometry's disk as a sector image in dir/source.d88 and as the tracks
// the library encodes from it; false when either fails.
inline bool Encode(const Geometry& g, const std::string& dir, VDisk& source, ZEBDisk& encoded) {
    mkdir(dir.c_str(), 0755);  // fails harmlessly once it exists
    Build(source, g);
    const Filepath d88 = PathOf(dir + "/source.d88");
    return source.Export(d88) && encoded.Import(d88, 1);
}

// Where the last sector of the geometry's tracks lies in the encoded cells
// (every track has the same layout): the first cell of its ID field, of its
// gap 2, of its data and of its data CRC, and the cell after that CRC.
struct Place {
    int id = -1, gap2 = -1, data = -1, crc = -1, end = -1;
};
inline Place LastSector(const Geometry& g, const std::string& dir) {
    VDisk source;
    ZEBDisk z;
    Place p;
    if (!Encode(g, dir, source, z)) return p;
    VTrack t;
    t.Decode(0, z.GetTrackData(0, 0), z.GetTrackLen(0, 0), 0);
    const VSector* last = t.sectors;
    for (const VSector* s = t.sectors; s; s = s->next)
        if (s->idPos > last->idPos) last = s;
    if (!last || (last->status & (SECT_IDCRC | SECT_DATACRC | SECT_NODAM))) return p;
    const int cpb = g.mfm ? 16 : 32;  // cells a byte
    p.id = last->idPos;
    p.gap2 = last->idPos + (g.mfm ? 10 : 7) * cpb;  // marks, C H R N and CRC
    p.data = last->dataPos;
    p.crc = last->dataPos + last->dataCells;
    p.end = p.crc + 2 * cpb;
    return p;
}

// One sector of a D88 file as written: the status byte tells the errors that
// the library's own reader leaves out.
struct Sector {
    int c = 0, h = 0, r = 0, n = 0;
    bool fm = false, deleted = false;
    uint8_t status = 0;  // 0x00 good, 0xA0 ID CRC, 0xB0 data CRC, 0xF0 no data mark
    std::vector<uint8_t> data;
};

// The sectors of the first disk of a D88 file, track by track; empty when the
// file cannot be read. Every size and offset is checked against the file.
inline std::vector<Sector> ReadD88(const std::string& file) {
    constexpr size_t kTrackTable = 0x20, kTracks = 164, kHeader = 16;
    constexpr size_t kCount = 4, kDensity = 6, kDeleted = 7, kStatus = 8, kLength = 14;
    std::vector<Sector> out;
    std::vector<uint8_t> b;
    if (std::FILE* f = std::fopen(file.c_str(), "rb")) {
        uint8_t chunk[65536];
        for (size_t got; (got = std::fread(chunk, 1, sizeof chunk, f)) > 0;)
            b.insert(b.end(), chunk, chunk + got);
        std::fclose(f);
    }
    const FieldReader d(b.data(), b.size());
    for (size_t t = 0; t < kTracks; t++) {
        size_t at = d.U32(kTrackTable + 4 * t);
        if (at == 0 || !d.Has(at, kHeader)) continue;
        const unsigned count = d.U16(at + kCount);
        for (unsigned i = 0; i < count && d.Has(at, kHeader); i++) {
            Sector s;
            s.c = d.U8(at), s.h = d.U8(at + 1), s.r = d.U8(at + 2), s.n = d.U8(at + 3);
            s.fm = d.U8(at + kDensity) == 0x40;
            s.deleted = d.U8(at + kDeleted) != 0;
            s.status = d.U8(at + kStatus);
            const size_t length = d.U16(at + kLength);
            if (const uint8_t* p = d.Ptr(at + kHeader, length)) s.data.assign(p, p + length);
            out.push_back(std::move(s));
            at += kHeader + length;
        }
    }
    return out;
}

// How many of the source's sectors the D88 file holds good and equal, and
// how many it holds more than once.
inline Result Compare(const VDisk& source, int cylinders, int heads, const std::string& d88) {
    Result out;
    const std::vector<Sector> got = ReadD88(d88);
    for (int c = 0; c < cylinders; c++)
        for (int h = 0; h < heads; h++)
            for (const VSector* s = source.Track(c, h) ? source.Track(c, h)->sectors : nullptr; s;
                 s = s->next) {
                out.sectors++;
                int copies = 0;
                bool good = false;
                for (const Sector& b : got) {
                    if (b.fm == !!s->mfm || b.c != s->idC || b.h != s->idH || b.r != s->idR ||
                        b.n != s->idN)
                        continue;
                    copies++;
                    good = good ||
                           (b.status == 0 && !b.deleted &&
                            std::equal(s->data, s->data + s->length, b.data.begin(), b.data.end()));
                }
                out.good += good;
                out.twice += copies > 1;
            }
    return out;
}

inline void Write(const std::string& file, const fluxsynth::Bytes& b) {
    if (std::FILE* f = std::fopen(file.c_str(), "wb")) {
        std::fwrite(b.data(), 1, b.size(), f);
        std::fclose(f);
    }
}

inline uint32_t TrackSeed(uint32_t seed, int slot) {
    return seed * 2654435761u + static_cast<uint32_t>(slot) * 40503u + 1;
}

// Captures every track of g, as encoded from source (built here), through the
// noise n, one seed per track drawn from n.seed: an SCP file, or a KryoFlux
// stream set at the device's own clock. Returns the file to import, empty
// when the disk cannot be encoded.
inline std::string WriteCapture(const Geometry& g, const fluxsynth::Noise& n,
                                const std::string& workDir, bool kryoflux, VDisk& source) {
    ZEBDisk encoded;
    if (!Encode(g, workDir, source, encoded)) return {};
    fluxsynth::Noise track = n;
    track.cellSeconds = CellSeconds(g);
    if (kryoflux) track.clockHz = fluxsynth::Shape{}.clockHz;
    std::map<int, fluxsynth::Flux> captured;
    for (int c = 0; c < g.cylinders; c++)
        for (int h = 0; h < g.heads; h++) {
            track.seed = TrackSeed(n.seed, c * 2 + h);
            captured[c * 2 + h] =
                fluxsynth::NoisyFlux(encoded.GetTrackData(c, h), encoded.GetTrackLen(c, h), track);
        }
    if (!kryoflux) {
        Write(workDir + "/capture.scp", fluxsynth::MakeScp(captured, g.heads == 1 ? 1 : 0));
        return workDir + "/capture.scp";
    }
    const std::string set = workDir + "/capture";
    mkdir(set.c_str(), 0755);
    for (const auto& [number, f] : captured)
        Write(fluxsynth::StreamName(set, number), fluxsynth::MakeStream(f));
    return fluxsynth::StreamName(set, 0);
}

// Captures g as WriteCapture does, imports the capture, exports a D88 image
// and compares its sectors with the source's. The files stay in workDir.
inline Result Recover(const Geometry& g, const fluxsynth::Noise& n, const std::string& workDir,
                      bool kryoflux = false) {
    VDisk source;
    const std::string capture = WriteCapture(g, n, workDir, kryoflux, source);
    if (capture.empty()) return {};
    const std::string exported = workDir + "/recovered.d88";
    std::remove(exported.c_str());
    ZEBDisk disk;
    if (disk.Import(PathOf(capture), 1)) disk.Export(PathOf(exported), 0);
    return Compare(source, g.cylinders, g.heads, exported);
}

}  // namespace noisecapture
