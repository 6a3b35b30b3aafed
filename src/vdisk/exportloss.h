// What a sector image writer leaves out or cannot record, as warning lines in
// a report: one line per kind of loss, with counts and the first place hit.
// Tracks are numbered t = 2 x cylinder + head; a writer keeps those below its
// limit.
#pragma once

#include <cstdint>
#include <string>

#include "fileio/filepath.h"
#include "fileio/report.h"
#include "vdisk/vdisk.h"

// The path's extension in capitals, as the warnings name the format.
std::string FormatName(const Filepath& path);

// Tracks from keptTracks on that hold sectors; why says what the format keeps,
// e.g. ".HDM keeps 77 cylinders".
void WarnTracksLeftOut(const VDisk& disk, int keptTracks, const std::string& why, Report* report);

// Sectors of the kept tracks whose status bits the format cannot record:
// lost is a mask of SECT_IDCRC | SECT_DATACRC | SECT_NODAM and/or SECT_DELETED.
void WarnStatusLost(const VDisk& disk, int keptTracks, uint8_t lost, const std::string& format,
                    Report* report);

// Sectors of the kept tracks written at a length other than their slot in a
// file without offsets: slot bytes, or 128 << N of each sector when slot is 0.
void WarnSlotLength(const VDisk& disk, int keptTracks, int slot, Report* report);

// A name longer than keep characters, cut in the file of the format named (or,
// with no format, in the disk read).
void WarnNameCut(const std::string& name, int keep, const std::string& format, Report* report);

// "C.H" of a track, as the warnings and reasons print it.
std::string TrackName(int c, int h);
