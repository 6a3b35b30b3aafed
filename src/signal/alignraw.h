// Moves raw pulses that sit off the cell grid one sample toward it.
#pragma once

#include "signal/bitstream.h"

// Aligns the len-sample raw track in place; returns len.
int AlignRaw(uchar* raw, int len);
