// The software data separator: a phase-locked cell clock fed with the distances
// between rising edges of a raw track.
#pragma once

#include <cstdint>

struct VFOState {
    int32_t gain;
    int32_t locked;
    int32_t valid;
    int32_t reserved;
    int32_t lastInterval;
    int32_t cells;
    int32_t totalSamples;
    int32_t totalCells;
    uint64_t history;
    int32_t period;
    int32_t bias;
    int32_t center2;
    int32_t center3;
    int32_t center4;
};

// The start values used by every scan of a track.
void VFO_Init(VFOState* vfo);
// Feeds one interval (samples from one rising edge to the next).
void VFO_Update(VFOState* vfo, int interval);
