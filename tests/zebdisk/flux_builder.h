// Flux captures built from code: sector disks encoded by the library's own
// encoder, their cells turned into transition times with jitter, a speed off
// nominal and damage where asked, then written as SCP files or KryoFlux
// stream sets.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/filepath.h"
#include "track/vtrack.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

namespace fluxtest {

using Bytes = std::vector<uint8_t>;

#ifdef ZEBKIT_TESTDATA_DIR  // test programs keep their files apart
inline std::string Scratch(const std::string& name) {
    static const std::string dir = std::string(ZEBKIT_TESTDATA_DIR) + "/flux";
    mkdir(dir.c_str(), 0755);  // fails harmlessly once it exists
    return dir + "/" + name;
}
#endif

inline Filepath PathOf(const std::string& full) {
    Filepath p;
    p.SetPath(full.c_str());
    return p;
}
inline void Spit(const std::string& name, const Bytes& b) {
    std::ofstream(name, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

// One physical track as the drive saw it: transition and index times in clock
// units from the start of the capture.
struct Flux {
    std::vector<uint64_t> times;
    std::vector<uint64_t> index;  // revolutions + 1 of them
};

struct Shape {
    int revolutions = 3;
    double clockHz = 18432000.0 * 73 / 14 / 2;
    double cellSeconds = 2e-6;  // a 500 kbit/s cell
    double speed = 1.0;         // 1.03: cells 3% longer than nominal
    double jitter = 0.10;       // most a transition moves, in cells
    int damageRev = -1;         // revolution whose cells [damageFrom, damageTo) are spoilt
    int damageFrom = 0, damageTo = 0;
    uint32_t seed = 1;
};

inline Flux CellsToFlux(const uint8_t* cells, int bits, const Shape& s) {
    std::mt19937 rng(s.seed);
    std::uniform_real_distribution<double> jit(-s.jitter, s.jitter);
    std::uniform_real_distribution<double> wild(-1.5, 1.5);
    const double cell = s.cellSeconds * s.speed * s.clockHz;
    // The index falls a third of a cell into the track, between two fluxes.
    const double lead = cell / 3;
    std::vector<double> t;
    for (int r = 0; r < s.revolutions; r++) {
        for (int i = 0; i < bits; i++) {
            if (!((cells[i >> 3] >> (7 - (i & 7))) & 1)) continue;
            double j = jit(rng);
            if (r == s.damageRev && i >= s.damageFrom && i < s.damageTo) j = wild(rng);
            t.push_back(lead + (double(r) * bits + i + 0.5 + j) * cell);
        }
    }
    // A little flux after the last index, as a drive keeps reading.
    std::sort(t.begin(), t.end());
    Flux f;
    for (double v : t) f.times.push_back(static_cast<uint64_t>(std::llround(v)));
    for (int r = 0; r <= s.revolutions; r++)
        f.index.push_back(static_cast<uint64_t>(std::llround(lead + double(r) * bits * cell)));
    f.times.push_back(f.index.back() + static_cast<uint64_t>(3 * cell));
    return f;
}

// Intervals of revolution r: from its index to the first transition, then
// transition to transition, up to the next index.
inline std::vector<uint32_t> RevolutionIntervals(const Flux& f, size_t r) {
    std::vector<uint32_t> out;
    uint64_t last = f.index[r];
    for (uint64_t t : f.times) {
        if (t <= f.index[r] || t > f.index[r + 1]) continue;
        out.push_back(static_cast<uint32_t>(t - last));
        last = t;
    }
    return out;
}

struct ScpOptions {
    uint8_t heads = 0;
    uint8_t resolution = 0;
    bool footer = false;
    bool badChecksum = false;
};

// tracks: SCP track number (cylinder x 2 + head) to its flux. Clock units
// must be those of the resolution (25 ns x (n + 1)).
inline Bytes MakeScp(const std::map<int, Flux>& tracks, const ScpOptions& o = {}) {
    const size_t revs = tracks.empty() ? 1 : tracks.begin()->second.index.size() - 1;
    Bytes b(0x10 + 168 * 4, 0);
    b[0] = 'S', b[1] = 'C', b[2] = 'P';
    b[3] = 0x19;
    b[4] = 0x80;
    b[5] = static_cast<uint8_t>(revs);
    b[6] = static_cast<uint8_t>(tracks.empty() ? 0 : tracks.begin()->first);
    b[7] = static_cast<uint8_t>(tracks.empty() ? 0 : tracks.rbegin()->first);
    b[8] = static_cast<uint8_t>(0x01 | (o.footer ? 0x20 : 0));
    b[9] = 0;
    b[10] = o.heads;
    b[11] = o.resolution;
    for (const auto& [number, f] : tracks) {
        const size_t at = b.size();
        FieldWriter(b.data(), b.size())
            .U32(0x10 + 4 * static_cast<size_t>(number), static_cast<uint32_t>(at));
        b.resize(at + 4 + 12 * revs);
        b[at] = 'T', b[at + 1] = 'R', b[at + 2] = 'K';
        b[at + 3] = static_cast<uint8_t>(number);
        for (size_t r = 0; r < revs; r++) {
            const std::vector<uint32_t> iv = RevolutionIntervals(f, r);
            const size_t data = b.size();
            for (uint32_t v : iv) {
                for (uint32_t k = 0; k < v >> 16; k++) b.push_back(0), b.push_back(0);
                const uint32_t low = std::max<uint32_t>(v & 0xFFFF, 1);
                b.push_back(static_cast<uint8_t>(low >> 8));
                b.push_back(static_cast<uint8_t>(low));
            }
            FieldWriter w(b.data(), b.size());
            const size_t e = at + 4 + 12 * r;
            w.U32(e, static_cast<uint32_t>(f.index[r + 1] - f.index[r]));
            w.U32(e + 4, static_cast<uint32_t>((b.size() - data) / 2));
            w.U32(e + 8, static_cast<uint32_t>(data - at));
        }
    }
    if (o.footer) {
        const char tail[] = "zebkit test capture";
        b.insert(b.end(), tail, tail + sizeof tail);
        b.resize(b.size() + 40, 0);
        b.insert(b.end(), {'F', 'P', 'C', 'S'});
    }
    uint32_t sum = 0;
    for (size_t i = 0x10; i < b.size(); i++) sum += b[i];
    FieldWriter(b.data(), b.size()).U32(12, sum + (o.badChecksum ? 1 : 0));
    return b;
}

struct StreamOptions {
    double sck = 0;      // written in a KF info block when not 0
    bool nops = false;   // Nop1-3 codes sprinkled between fluxes
    bool ending = true;  // stream end and end-of-file blocks
    size_t cutAt = 0;    // when not 0, the stream stops after this many bytes
};

inline void Oob(Bytes& b, uint8_t type, const Bytes& payload) {
    b.push_back(0x0D);
    b.push_back(type);
    b.push_back(static_cast<uint8_t>(payload.size()));
    b.push_back(static_cast<uint8_t>(payload.size() >> 8));
    b.insert(b.end(), payload.begin(), payload.end());
}
inline Bytes Le32(std::initializer_list<uint32_t> v) {
    Bytes b;
    for (uint32_t x : v)
        for (int i = 0; i < 4; i++) b.push_back(static_cast<uint8_t>(x >> (8 * i)));
    return b;
}

// One stream file of a track.
inline Bytes MakeStream(const Flux& f, const StreamOptions& o = {}) {
    Bytes b;
    uint32_t pos = 0;  // bytes outside blocks
    auto put = [&](std::initializer_list<uint8_t> codes) {
        b.insert(b.end(), codes);
        pos += static_cast<uint32_t>(codes.size());
    };
    if (o.sck > 0) {
        char text[96];
        std::snprintf(text, sizeof text, "name=zebkit, sck=%.7f, ick=%.7f", o.sck, o.sck / 8);
        Oob(b, 4, Bytes(text, text + std::strlen(text) + 1));
    }
    uint64_t last = 0;
    size_t nextIndex = 0;
    int k = 0;
    for (uint64_t t : f.times) {
        uint32_t v = static_cast<uint32_t>(t - last);
        const uint32_t first = pos;
        for (uint32_t n = 0; n < v >> 16; n++) put({0x0B});
        const uint32_t low = v & 0xFFFF;
        if (low >= 0x0E && low <= 0xFF) {
            put({static_cast<uint8_t>(low)});
        } else if (low < 0x800) {
            put({static_cast<uint8_t>(low >> 8), static_cast<uint8_t>(low)});
        } else {
            put({0x0C, static_cast<uint8_t>(low >> 8), static_cast<uint8_t>(low)});
        }
        // The index blocks of this flux follow it, as the device sends them.
        while (nextIndex < f.index.size() && f.index[nextIndex] < t) {
            const uint64_t within = f.index[nextIndex] - last;
            Oob(b, 2,
                Le32({first + static_cast<uint32_t>(within >> 16),
                      static_cast<uint32_t>(within & 0xFFFF),
                      static_cast<uint32_t>(f.index[nextIndex] / 8)}));
            nextIndex++;
        }
        ++k;
        if (o.nops && k % 97 == 0) put({0x08}), put({0x09, 0}), put({0x0A, 0, 0});
        if (k % 4096 == 0) Oob(b, 1, Le32({pos, 0}));
        last = t;
    }
    if (o.ending) {
        Oob(b, 3, Le32({pos, 0}));
        b.insert(b.end(), {0x0D, 0x0D, 0x0D, 0x0D});
    }
    if (o.cutAt && o.cutAt < b.size()) b.resize(o.cutAt);
    return b;
}

// A sector disk's tracks as cells, encoded the way the library encodes any
// sector image it imports.
struct Encoded {
    std::vector<uint8_t> cells[ZEBDisk::kSlots];
    int bits[ZEBDisk::kSlots] = {};
};

inline bool Encode(VDisk& v, const std::string& d88, Encoded* e) {
    ZEBDisk z;
    if (!v.Export(PathOf(d88)) || !z.Import(PathOf(d88), 1)) return false;
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        const uint8_t* d = z.GetTrackData(slot / 2, slot % 2);
        const int bits = z.GetTrackLen(slot / 2, slot % 2);
        if (!d || bits <= 0) continue;
        e->bits[slot] = bits;
        e->cells[slot].assign(d, d + (bits + 7) / 8);
    }
    return true;
}

// Where a sector's data lies in a track's cells, to aim damage at it.
inline std::pair<int, int> DataCells(const Encoded& e, int slot, int r) {
    VTrack t;
    t.Decode(0, const_cast<uint8_t*>(e.cells[slot].data()), e.bits[slot], 0);
    for (const VSector* s = t.sectors; s; s = s->next)
        if (s->idR == r) return {s->dataPos, s->dataPos + s->dataCells};
    return {0, 0};
}

inline Bytes SectorData(int c, int h, int r, int len) {
    Bytes d(static_cast<size_t>(len));
    uint32_t x = static_cast<uint32_t>(c * 977 + h * 131 + r * 17 + 1);
    for (auto& b : d) {
        x = x * 1103515245u + 12345u;
        b = static_cast<uint8_t>(x >> 16);
    }
    return d;
}

// count sectors R = 1.. of size code n on track (c, h), MFM or FM.
inline void AddTrack(VDisk& v, int c, int h, int mfm, int count, int n) {
    VTrack* t = v.NewTrack(c, h);
    for (int r = 1; r <= count; r++) {
        const Bytes d = SectorData(c, h, r, 128 << n);
        t->AddSector(MakeFormattedSector(mfm, c, h, r, n, d.data(), static_cast<int>(d.size()), 0));
    }
}

// The first difference in ID, status or data between the sectors of two
// disks over cylinders [0, cyls) and heads [0, heads), or "".
inline std::string SectorDiff(const VDisk& want, const VDisk& got, int cyls, int heads) {
    for (int c = 0; c < cyls; c++) {
        for (int h = 0; h < heads; h++) {
            const VTrack* a = want.Track(c, h);
            const VTrack* b = got.Track(c, h);
            const VSector* x = a ? a->sectors : nullptr;
            const VSector* y = b ? b->sectors : nullptr;
            const std::string where =
                "cylinder " + std::to_string(c) + " head " + std::to_string(h);
            for (; x && y; x = x->next, y = y->next) {
                if (x->idC != y->idC || x->idH != y->idH || x->idR != y->idR || x->idN != y->idN ||
                    x->mfm != y->mfm)
                    return where + ": ID of R " + std::to_string(x->idR);
                if (x->status != y->status)
                    return where + ": status of R " + std::to_string(x->idR) + " is " +
                           std::to_string(y->status);
                if (x->length != y->length || !std::equal(x->data, x->data + x->length, y->data))
                    return where + ": data of R " + std::to_string(x->idR);
            }
            if (x || y) return where + ": sector count";
        }
    }
    return "";
}

}  // namespace fluxtest
