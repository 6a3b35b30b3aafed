// The sector-level disk: media type, geometry, name, write protection and one
// VTrack per cylinder and head, read from and written to sector image files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "fileio/filepath.h"
#include "fileio/report.h"
#include "track/vtrack.h"

// Media codes of the sector level.
enum : int32_t { VDISK_2D = 1, VDISK_2DD = 3, VDISK_2HD = 7 };

struct FixFormatEntry {
    int32_t size;
    int32_t cylinders;
    int32_t sectors;
    int32_t n;
    int32_t gap3;
    int32_t type;
};

class VDisk {
public:
    static constexpr int kMaxCylinders = 84;
    static constexpr int kMaxHeads = 2;

    VDisk();
    VDisk(const VDisk&) = delete;
    VDisk& operator=(const VDisk&) = delete;
    virtual ~VDisk();  // releases every track and sector

    void Init(int type, int cylinders, int heads);
    void Cleanup();
    int Import(const Filepath& path, int diskno);
    int Export(const Filepath& path);
    // True when Export has a writer for the path's extension.
    static bool CanExport(const Filepath& path);
    // The extensions Export writes, e.g. ".XDF .HDM ... .NFD".
    static std::string ExportExtensions();

    // The track in a slot, or null (also for a slot outside the table).
    VTrack* Track(int c, int h) const;
    // Puts a new empty track into the slot (releasing what was there) and returns it.
    VTrack* NewTrack(int c, int h);
    // Releases every track and clears all fields.
    void Clear();

    int ImportFIX(const Filepath& path);
    int ExportFIX(int fixtype, const Filepath& path);
    int GetD68MediaOffset(const Filepath& path, int diskno);
    int ImportD68(const Filepath& path, int diskno);
    int ExportD68(const Filepath& path);
    int ImportDIM(const Filepath& path);
    int ExportDIM(const Filepath& path);
    int ImportFDI(const Filepath& path);
    int ExportFDI(const Filepath& path);
    int ImportFDD(const Filepath& path);
    int ExportFDD(const Filepath& path);
    int ImportNFD(const Filepath& path);
    int ExportNFD(const Filepath& path);
    int ImportTD0(const Filepath& path);  // Teledisk, read only
    int ImportIMD(const Filepath& path);
    int ExportIMD(const Filepath& path);

    static const FixFormatEntry FixFormat[11];
    // The FixFormat row a plain image extension writes, or -1.
    static int FixRow(const Filepath& path);

    int32_t type;
    int32_t cylinders;
    int32_t heads;
    char name[60];
    int32_t writeProtect;
    // What the last import or export dropped or why it failed; never printed here.
    Report report;
    std::unique_ptr<VTrack> tracks[kMaxCylinders][kMaxHeads];
};
