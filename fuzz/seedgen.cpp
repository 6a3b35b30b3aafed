// zebfuzz_seeds: writes the seed corpora of the fuzz targets, small valid files
// of every format made by the library's own writers.
//
//   zebfuzz_seeds OUTDIR
//
// creates OUTDIR/<target>/ for every target and fills it. Inputs of targets
// that take a parameter byte start with it (see fuzz_entries.h).
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fuzz_entries.h"
#include "vdisk/imagecommon.h"

#include "../tools/td0synth.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string outDir;

Bytes Slurp(const Filepath& p) {
    Bytes out;
    FILE* f = std::fopen(p.GetPath(), "rb");
    if (!f) return out;
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
    return out;
}

void Put(const char* target, const std::string& name, const Bytes& data, int prefix = -1) {
    const std::string dir = outDir + "/" + target;
    mkdir(dir.c_str(), 0777);
    FILE* f = std::fopen((dir + "/" + name).c_str(), "wb");
    if (!f) {
        std::perror(dir.c_str());
        std::exit(1);
    }
    if (prefix >= 0) std::fputc(prefix, f);
    std::fwrite(data.data(), 1, data.size(), f);
    std::fclose(f);
}

Bytes Pattern(int seed, int len) {
    Bytes d(static_cast<size_t>(len));
    uint32_t x = static_cast<uint32_t>(seed * 2654435761u + 1);
    for (auto& b : d) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b = static_cast<uint8_t>(x);
    }
    return d;
}

// Track c/h: MFM sectors of size code n, or FM when mfm is 0; one deleted
// sector and one with a data CRC error so the status codes are exercised.
void AddTrack(VDisk& v, int c, int h, int mfm, int count, int n) {
    VTrack* t = v.NewTrack(c, h);
    const int len = 128 << n;
    for (int r = 1; r <= count; r++) {
        const Bytes data = Pattern(c * 64 + h * 32 + r, len);
        const int status = r == 2 ? SECT_DELETED : (r == 3 ? SECT_DATACRC : 0);
        t->AddSector(
            MakeSector(mfm, c, h, r, n, data.data(), len, mfm ? 22 : 11, mfm ? 84 : 27, status));
    }
}

// A two-cylinder disk (the formats keep tables for more; the rest stay empty).
void BuildSmall(VDisk& v, int type) {
    v.Init(type, 2, 2);
    std::snprintf(v.name, sizeof(v.name), "FUZZ SEED");
    for (int c = 0; c < 2; c++)
        for (int h = 0; h < 2; h++)
            AddTrack(v, c, h, !(c == 0 && h == 0), type == VDISK_2HD ? 8 : 5, 2);
}

Bytes ExportVDisk(VDisk& v, const char* ext) {
    zebfuzz::TempFile f(ext);
    if (!v.Export(f.Path())) return {};
    return Slurp(f.Path());
}

// A ZEB file of cylinders x heads blocks written by Save.
Bytes SaveZeb(ZEBDisk& d, int cylinders, int heads) {
    d.SetHeaderInt(zebhdr::kCylinders, cylinders);
    d.SetHeaderInt(zebhdr::kHeads, heads);
    zebfuzz::TempFile f(".ZEB");
    if (!d.Save(f.Path(), 1)) return {};
    return Slurp(f.Path());
}

// The older layouts, built from a version 3 file: version 2 counts the record
// fields in bytes, version 1 keeps the data first and one length in the header.
Bytes Downgrade(const Bytes& v3, int version) {
    Bytes out = v3;
    if (out.size() < zebhdr::kSize) return {};
    FieldReader r(v3.data(), v3.size());
    FieldWriter w(out.data(), out.size());
    const int block = r.I32(zebhdr::kBlockSize);
    w.U8(zebhdr::kVersion, static_cast<uint32_t>(version));
    w.I32(zebhdr::kRate, r.I32(zebhdr::kRate) / 2);
    for (size_t off = zebhdr::kSize; block > 16 && off + static_cast<size_t>(block) <= out.size();
         off += static_cast<size_t>(block)) {
        const int bits = r.I32(off + zebrec::kBitLength);
        if (version == 2) {
            w.I32(off + zebrec::kBitLength, bits / 8);
        } else {
            w.I32(zebhdr::kTrackLenV1, bits / 8);
            // data first, then 16 spare bytes
            std::vector<uint8_t> blk(v3.begin() + static_cast<long>(off) + 16,
                                     v3.begin() + static_cast<long>(off) + block);
            blk.resize(static_cast<size_t>(block), 0);
            std::copy(blk.begin(), blk.end(), out.begin() + static_cast<long>(off));
        }
    }
    return out;
}

