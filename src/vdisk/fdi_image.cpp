#include "vdisk/vdisk.h"

int VDisk::ImportFDI(const Filepath&) { return 0; }
int VDisk::ExportFDI(const Filepath&) { return 0; }
