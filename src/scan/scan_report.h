// The facts zebscan reports: every track of a disk decoded by ZEBDisk::Analyze,
// with the per-sector states and the disk-wide summary derived from them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "zebdisk/properties.h"
#include "scan/scan_options.h"

class ZEBDisk;

// A raw sector whose length deviates by this many thousandths or more is flagged.
constexpr int kScanTimingLimit = 20;

// What the picture and the listing call a sector.
enum class SectorState { kGood, kDeleted, kCrcError, kNoData };

// Every field of a decoded VSector except its data.
struct SectorFacts {
    int mfm = 0;
    int c = 0, h = 0, r = 0, n = 0;
    int gap2 = 0;
    int length = 0;
    int gap3 = 0;
    int status = 0;
    int idCrc = 0;    // as read, high byte first
    int dataCrc = 0;  // as read, high byte first
    int idPos = 0, damPos = 0, dataPos = 0, endPos = 0;
    int dataCells = 0;
    int timeDev = 0;
};

enum class Density { kUnformatted, kMFM, kFM, kMixed };

struct TrackFacts {
    int cylinder = 0, head = 0;
    int recordBits = 0;  // bit length of the stored record (samples for raw disks)
    // Every field of the decoded VTrack except its cell stream.
    uint32_t flags = 0;
    int iamPos = 0, gap1 = 0, gap4a = 0, gap4b = 0, encLen = 0;
    int mfmCount = 0, fmCount = 0;
    std::vector<SectorFacts> sectors;  // in track order
    // Derived.
    Density density = Density::kUnformatted;
    int usualC = 0, usualH = 0, usualN = 0;  // the most common ID values
    std::vector<int> missing;                // sector numbers not found
};

struct ScanSummary {
    int tracks = 0, formatted = 0, unformatted = 0;
    int mfmTracks = 0, fmTracks = 0, mixedTracks = 0;
    int sectors = 0, mfmSectors = 0, fmSectors = 0;
    int good = 0, bad = 0, missing = 0;
    int idCrc = 0, dataCrc = 0, noData = 0, deleted = 0, timing = 0;
};

struct ScanReport {
    std::string path;
    DiskProperties disk;  // as the header holds them
    int mode = 0;
    std::vector<TrackFacts> tracks;  // cylinder-major, head-minor
    ScanSummary summary;
};

// Reads any image the converter reads: .ZEB by Load, everything else by Import.
bool LoadScanImage(const std::string& path, int diskno, ZEBDisk* disk);

// Called before each track is analysed with its number among the selected tracks.
using ScanProgress = std::function<void(int done, int total)>;

// Analyses the selected tracks of an initialised disk.
ScanReport BuildScanReport(ZEBDisk& disk, const ScanOptions& opt, const ScanProgress& progress);

const char* DensityName(Density d);
SectorState StateOf(const SectorFacts& s);
bool TimingFlagged(const SectorFacts& s);
// Short letters for a sector's flags (see the usage text); FM only on mixed tracks.
std::string SectorFlagLetters(const SectorFacts& s, Density track);
// Names of the track flags that are set, in bit order.
std::vector<const char*> TrackFlagNames(uint32_t flags);
std::vector<const char*> SectorStatusNames(int status);

// The report as text, JSON, CSV and an SVG picture.
std::string ScanText(const ScanReport& rep);
std::string ScanJson(const ScanReport& rep);
std::string ScanCsv(const ScanReport& rep);
std::string ScanSvg(const ScanReport& rep);