void SectorSeeds() {
    VDisk v2hd, v2dd, v2d;
    BuildSmall(v2hd, VDISK_2HD);
    BuildSmall(v2dd, VDISK_2DD);
    BuildSmall(v2d, VDISK_2D);

    int i = 0;
    for (VDisk* v : {&v2hd, &v2dd, &v2d}) {
        const std::string tag = std::to_string(i);
        Put("d68_import", "d88-" + tag, ExportVDisk(*v, ".D88"), 0x00);
        Put("fdd_import", "fdd-" + tag, ExportVDisk(*v, ".FDD"));
        Put("nfd_import", "nfd-" + tag, ExportVDisk(*v, ".NFD"));
        i++;
    }
    // Two disks in one D68 file, read as the second (disk number 2).
    Bytes two = ExportVDisk(v2hd, ".D88");
    const Bytes second = ExportVDisk(v2dd, ".D88");
    two.insert(two.end(), second.begin(), second.end());
    Put("d68_import", "d88-two", two, 0x01);

    // FDI wants every track alike, DIM also at least 77 cylinders.
    VDisk u;
    u.Init(VDISK_2HD, 2, 2);
    for (int c = 0; c < 2; c++)
        for (int h = 0; h < 2; h++) AddTrack(u, c, h, 1, 8, 3);
    Put("fdi_import", "fdi-2hd", ExportVDisk(u, ".FDI"));
    Put("convert", "fdi", ExportVDisk(u, ".FDI"), 4);
    VDisk dim;
    dim.Init(VDISK_2HD, 77, 2);
    for (int c = 0; c < 77; c++)
        for (int h = 0; h < 2; h++) AddTrack(dim, c, h, 1, 8, 3);
    Put("dim_import", "dim-2hd", ExportVDisk(dim, ".DIM"));

    // The smallest plain image (40 cylinders of 9 x 512), whole and cut to the
    // size its table row names.
    VDisk p;
    p.Init(VDISK_2D, 40, 2);
    for (int c = 0; c < 40; c++)
        for (int h = 0; h < 2; h++) AddTrack(p, c, h, 1, 9, 2);
    const Bytes plain = ExportVDisk(p, ".2D");
    Put("plain_import", "2d", plain);
    if (plain.size() > 36840)
        Put("plain_import", "2d-cut", Bytes(plain.begin(), plain.begin() + 36840));

    // The whole conversion starts from the smaller files of every input format.
    Put("convert", "d88", ExportVDisk(v2dd, ".D88"), 2);
    Put("convert", "fdd", ExportVDisk(v2d, ".FDD"), 5 | 8);
    Put("convert", "nfd", ExportVDisk(v2hd, ".NFD"), 6);
}

void TrackSeeds() {
    VDisk v;
    BuildSmall(v, VDISK_2DD);
    const int cells = 100000;
    int k = 0;
    for (int h = 0; h < 2; h++) {
        VTrack* t = v.Track(0, h);
        Bytes enc(cells / 8);
        t->Encode(0, enc.data(), cells);
        Put("track_decode", "cells-" + std::to_string(h), enc, 0x00);
        Put("track_decode", "cells-mb-" + std::to_string(h), enc, 0x02);
        // A short stream cut off mid-byte.
        Put("track_decode", "cells-cut-" + std::to_string(h),
            Bytes(enc.begin(), enc.begin() + 3000), 0x0C);

        Bytes raw(static_cast<size_t>(cells));
        t->Encode(1, raw.data(), cells * 8);
        Put("track_decode", "raw-" + std::to_string(h), raw, 0x01);
        Put("signal_raw", "raw-" + std::to_string(h), Bytes(raw.begin(), raw.begin() + 20000),
            k++ & 0x60);
        Put("signal_raw", "raw-wrap-" + std::to_string(h), Bytes(raw.begin(), raw.begin() + 4000),
            0x64);
    }
    Put("signal_raw", "noise", Pattern(7, 4096), 0x10);
}

