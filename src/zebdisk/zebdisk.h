// The track-level disk: every track as an encoded cell stream or a raw signal
// stream, the ZEB image file, whole-disk conversion, the bridge to sector images
// and HFE.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "fileio/filepath.h"
#include "fileio/report.h"
#include "track/vtrack.h"
#include "zebdisk/trackrecord.h"

// Disk types of the track level.
enum : int32_t { ZEB_2D = 0, ZEB_2DD = 1, ZEB_2HD = 2, ZEB_RAW = 9 };

// Offsets of the 256-byte ZEB file header.
namespace zebhdr {
constexpr int kSignature = 0;
constexpr int kVersion = 3;
constexpr int kName = 4;
constexpr int kNameLen = 60;
constexpr int kType = 68;
constexpr int kCylinders = 72;
constexpr int kHeads = 76;
constexpr int kRate = 80;
constexpr int kRpm = 84;
constexpr int kWriteProtect = 88;
constexpr int kTrackLenV1 = 96;
constexpr int kBlockSize = 100;
constexpr int kSize = 256;
}  // namespace zebhdr

// Offsets of the 16-byte track record header.
namespace zebrec {
constexpr int kCylinder = 0;
constexpr int kHead = 4;
constexpr int kIndexOffset = 8;
constexpr int kBitLength = 12;
constexpr int kData = 16;
}  // namespace zebrec

// One revolution of a captured track as cells, kept beside the revolution a
// RAW disk holds.
struct CellRevolution {
    std::vector<uint8_t> cells;
    int bits = 0;
};

class ZEBDisk {
public:
    static constexpr int kMaxCylinders = 84;
    static constexpr int kMaxHeads = 2;
    static constexpr int kSlots = kMaxCylinders * kMaxHeads;

    ZEBDisk();
    ZEBDisk(const ZEBDisk&) = delete;
    ZEBDisk& operator=(const ZEBDisk&) = delete;
    virtual ~ZEBDisk();

    bool Init(int type, int rate, int rpm, int raw);
    void Cleanup();
    bool Load(const Filepath& path, int align);
    bool Save(const Filepath& path, int full);

    char* GetName(char* buffer) const;
    void SetName(const char* name);
    int GetTrackLen(int cylinder, int head) const;
    uint8_t* GetTrackData(int cylinder, int head) const;
    void UpdateTrack(int cylinder, int head);

    bool ConvertRaw();
    bool ConvertEnc();

    bool Import(const Filepath& path, int diskno);
    bool Export(const Filepath& path, int mode);
    std::unique_ptr<VTrack> Analyze(int cylinder, int head, int mode);

    bool ExportHFE(const Filepath& path);
    bool ImportHFE(const Filepath& path);
    // Flux captures: an SCP file, or the KryoFlux stream set one of whose files
    // the path names. Both give a RAW disk.
    bool ImportSCP(const Filepath& path);
    bool ImportKryoFlux(const Filepath& path);
    // MFI track images: flux positions over one revolution, each track
    // compressed. Import gives a RAW disk; export writes the cells of an
    // encoded one.
    bool ImportMFI(const Filepath& path);
    bool ExportMFI(const Filepath& path);

    // Header fields (32-bit little-endian in place).
    int32_t HeaderInt(int off) const;
    void SetHeaderInt(int off, int32_t v);
    int Type() const { return HeaderInt(zebhdr::kType); }
    int Cylinders() const { return HeaderInt(zebhdr::kCylinders); }
    int Heads() const { return HeaderInt(zebhdr::kHeads); }
    int Rate() const { return HeaderInt(zebhdr::kRate); }
    int Rpm() const { return HeaderInt(zebhdr::kRpm); }
    int BlockSize() const { return HeaderInt(zebhdr::kBlockSize); }

    // Track record fields; slot = cylinder * 2 + head. Records are stored as the
    // file keeps them: a 16-byte little-endian header, then the bit data.
    int32_t RecordInt(int slot, int off) const;
    void SetRecordInt(int slot, int off, int32_t v);
    // Replaces a slot by a zeroed record of size bytes with header (c, h, 0, bitLen).
    void NewRecord(int slot, int size, int c, int h, int bitLen);
    // Bytes of bit data a slot's record holds (0 for an empty slot).
    int RecordDataSize(int slot) const;

    // The body of ConvertEnc, also reached by Export after its own checks.
    void ConvertEncBody();

    int32_t initialized;
    int32_t readOnly;
    uint8_t header[zebhdr::kSize];
    TrackRecord track[kSlots];  // empty record = empty slot
    int32_t updated[kSlots];
    // The cells a captured slot was read into straight from its flux, with
    // every sector any revolution reads good, starting in a gap so that none
    // crosses the stream's end: ConvertEnc, Export and Analyze take them
    // instead of separating the raw track again (with an index offset of 0,
    // which a later load would turn the stream by). Cleared by Cleanup, Init,
    // Load and ConvertRaw, and by the conversion that takes them; Save ignores
    // them. A length
    // without cells stands for a blank track.
    CellRevolution fluxCells[kSlots];
    // What the last load, import, conversion, save or export dropped, or why it
    // failed (the sector-level disk's report is merged in); the programs print it.
    Report report;
    // Threads that convert, encode, decode or align the tracks: 0 (the default)
    // one per core, 1 every track in order on the calling thread. The result is
    // the same either way; Cleanup and Init leave it as it is.
    int32_t workers;
};
