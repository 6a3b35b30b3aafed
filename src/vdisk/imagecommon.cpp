#include "vdisk/imagecommon.h"

bool ProbeWriteProtect(const Filepath&) { return false; }
void CopyDiskName(char* name, const char*, int) { name[0] = 0; }
int32_t EstimateTrackLength(const VTrack*) { return 0; }
VSector* MakeSector(int, int, int, int, int, const uint8_t*, int, int, int, int) {
    return new VSector();
}
