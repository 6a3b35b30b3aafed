// Maps cell positions of Raw2Encode's output back to sample positions.
#pragma once

#include "signal/bitstream.h"

// Replaces each of the count cell positions in pos by its sample position (-1
// where the scan never reached it); returns the number translated.
int Enc2RawPosMulti(uchar* raw, int rawLen, int* pos, int count);
