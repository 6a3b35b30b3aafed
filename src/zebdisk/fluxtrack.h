// One physical track read straight from its flux: a cell clock runs over the
// continuous flux of the revolutions, and the track becomes one revolution of
// cells that starts at the index but is joined in the gap before the first ID
// field after it, so that a sector crossing the index reads whole. Sectors the
// first revolution leaves bad are taken from the next ones where those read
// them good, and combined transition by transition where none does.
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
