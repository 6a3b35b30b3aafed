// One physical track read straight from its flux: a cell clock runs over the
// continuous flux of the revolutions, and the track becomes one revolution of
// cells that starts in the gap before the first ID field after the index and
// runs on past the next index to there, so that a sector crossing the index
// reads whole and no sector crosses the stream's end. Sectors the first
// revolution leaves bad are taken from the next ones where those read them
// good.
#pragma once

#include <cstddef>
#include <cstdint>

#include "track/vtrack.h"
#include "zebdisk/fluxcapture.h"

// Reads the revolutions, consecutive and each timed from its own index, at a
// cell time of cellTime (clock units x 65536) into out, and decodes the result
// into decoded (uPD765 rules). False when no cells come out.
bool ReadFluxTrack(const FluxRevolution* revs, size_t count, uint64_t cellTime, CellRevolution* out,
                   VTrack* decoded);
