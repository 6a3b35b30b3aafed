#include "signal/bitstream.h"

uint32_t BfGetLong(const uchar*, int, int) { return 0; }
int BfFind(const uchar*, int, int, int, const uchar*, int) { return -1; }
