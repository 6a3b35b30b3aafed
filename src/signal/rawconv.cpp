#include "signal/rawconv.h"

int Raw2Encode(uchar*, int rawLen, uchar*, int) { return rawLen / 8; }
int Encode2Raw(uchar*, int encLen, uchar*, int) { return encLen * 8; }
int StrechRaw(uchar*, int, int newLen) { return newLen; }
