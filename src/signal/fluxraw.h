// Flux intervals to a raw track: a pulse 1,1,1,0,0,0,0,0 at every transition,
// eight samples a cell of the measured cell time.
#pragma once

#include <cstddef>
#include <cstdint>

// Samples a revolution of length clock units spans at the given cell time
// (clock units x 65536, see fluxcell.h); 0 when either is 0.
uint64_t FluxRawLength(uint64_t length, uint64_t cellTime);

// Writes the raw track of one revolution into raw (capacity rawCap samples,
// every byte of (rawCap + 7) / 8 written). The intervals are the times from
// the index to the first transition and from each transition to the next;
// transitions past length clock units belong to the next revolution and are
// left out. Returns the samples of the revolution, or -1 when they exceed
// rawCap or the cell time is 0.
int64_t Flux2Raw(const uint32_t* intervals, size_t n, uint64_t length, uint64_t cellTime,
                 uint8_t* raw, int64_t rawCap);
