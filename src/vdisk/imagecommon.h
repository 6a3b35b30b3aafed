// Small pieces shared by the sector image readers and writers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fileio/fileio.h"
#include "fileio/filepath.h"
#include "fileio/report.h"
#include "track/vtrack.h"

// True when the file cannot be opened for update (no owner-write bit, or the
// read-write open fails): the image is then treated as write protected.
bool ProbeWriteProtect(const Filepath& path);

// The first steps of a reader: probes write protection into *writeProtect, opens
// the file for reading into *file with its size in *fileSize, and reads
// headerSize bytes at offset into header. False, with the reason in report, when
// the file cannot be opened, ends before the header does, or the read fails.
bool OpenImage(const Filepath& path, Report& report, Fileio* file, int64_t* fileSize,
               bool* writeProtect, uint8_t* header = nullptr, int headerSize = 0,
               int64_t offset = 0);

// Reads size bytes at the file's position; on failure puts the reason in report,
// naming what was being read ("track 3.1", ...). False on failure.
bool ReadImage(const Filepath& path, Report& report, Fileio& file, void* buffer, int size,
               int64_t fileSize, const std::string& what);

// Puts "<path>: <why>" in report as the reason of a refused file; returns 0.
int RefuseImage(const Filepath& path, Report& report, const std::string& why);

// "0x2A": a byte as reasons quote it.
std::string HexByte(int v);

// "track <c>.<h>", as reasons and warnings name a track.
std::string TrackLabel(int c, int h);

// "1 track", "3 tracks": a count and its noun, in the singular for one.
std::string Counted(int n, const std::string& one, const std::string& many);

// Warns of the tracks, among the used ones, that a reader leaves out because
// they lie from track firstNotRead on (t = 2 x cylinder + head); where says why,
// e.g. "after the unused track 40.0".
void WarnTracksNotRead(const std::vector<bool>& used, int firstNotRead, const std::string& where,
                       Report& report);

// Copies at most 59 characters of src (stopping at its NUL or after srcLen
// bytes) into name[60] and terminates it.
void CopyDiskName(char* name, const char* src, int srcLen = 59);

// The writers' estimate of a track's length in bytes of its own density:
// per sector 60 (MFM) or 31 (FM) + length + 2 + gap3, plus 212 or 106.
int32_t EstimateTrackLength(const VTrack* t);

// A new sector with the given ID, density, gaps, status and a copy of the data.
VSector* MakeSector(int mfm, int c, int h, int r, int n, const uint8_t* data, int length, int gap2,
                    int gap3, int status);

// MakeSector with the gaps a controller formats with: gap2 22 (MFM) or 11 (FM),
// gap3 from Gap3MFM / Gap3FM for N (sizes above N = 3 take N = 3's).
VSector* MakeFormattedSector(int mfm, int c, int h, int r, int n, const uint8_t* data, int length,
                             int status);

// Appends a sector's data to out: its length bytes (zeros when it holds no data
// buffer; nothing for a negative length).
void AppendSectorData(std::vector<uint8_t>& out, const VSector* s);
