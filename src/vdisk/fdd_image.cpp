#include "vdisk/vdisk.h"

int VDisk::ImportFDD(const Filepath&) { return 0; }
int VDisk::ExportFDD(const Filepath&) { return 0; }
