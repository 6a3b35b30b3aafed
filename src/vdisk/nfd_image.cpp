#include "vdisk/vdisk.h"

int VDisk::ImportNFD(const Filepath&) { return 0; }
int VDisk::ExportNFD(const Filepath&) { return 0; }
