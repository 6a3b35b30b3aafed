// What the flux readers share: each track's revolutions are read straight
// into cells by a cell clock at the capture's own resolution (its first
// revolution is also resampled into the raw track a RAW disk keeps), and the
// whole capture then becomes a RAW disk of the rate, speed and type the flux
// itself shows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zebdisk/zebdisk.h"

// One revolution: the time from the index to the first transition, then from
// each transition to the next, in clock units; length is index to index. The
// intervals belong to the reader, which keeps them while the track is added.
struct FluxRevolution {
    const uint32_t* intervals = nullptr;
    size_t count = 0;
    uint64_t length = 0;
    // False when the capture ended before the next index.
    bool whole = true;
};

class FluxCapture {
public:
    // Physical tracks a capture may hold a side: 84 cylinders of an 80-track drive.
    static constexpr int kMaxCylinders = ZEBDisk::kMaxCylinders;

    // Reads the revolutions of one physical track, consecutive and each from
    // its index. False, with the reason in *why, when a revolution is longer
    // than any track record. Calls for different tracks may run at the same time.
    bool AddTrack(int cylinder, int head, const std::vector<FluxRevolution>& revs, double clockHz,
                  std::string* why);
    // Makes the disk from every track added; false when nothing was. Sectors
    // that read bad in every revolution are counted in a warning of the disk's
    // report.
    bool Build(ZEBDisk& disk);

    // True when the track was added without a revolution from index to index.
    bool Partial(int cylinder, int head) const;

private:
    void WarnBad(int step, Report* report) const;

    struct Track {
        bool present = false;
        TrackRecord record;  // record header, then the raw samples
        int samples = 0;
        CellRevolution cells;  // read from the flux
        int sectors = 0;       // in the cells
        int good = 0;          // sectors read without error
        int firstBad = -1;     // R of the first sector read bad
        int idOwn = 0;         // good IDs naming the physical cylinder
        int idHalf = 0;        // good IDs naming half of it (a 40-track disk, single steps)
        int votes[4] = {};     // whole revolutions nearest each nominal length
        bool partial = false;
    };
    Track tracks_[kMaxCylinders][2];
};
