// Flux captures built from code: sector disks encoded by the library's own
// encoder, their cells turned into transition times with jitter, a speed off
// nominal and damage where asked, then written as SCP files or KryoFlux
// stream sets.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/filepath.h"
#include "fluxsynth.h"
#include "track/vtrack.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/zebdisk.h"

namespace fluxtest {

using namespace fluxsynth;

using Bytes = std::vector<uint8_t>;

#ifdef ZEBKIT_TESTDATA_DIR  // every test names its own files: cases run side by side
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
inline Bytes Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
}
// count sectors R = 1.. of size code n on track (c, h), MFM or FM.
inline void AddTrack(VDisk& v, int c, int h, int mfm, int count, int n) {
    VTrack* t = v.NewTrack(c, h);
    for (int r = 1; r <= count; r++) {
        Bytes d(size_t{128} << n);
        auto x = static_cast<uint32_t>(c * 977 + h * 131 + r * 17 + 1);
        for (auto& b : d) b = static_cast<uint8_t>((x = x * 1103515245u + 12345u) >> 16);
        t->AddSector(MakeFormattedSector(mfm, c, h, r, n, d.data(), static_cast<int>(d.size()), 0));
    }
}

// The flux of v's tracks as the library encodes a sector image (through the
// D88 file scratch), by SCP track number; step 2: a 40-track disk in an
// 80-track drive. Each {revolution, R} of damage spoils that sector on every
// track. Empty when a damaged sector is not found.
inline std::map<int, Flux> Capture(VDisk& v, const std::string& scratch, Shape s,
                                   const std::vector<std::pair<int, int>>& damage = {},
                                   int step = 1) {
    std::map<int, Flux> tracks;
    ZEBDisk z;
    if (!v.Export(PathOf(scratch)) || !z.Import(PathOf(scratch), 1)) return {};
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        const int c = slot / 2, h = slot % 2, bits = z.GetTrackLen(c, h);
        uint8_t* cells = z.GetTrackData(c, h);
        if (!cells || bits <= 0 || !v.Track(c, h) || !v.Track(c, h)->sectors) continue;
        VTrack t;
        t.Decode(0, cells, bits, 0);
        s.damage.clear();
        for (auto [rev, r] : damage)
            for (const VSector* x = t.sectors; x; x = x->next)
                if (x->idR == r) s.damage.push_back({rev, x->dataPos + 64, x->dataPos + 464});
        if (s.damage.size() != damage.size()) return {};
        s.seed = static_cast<uint32_t>(slot + 1);
        tracks[c * step * 2 + h] = CellsToFlux(cells, bits, s);
    }
    return tracks;
}

// Two D88 files hold the same sectors, status and all (their names aside).
inline bool SameD88(const std::string& a, const std::string& b) {
    const Bytes x = Slurp(a), y = Slurp(b);
    return x.size() > 0x11 && std::equal(x.begin() + 0x11, x.end(), y.begin() + 0x11, y.end());
}

}  // namespace fluxtest
