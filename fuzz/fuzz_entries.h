// Entry points shared by the fuzz targets and the regression replay test: each
// takes an arbitrary byte string, hands it to one reader or decoder of the
// library, and touches everything the call produced so that a wrong length
// shows up as an out-of-bounds access under the sanitizers.
//
// Where an entry needs a parameter (an alignment switch, a disk number, a
// decoder mode) it takes it from the first input byte; the rest is the file.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fileio/filepath.h"
#include "signal/alignraw.h"
#include "signal/posmap.h"
#include "signal/rawconv.h"
#include "track/vsector.h"
#include "track/vtrack.h"
#include "vdisk/vdisk.h"
#include "zebdisk/fluxtrack.h"
#include "zebdisk/zebdisk.h"

namespace zebfuzz {

// A file in a scratch directory named uniquely per call, removed on scope exit.
class TempFile {
public:
    explicit TempFile(const char* ext) {
        static unsigned counter = 0;
        const char* dir = std::getenv("ZEBFUZZ_TMPDIR");
        if (!dir || !*dir) dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        name_ = std::string(dir) + "/zebfuzz-" + std::to_string(getpid()) + "-" +
                std::to_string(counter++) + ext;
        path_.SetPath(name_.c_str());
    }
    TempFile(const char* ext, const uint8_t* data, size_t size) : TempFile(ext) {
        FILE* f = std::fopen(name_.c_str(), "wb");
        if (!f) std::abort();  // the scratch directory itself is broken
        if (size && std::fwrite(data, 1, size, f) != size) std::abort();
        std::fclose(f);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile() { std::remove(name_.c_str()); }

    const Filepath& Path() const { return path_; }

private:
    std::string name_;
    Filepath path_;
};

// Reads every byte a decoded or imported track claims to hold.
inline unsigned TouchTrack(const VTrack* t) {
    unsigned sum = 0;
    if (!t) return sum;
    for (const VSector* s = t->sectors; s; s = s->next) {
        if (s->length > 0 && s->data)
            for (int i = 0; i < s->length; i++) sum += s->data[i];
    }
    if (t->encData && t->encLen > 0)
        for (int i = 0; i < (t->encLen + 7) / 8; i++) sum += t->encData[i];
    return sum;
}

inline unsigned TouchVDisk(const VDisk& v) {
    unsigned sum = 0;
    for (int c = 0; c < VDisk::kMaxCylinders; c++)
        for (int h = 0; h < VDisk::kMaxHeads; h++) sum += TouchTrack(v.Track(c, h));
    return sum;
}

// Reads every data byte of every record a loaded disk holds.
inline unsigned TouchZeb(const ZEBDisk& d) {
    unsigned sum = 0;
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        const int bytes = d.RecordDataSize(slot);
        const int bits = d.GetTrackLen(slot / 2, slot % 2);
        if (bytes <= 0) continue;
        if (bits < 0 || (static_cast<int64_t>(bits) + 7) / 8 > bytes) std::abort();
        const uint8_t* p = d.GetTrackData(slot / 2, slot % 2);
        for (int i = 0; i < bytes; i++) sum += p[i];
    }
    return sum;
}

inline volatile unsigned sink;

// ZEBDisk::Load; bit 0 of the first byte asks for raw alignment.
inline void ZebLoad(const uint8_t* data, size_t size) {
    if (size < 1) return;
    TempFile f(".ZEB", data + 1, size - 1);
    ZEBDisk d;
    if (d.Load(f.Path(), data[0] & 1)) sink = sink + TouchZeb(d);
    d.Cleanup();
}

inline void HfeImport(const uint8_t* data, size_t size) {
    TempFile f(".HFE", data, size);
    ZEBDisk d;
    if (d.ImportHFE(f.Path())) sink = sink + TouchZeb(d);
    d.Cleanup();
}

inline void ImportAs(const char* ext, const uint8_t* data, size_t size, int diskno) {
    TempFile f(ext, data, size);
    VDisk v;
    if (v.Import(f.Path(), diskno)) sink = sink + TouchVDisk(v);
}

// Plain images are known by size alone; the extension only names the family.
inline void PlainImport(const uint8_t* data, size_t size) {
    ImportAs(".IMG", data, size, 1);
}

// D68 family: the first byte picks the extension and the disk number 1..32.
inline void D68Import(const uint8_t* data, size_t size) {
    if (size < 1) return;
    static const char* const kExt[] = {".D88", ".D68", ".D77", ".D98"};
    ImportAs(kExt[(data[0] >> 5) & 3], data + 1, size - 1, 1 + (data[0] & 31));
}

inline void DimImport(const uint8_t* data, size_t size) {
    ImportAs(".DIM", data, size, 1);
}
inline void FdiImport(const uint8_t* data, size_t size) {
    ImportAs(".FDI", data, size, 1);
}
inline void FddImport(const uint8_t* data, size_t size) {
    ImportAs(".FDD", data, size, 1);
}
inline void NfdImport(const uint8_t* data, size_t size) {
    ImportAs(".NFD", data, size, 1);
}
inline void Td0Import(const uint8_t* data, size_t size) {
    ImportAs(".TD0", data, size, 1);
}
inline void ImdImport(const uint8_t* data, size_t size) {
    ImportAs(".IMD", data, size, 1);
}

// Track-level archive: imported as the disk it holds.
inline void MfiImport(const uint8_t* data, size_t size) {
    TempFile f(".MFI", data, size);
    ZEBDisk d;
    if (d.Import(f.Path(), 1)) sink = sink + TouchZeb(d);
    d.Cleanup();
}

// Length in bits of the stream after the first byte: bits 2-4 of that byte
// trim up to seven bits so that lengths off a byte boundary are covered.
inline int StreamBits(const uint8_t* data, size_t size) {
    const size_t bytes = size - 1;
    if (bytes > (1u << 24)) return 0;  // far beyond any track
    return static_cast<int>(bytes * 8) - ((data[0] >> 2) & 7);
}

// VTrack::Decode; bit 0 of the first byte: raw samples, bit 1: MB8877 rules.
inline void TrackDecode(const uint8_t* data, size_t size) {
    if (size < 1) return;
    const int bits = StreamBits(data, size);
    std::vector<uint8_t> buf(data + 1, data + size);
    VTrack t;
    t.Decode(data[0] & 1, buf.data(), bits, (data[0] >> 1) & 1);
    sink = sink + TouchTrack(&t);
}

// Raw2Encode, AlignRaw and Enc2RawPosMulti over one sample stream. Bits 5-6 of
// the first byte shrink the cell buffer so that the output wraps.
inline void SignalRaw(const uint8_t* data, size_t size) {
    if (size < 2) return;
    const int bits = StreamBits(data, size);
    if (bits <= 0) return;
    std::vector<uint8_t> raw(data + 1, data + size);

    const int encCap = std::max(1, (bits / 8 + 64) >> (((data[0] >> 5) & 3) * 2));
    std::vector<uint8_t> enc((static_cast<size_t>(encCap) + 7) / 8);
    const int cells = Raw2Encode(raw.data(), bits, enc.data(), encCap);
    if (cells < 0) std::abort();

    // Cell positions spread over (and a little beyond) the cells found.
    const int count = 1 + data[1] % 24;
    const int spread = cells + 64;
    std::vector<int> pos(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) {
        const uint8_t b = data[1 + static_cast<size_t>(i) * 7 % (size - 1)];
        pos[static_cast<size_t>(i)] =
            static_cast<int>(static_cast<int64_t>(spread) * (b * 131 + i * 977) /
                             (255 * 131 + 23 * 977)) -
            32;
    }
    // An entry placed at sample -1 counts as still unplaced and is placed (and
    // counted) again, so the result may exceed count; it is never negative.
    if (Enc2RawPosMulti(raw.data(), bits, pos.data(), count) < 0) std::abort();

    if (AlignRaw(raw.data(), bits) != bits) std::abort();
}

// Whole conversion: import the input as the format the first byte picks, export
// to every output format and read each output back.
inline void Convert(const uint8_t* data, size_t size) {
    if (size < 1) return;
    static const char* const kIn[] = {".ZEB", ".HFE", ".D88", ".DIM",
                                      ".FDI", ".FDD", ".NFD", ".2D"};
    const char* inExt = kIn[data[0] & 7];
    const int mode = (data[0] >> 3) & 1;
    const int diskno = 1 + ((data[0] >> 4) & 3);

    ZEBDisk d;
    {
        TempFile in(inExt, data + 1, size - 1);
        const bool ok = inExt[1] == 'Z' ? d.Load(in.Path(), 0) : d.Import(in.Path(), diskno);
        if (!ok) {
            d.Cleanup();
            return;
        }
    }
    sink = sink + TouchZeb(d);

    static const char* const kOut[] = {".HFE", ".D88", ".DIM", ".FDI", ".FDD",
                                       ".NFD", ".2DD", ".2HD", ".2D"};
    for (const char* ext : kOut) {
        TempFile out(ext);
        if (!d.Export(out.Path(), mode)) continue;
        ZEBDisk back;
        if (back.Import(out.Path(), 1)) sink = sink + TouchZeb(back);
    }
    // ZEB output in both forms, the raw one last since it converts the disk.
    for (int raw = 0; raw < 2; raw++) {
        if (raw && d.Type() != ZEB_RAW && !d.ConvertRaw()) break;
        if (!raw && d.Type() == ZEB_RAW && !d.ConvertEnc()) continue;
        TempFile out(".ZEB");
        if (!d.Save(out.Path(), 1)) continue;
        ZEBDisk back;
        if (back.Load(out.Path(), raw)) sink = sink + TouchZeb(back);
    }
}

// Reads every byte of the cells a flux import read each track into, and
// decodes the first captured track from them as an export would.
inline void TouchFlux(ZEBDisk& d) {
    sink = sink + TouchZeb(d);
    bool decoded = false;
    for (int slot = 0; slot < ZEBDisk::kSlots; slot++) {
        const CellRevolution& r = d.fluxCells[slot];
        if (r.cells.empty()) continue;  // none read, or a blank track
        if (r.bits < 0 || (static_cast<size_t>(r.bits) + 7) / 8 > r.cells.size()) std::abort();
        for (uint8_t b : r.cells) sink = sink + b;
        if (decoded) continue;
        sink = sink + TouchTrack(d.Analyze(slot / 2, slot % 2, 0).get());
        decoded = true;
    }
}

inline void ScpImport(const uint8_t* data, size_t size) {
    TempFile f(".SCP", data, size);
    ZEBDisk d;
    if (d.Import(f.Path(), 1)) TouchFlux(d);
    d.Cleanup();
}

// A stream set of two files in a folder of its own: the first byte says where
// the input splits between track00.0.raw and track00.1.raw.
inline void KryoFluxImport(const uint8_t* data, size_t size) {
    if (size < 1) return;
    static unsigned counter = 0;
    const char* base = std::getenv("ZEBFUZZ_TMPDIR");
    if (!base || !*base) base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    const std::string dir = std::string(base) + "/zebfuzz-set-" + std::to_string(getpid()) + "-" +
                            std::to_string(counter++);
    if (mkdir(dir.c_str(), 0755) != 0) std::abort();
    const size_t rest = size - 1;
    const size_t split = rest * data[0] / 255;
    const std::string side0 = dir + "/track00.0.raw", side1 = dir + "/track00.1.raw";
    for (int side = 0; side < 2; side++) {
        FILE* f = std::fopen((side ? side1 : side0).c_str(), "wb");
        if (!f) std::abort();
        const uint8_t* from = data + 1 + (side ? split : 0);
        const size_t n = side ? rest - split : split;
        if (n && std::fwrite(from, 1, n, f) != n) std::abort();
        std::fclose(f);
    }
    {
        Filepath p;
        p.SetPath(side0.c_str());
        ZEBDisk d;
        if (d.Import(p, 1)) TouchFlux(d);
        d.Cleanup();
    }
    std::remove(side0.c_str());
    std::remove(side1.c_str());
    rmdir(dir.c_str());
}

// The cell clock and the track it builds over arbitrary flux: the first byte
// picks the revolutions (1 to 4), the cell time and whether each revolution
// is timed longer or shorter than its flux; the rest are 16-bit big-endian
// intervals shared out among the revolutions.
inline void FluxTrack(const uint8_t* data, size_t size) {
    if (size < 3) return;
    const size_t revs = 1 + (data[0] & 3);
    const uint64_t cellTime = static_cast<uint64_t>(8 + (data[0] >> 2 & 31) * 8) << 16;
    std::vector<uint32_t> flux((size - 1) / 2);
    for (size_t i = 0; i < flux.size(); i++)
        flux[i] = (uint32_t{data[1 + 2 * i]} << 8) | data[2 + 2 * i];
    std::vector<FluxRevolution> r(revs);
    const size_t each = flux.size() / revs;
    for (size_t k = 0; k < revs; k++) {
        r[k].intervals = flux.data() + k * each;
        r[k].count = each;
        uint64_t length = 0;
        for (size_t i = 0; i < each; i++) length += r[k].intervals[i];
        r[k].length = data[0] & 0x80 ? length / 2 + 1 : length + 100;
    }
    CellRevolution out;
    VTrack t;
    if (ReadFluxTrack(r.data(), revs, cellTime, &out, &t)) {
        if (out.bits <= 0 || out.cells.size() < static_cast<size_t>(out.bits + 7) / 8) std::abort();
        for (int i = 0; i < (out.bits + 7) / 8; i++)
            sink = sink + out.cells[static_cast<size_t>(i)];
    }
    sink = sink + TouchTrack(&t);
}

struct Entry {
    const char* name;
    void (*run)(const uint8_t*, size_t);
};

// One fuzz target per entry; the regression directories carry the same names.
inline constexpr Entry kEntries[] = {
    {"zeb_load", ZebLoad},
    {"hfe_import", HfeImport},
    {"plain_import", PlainImport},
    {"d68_import", D68Import},
    {"dim_import", DimImport},
    {"fdi_import", FdiImport},
    {"fdd_import", FddImport},
    {"nfd_import", NfdImport},
    {"track_decode", TrackDecode},
    {"signal_raw", SignalRaw},
    {"convert", Convert},
    {"scp_import", ScpImport},
    {"kryoflux_import", KryoFluxImport},
    {"td0_import", Td0Import},
    {"imd_import", ImdImport},
    {"mfi_import", MfiImport},
    {"flux_track", FluxTrack},
};

}  // namespace zebfuzz
