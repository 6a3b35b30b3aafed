// Sector by sector merge of a track's revolutions: a sector the kept
// revolution reads bad is taken from another revolution that reads it good.
#pragma once

#include <vector>

#include "track/vtrack.h"
#include "zebdisk/zebdisk.h"

// Mends the decoded track t from the other revolutions (cells), decoded under
// the same rules (mode); returns the sectors mended or added.
int MergeRevolutions(VTrack& t, const std::vector<CellRevolution>& others, int mode);
