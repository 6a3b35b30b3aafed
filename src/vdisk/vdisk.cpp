// The sector-level disk: life cycle, track table and the choice of reader or
// writer by file name.
//
// Ownership: the disk owns its tracks through the unique_ptr table, and each
// track owns its sectors, so replacing a slot, Clear() and the destructor free
// everything. Cleanup() resets the disk-wide fields only.
//
// Single-sided disks: Init(type, cylinders, 1) leaves the head-1 slots null.
// Every writer reaches tracks through Track(c, h), which yields null for an
// empty or out-of-range slot, and treats a null track as a track without
// sectors. A format that needs sectors on both heads therefore refuses such a
// disk; formats that can hold empty tracks write them as absent.
#include "vdisk/vdisk.h"

#include <cstring>
#include <string>

#include "fileio/fileio.h"

namespace {

// A plain image is known by its size: say what this one is and which are.
std::string PlainSizeReason(const Filepath& path) {
    Fileio f;
    const int64_t size = f.Open(path, Fileio::ReadOnly) ? f.GetFileSize() : 0;
    std::string sizes;
    for (const FixFormatEntry& e : VDisk::FixFormat) {
        if (e.size < 0) break;
        if (e.size == 0) continue;
        sizes += (sizes.empty() ? "" : ", ") + std::to_string(e.size);
    }
    return "not a plain image size (" + std::to_string(size) +
           " bytes; the sizes that are: " + sizes + ")";
}

bool InTable(int c, int h) {
    return c >= 0 && c < VDisk::kMaxCylinders && h >= 0 && h < VDisk::kMaxHeads;
}

}  // namespace

VDisk::VDisk() : type(0), cylinders(0), heads(0), name{}, writeProtect(0) {}

VDisk::~VDisk() = default;

void VDisk::Init(int t, int c, int h) {
    Clear();
    type = t;
    // The table cannot hold more than its own size.
    cylinders = c < kMaxCylinders ? c : kMaxCylinders;
    heads = h < kMaxHeads ? h : kMaxHeads;
    if (cylinders < 1 || heads < 1) return;
    for (int cyl = 0; cyl < cylinders; cyl++)
        for (int hd = 0; hd < heads; hd++) NewTrack(cyl, hd);
}

void VDisk::Cleanup() {
    type = 0;
    cylinders = 0;
    heads = 0;
    std::memset(name, 0, sizeof(name));
    writeProtect = 0;
}

VTrack* VDisk::Track(int c, int h) const {
    if (!InTable(c, h)) return nullptr;
    return tracks[c][h].get();
}

VTrack* VDisk::NewTrack(int c, int h) {
    if (!InTable(c, h)) return nullptr;
    tracks[c][h] = std::make_unique<VTrack>();
    return tracks[c][h].get();
}

void VDisk::Clear() {
    for (auto& row : tracks)
        for (auto& t : row) t.reset();
    Cleanup();
}

int VDisk::Import(const Filepath& path, int diskno) {
    report.Clear();
    // A plain image is known by its size alone, whatever its extension.
    int r = ImportFIX(path);
    if (r != 0) return r;
    // Why the plain reader failed (a file it could not open or that ended
    // early) stands only when no reader of the extension takes the file.
    std::string plainWhy = std::move(report.error);
    report.Clear();

    if (path.HasExt(".D68") || path.HasExt(".D88") || path.HasExt(".D77") || path.HasExt(".D98"))
        r = ImportD68(path, diskno);
    else if (path.HasExt(".DIM"))
        r = ImportDIM(path);
    else if (path.HasExt(".FDI"))
        r = ImportFDI(path);
    else if (path.HasExt(".FDD"))
        r = ImportFDD(path);
    else if (path.HasExt(".NFD"))
        r = ImportNFD(path);
    else if (path.HasExt(".TD0"))
        r = ImportTD0(path);
    else if (path.HasExt(".IMD"))
        r = ImportIMD(path);
    else if (!plainWhy.empty())
        report.Fail(std::move(plainWhy));
    else if (FixRow(path) >= 0)
        report.Fail(std::string(path.GetPath()) + ": " + PlainSizeReason(path));
    else
        report.Fail(std::string(path.GetPath()) + ": " +
                    (path.GetExt()[0] ? "unknown extension \"" + std::string(path.GetExt()) + "\""
                                      : std::string("no extension")) +
                    "; known: .ZEB .HFE .SCP .RAW .MFI " + ExportExtensions() + " .TD0");
    if (r == 0 && report.error.empty())
        report.Fail(plainWhy.empty() ? std::string(path.GetPath()) + ": not read" : plainWhy);
    return r;
}

namespace {

constexpr const char* kFixExts[] = {".XDF", ".HDM", ".2HD", ".DUP", ".IMG",
                                    ".2HC", ".2HQ", ".2DD", ".2D"};
constexpr const char* kOtherExts[] = {".D68", ".D88", ".D77", ".D98",
                                      ".DIM", ".FDI", ".FDD", ".NFD", ".IMD"};

}  // namespace

bool VDisk::CanExport(const Filepath& path) {
    if (FixRow(path) >= 0) return true;
    for (const char* e : kOtherExts)
        if (path.HasExt(e)) return true;
    return false;
}

std::string VDisk::ExportExtensions() {
    std::string list;
    for (const char* e : kFixExts) list += std::string(list.empty() ? "" : " ") + e;
    for (const char* e : kOtherExts) list += std::string(" ") + e;
    return list;
}

int VDisk::Export(const Filepath& path) {
    const int row = FixRow(path);
    if (row >= 0) return ExportFIX(row, path);

    if (path.HasExt(".D68") || path.HasExt(".D88") || path.HasExt(".D77") || path.HasExt(".D98"))
        return ExportD68(path);
    if (path.HasExt(".DIM")) return ExportDIM(path);
    if (path.HasExt(".FDI")) return ExportFDI(path);
    if (path.HasExt(".FDD")) return ExportFDD(path);
    if (path.HasExt(".NFD")) return ExportNFD(path);
    if (path.HasExt(".IMD")) return ExportIMD(path);
    return report.Fail(std::string(path.GetPath()) + ": unknown extension \"" + path.GetExt() +
                       "\"; known: " + ExportExtensions());
}
