#include "zebdisk/zebdisk.h"

bool ZEBDisk::ExportHFE(const Filepath&) { return false; }
bool ZEBDisk::ImportHFE(const Filepath&) { return false; }
