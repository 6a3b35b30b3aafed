#include "zebdisk/zebdisk.h"

bool ZEBDisk::ConvertRaw() { return false; }
bool ZEBDisk::ConvertEnc() { return false; }
void ZEBDisk::ConvertEncBody() {}