void TrackLevelSeeds() {
    VDisk v;
    BuildSmall(v, VDISK_2DD);
    zebfuzz::TempFile d88(".D88");
    if (!v.Export(d88.Path())) return;

    ZEBDisk enc;
    if (!enc.Import(d88.Path(), 1)) return;
    {
        zebfuzz::TempFile hfe(".HFE");
        enc.SetHeaderInt(zebhdr::kCylinders, 2);
        if (enc.ExportHFE(hfe.Path())) {
            Put("hfe_import", "2dd", Slurp(hfe.Path()));
            // Version 3: every opcode at the start of cylinder 0, bits reversed as the
            // file keeps them; side 1 changes the rate.
            Bytes v3 = Slurp(hfe.Path());
            const uint8_t ops[2][8] = {{0xF1, 0xF2, 72, 0xF0, 0xF4, 0xF3, 3, 0x4E},
                                       {0xF1, 0x4E, 0xF2, 60, 0x4E, 0xF0, 0x4E, 0x4E}};
            for (size_t s = 0; s < 2 && v3.size() >= 1024 + 512; s++)
                for (size_t i = 0; i < 8; i++) {
                    uint8_t r = 0;
                    for (int b = 0; b < 8; b++)
                        r = static_cast<uint8_t>(r << 1 | (ops[s][i] >> b & 1));
                    v3[1024 + s * 256 + i] = r;
                }
            for (size_t i = 0; i < 8; i++) v3[i] = static_cast<uint8_t>("HXCHFEV3"[i]);
            Put("hfe_import", "2dd-v3", v3);
            Put("convert", "hfe", Slurp(hfe.Path()), 1);
        }
    }
    const Bytes v3 = SaveZeb(enc, 2, 2);
    Put("zeb_load", "v3", v3, 0);
    Put("zeb_load", "v2", Downgrade(v3, 2), 0);
    Put("zeb_load", "v1", Downgrade(v3, 1), 0);
    Put("convert", "zeb", v3, 0);

    // Raw form: one block is already 100 KB, so one cylinder of one head.
    ZEBDisk raw;
    if (!raw.Import(d88.Path(), 1) || !raw.ConvertRaw()) return;
    const Bytes r3 = SaveZeb(raw, 1, 1);
    Put("zeb_load", "raw-v3", r3, 0);
    Put("zeb_load", "raw-v3-align", r3, 1);
    Put("convert", "zeb-raw", r3, 0);
}

// Flux of a track's cells: a transition at every 1-cell, cell clocks apart,
// over two revolutions (the index at the start of each).
std::vector<uint32_t> CellFlux(const Bytes& cells, int bits, uint32_t cell) {
    std::vector<uint32_t> out;
    uint32_t gap = 0;
    for (int r = 0; r < 2; r++)
        for (int i = 0; i < bits; i++) {
            gap += cell;
            if ((cells[static_cast<size_t>(i) >> 3] >> (7 - (i & 7))) & 1) {
                out.push_back(gap);
                gap = 0;
            }
        }
    return out;
}

