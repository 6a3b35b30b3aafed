#include "vdisk/vdisk.h"

int VDisk::ImportFIX(const Filepath&) { return 0; }
int VDisk::ExportFIX(int, const Filepath&) { return 0; }
const FixFormatEntry VDisk::FixFormat[11] = {};
