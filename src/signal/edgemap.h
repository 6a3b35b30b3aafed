// The edges one data separator scan of a raw track treated, kept so that cell
// positions of its output map back to samples without scanning the track again.
#pragma once

#include <cstdint>
#include <vector>

#include "signal/bitstream.h"

struct RawEdge {
    int64_t cell;    // the running cell position after the edge
    int64_t sample;  // the edge's sample position, unfolded past a wrap
};

struct RawEdgeMap {
    int first = -1;  // the track's first rising edge; -1 when it has none
    std::vector<RawEdge> edges;
};

// Raw2Encode that also records into map every edge it treats.
int Raw2EncodeMapped(uchar* raw, int rawLen, uchar* enc, int encCap, RawEdgeMap* map);

// Gives pos and returns what Enc2RawPosMulti would for the track map was made from.
int RawEdgePosMulti(const RawEdgeMap& map, int* pos, int count);
