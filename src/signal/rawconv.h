// Conversion between raw sample streams (8 samples a cell, pulse 11100000 at
// each transition) and encoded cell streams.
#pragma once

#include "signal/bitstream.h"

// Separates rawLen samples into cells (capacity encCap cells); returns the cell count.
int Raw2Encode(uchar* raw, int rawLen, uchar* enc, int encCap);
// Expands encLen cells into samples (capacity rawCap samples); returns encLen * 8.
int Encode2Raw(uchar* enc, int encLen, uchar* raw, int rawCap);
// Re-spaces len samples into newLen samples in place; returns newLen.
int StrechRaw(uchar* raw, int len, int newLen);
