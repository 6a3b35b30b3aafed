#include "vdisk/vdisk.h"

int VDisk::GetD68MediaOffset(const Filepath&, int) { return -1; }
int VDisk::ImportD68(const Filepath&, int) { return 0; }
int VDisk::ExportD68(const Filepath&) { return 0; }