void Le32(Bytes& b, uint32_t v) {
    for (int i = 0; i < 4; i++) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

// One short track of MFM sectors as an SCP file (25 ns units) and as a
// KryoFlux stream (its default clock, index blocks, stream end and end of file).
void FluxSeeds() {
    VDisk v;
    BuildSmall(v, VDISK_2D);
    // The first 16,000 cells of the track (its index mark and first sector)
    // make a revolution: small seeds keep the fuzzer fast.
    Bytes cells(100000 / 8);
    v.Track(0, 1)->Encode(0, cells.data(), 100000);
    const int bits = 16000;

    const std::vector<uint32_t> scpFlux = CellFlux(cells, bits, 80);
    Bytes scp(0x10 + 168 * 4, 0);
    FieldWriter h(scp.data(), scp.size());
    h.Bytes(0, "SCP", 3);
    h.U8(5, 2);  // revolutions
    h.U8(8, 1);  // index flag
    h.U32(0x10, static_cast<uint32_t>(scp.size()));
    const size_t trk = scp.size();
    scp.insert(scp.end(), {'T', 'R', 'K', 0});
    scp.resize(trk + 4 + 24, 0);
    size_t k = 0;
    for (int r = 0; r < 2; r++) {
        const size_t from = scp.size();
        uint64_t time = 0;
        uint32_t count = 0;
        for (; k < scpFlux.size() && time + scpFlux[k] <= uint64_t{80} * bits; k++, count++) {
            time += scpFlux[k];
            scp.push_back(static_cast<uint8_t>(scpFlux[k] >> 8));
            scp.push_back(static_cast<uint8_t>(scpFlux[k]));
        }
        FieldWriter e(scp.data() + trk + 4 + 12 * r, 12);
        e.U32(0, 80 * bits);
        e.U32(4, count);
        e.U32(8, static_cast<uint32_t>(from - trk));
    }
    uint32_t sum = 0;
    for (size_t i = 0x10; i < scp.size(); i++) sum += scp[i];
    FieldWriter(scp.data(), scp.size()).U32(12, sum);
    Put("scp_import", "mfm-track", scp);

    // The same flux straight to the cell clock: two revolutions at 80 units a
    // cell (prefix 0x25), then timed shorter than their flux (0xA5).
    Bytes intervals;
    for (uint32_t interval : scpFlux) {
        intervals.push_back(static_cast<uint8_t>(interval >> 8));
        intervals.push_back(static_cast<uint8_t>(interval));
    }
    Put("flux_track", "mfm-two-revolutions", intervals, 0x25);
    Put("flux_track", "mfm-timed-short", intervals, 0xA5);

    const std::vector<uint32_t> kfFlux = CellFlux(cells, bits, 48);
    Bytes kf;
    uint32_t pos = 0;
    uint64_t time = 0;
    int next = 0;
    for (uint32_t f : kfFlux) {
        // The index block follows the flux it falls in.
        const uint32_t at = pos;
        if (f >= 0x0E && f <= 0xFF) {
            kf.push_back(static_cast<uint8_t>(f)), pos += 1;
        } else if (f < 0x800) {
            kf.insert(kf.end(), {static_cast<uint8_t>(f >> 8), static_cast<uint8_t>(f)}), pos += 2;
        } else {
            kf.insert(kf.end(), {0x0C, static_cast<uint8_t>(f >> 8), static_cast<uint8_t>(f)});
            pos += 3;
        }
        if (next < 3 && time + f > uint64_t{48} * bits * static_cast<uint64_t>(next)) {
            kf.insert(kf.end(), {0x0D, 0x02, 12, 0});
            Le32(kf, at);
            Le32(kf,
                 static_cast<uint32_t>(uint64_t{48} * bits * static_cast<uint64_t>(next) - time));
            Le32(kf, 0);
            next++;
        }
        time += f;
    }
    kf.insert(kf.end(), {0x0D, 0x03, 8, 0});
    Le32(kf, pos);
    Le32(kf, 0);
    kf.insert(kf.end(), {0x0D, 0x0D, 0x0D, 0x0D});
    Put("kryoflux_import", "mfm-side0", kf, 0xFF);
    const size_t half = kf.size();
    Bytes both = kf;
    both.insert(both.end(), kf.begin(), kf.end());
    Put("kryoflux_import", "mfm-both-sides", both, static_cast<int>(255 * half / both.size()));
}

// Teledisk files: one small disk with a comment, an FM and an MFM track, every
// data encoding and every sector flag, in each of the three body forms.
void Td0Seeds() {
    using namespace td0synth;
    Image img;
    img.hasComment = true;
    img.comment = std::string("FUZZ SEED\0second line\0", 22);
    Track mfm{0, 0, {}}, fm{0, 1 | td0trk::kHeadFM, {}};
    const int flags[] = {0, td0sec::kCrcError, td0sec::kDeleted, td0sec::kDuplicate, td0sec::kNoId};
    for (int i = 0; i < 6; i++) {
        Bytes data = Pattern(i, 128 << (i % 2));
        if (i % 3 == td0blk::kPattern) data = Bytes(data.size(), static_cast<uint8_t>(0xE5 + i));
        if (i % 3 == td0blk::kRunLength) std::fill(data.begin() + 16, data.end() - 16, 0xF6);
        mfm.sectors.push_back({0, 0, i + 1, i % 2, flags[i % 5], data, i % 3, {}});
    }
    mfm.sectors.push_back({0, 0, 7, 1, td0sec::kNoData, {}, 0, {}});
    mfm.sectors.push_back({0, 0, 8, 1, td0sec::kSkipped, {}, 0, {}});
    for (int i = 0; i < 4; i++)
        fm.sectors.push_back({0, 1, i + 1, 0, 0, Pattern(9 + i, 128), 0, {}});
    img.tracks = {mfm, fm};
    Put("td0_import", "td0-normal", File(img, kNormal));
    Put("td0_import", "td0-lzw", File(img, kLzw));
    Put("td0_import", "td0-lzhuf", File(img, kLzhuf));
}

// ImageDisk files: the small disks (FM and MFM tracks, deleted and CRC-error
// records), and one track of every record kind, maps and a size table.
void ImdSeeds() {
    VDisk v2hd, v2d;
    BuildSmall(v2hd, VDISK_2HD);
    BuildSmall(v2d, VDISK_2D);
    Put("imd_import", "imd-2hd", ExportVDisk(v2hd, ".IMD"));
    Put("imd_import", "imd-2d", ExportVDisk(v2d, ".IMD"));

    VDisk mixed;
    mixed.Init(VDISK_2DD, 1, 2);
    VTrack* t = mixed.Track(0, 1);
    const int status[] = {0, SECT_DELETED, SECT_DATACRC, SECT_DELETED | SECT_DATACRC};
    for (int i = 0; i < 8; i++) {
        const int len = 128 << (i % 3);
        // Odd sectors are filled with one byte, so they are written compressed.
        const Bytes data = i % 2 ? Bytes(static_cast<size_t>(len), 0xE5) : Pattern(i, len);
        t->AddSector(MakeSector(1, 5, 0, i + 1, i % 3, data.data(), len, 22, 84, status[i % 4]));
    }
    t->AddSector(MakeSector(1, 5, 0, 9, 2, nullptr, 0, 22, 84, SECT_NODAM));
    Put("imd_import", "imd-records", ExportVDisk(mixed, ".IMD"));
}

// MFI images: the writer's own of one whole track, and the first 16,000 cells
// of that track (its index mark and first sector) at their angles in every
// form the reader takes: lengths, positions, the older generation's zones of
// alternating orientation, and half steps with a zone without flux.
void MfiSeeds() {
    VDisk v;
    BuildSmall(v, VDISK_2D);
    zebfuzz::TempFile d88(".D88"), mfi(".MFI");
    ZEBDisk z;
    if (!v.Export(d88.Path()) || !z.Import(d88.Path(), 1)) return;
    z.SetHeaderInt(zebhdr::kCylinders, 1);
    z.SetHeaderInt(zebhdr::kHeads, 1);
    if (z.ExportMFI(mfi.Path())) Put("mfi_import", "own-track", Slurp(mfi.Path()));

    constexpr uint64_t kTurn = 200000000;
    const uint8_t* cells = z.GetTrackData(0, 0);
    const uint64_t bits = static_cast<uint64_t>(z.GetTrackLen(0, 0));
    std::vector<uint32_t> at;
    for (uint64_t i = 0; i < 16000 && i < bits; i++)
        if ((cells[i >> 3] >> (7 - (i & 7))) & 1)
            at.push_back(static_cast<uint32_t>((2 * i + 1) * kTurn / (2 * bits)));
    // A file of one head whose tracks (in table order) hold the entries given.
    auto file = [](const char* signature, uint32_t cylinders,
                   const std::vector<std::vector<uint32_t>>& tracks) {
        Bytes head, data;
        Le32(head, cylinders);
        Le32(head, 1);
        head.insert(head.end(), {'5', '2', '5', ' ', 'S', 'S', 'D', 'D'});
        for (const std::vector<uint32_t>& t : tracks) {
            Bytes plain;
            for (uint32_t e : t) Le32(plain, e);
            uLongf n = compressBound(static_cast<uLong>(plain.size()));
            Bytes packed(n);
            compress(packed.data(), &n, plain.data(), static_cast<uLong>(plain.size()));
            Le32(head, static_cast<uint32_t>(32 + 16 * tracks.size() + data.size()));
            Le32(head, static_cast<uint32_t>(n));
            Le32(head, static_cast<uint32_t>(plain.size()));
            Le32(head, 0);
            data.insert(data.end(), packed.begin(), packed.begin() + static_cast<long>(n));
        }
        Bytes b(signature, signature + 16);
        b.insert(b.end(), head.begin(), head.end());
        b.insert(b.end(), data.begin(), data.end());
        return b;
    };
    std::vector<uint32_t> lengths, zones{0};
    for (size_t i = 0; i < at.size(); i++) {
        lengths.push_back(at[i] - (i ? at[i - 1] : 0));
        zones.push_back((i % 2 ? 0 : 1u << 28) | at[i]);
    }
    Put("mfi_import", "lengths", file("MAMEFLOPPYIMAGE", 1, {lengths}));
    Put("mfi_import", "positions", file("MAMEFLOPPYIMAGE", 1, {at}));
    Put("mfi_import", "older-zones", file("MESSFLOPPYIMAGE", 1, {zones}));
    std::vector<uint32_t> unformatted = lengths;
    unformatted.insert(unformatted.end(), {1u << 28 | 1000000, 3u << 28 | 1000});
    Put("mfi_import", "half-steps", file("MAMEFLOPPYIMAGE", 1u << 30 | 1, {unformatted, lengths}));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
        return 2;
    }
    outDir = argv[1];
    mkdir(outDir.c_str(), 0777);
    SectorSeeds();
    TrackSeeds();
    TrackLevelSeeds();
    FluxSeeds();
    Td0Seeds();
    ImdSeeds();
    MfiSeeds();
    return 0;
}
