#include "track/vtrack.h"

void VTrack::Decode(int, unsigned char*, int, int) { flags = TRK_UNFORMATTED; }
void VTrack::DecodeIn(unsigned char*, int, int (*)[2], int, int) {}
