#include "vdisk/vdisk.h"

int VDisk::ImportDIM(const Filepath&) { return 0; }
int VDisk::ExportDIM(const Filepath&) { return 0; }
