#include "zebdisk/zebdisk.h"

bool ZEBDisk::Import(const Filepath&, int) { return false; }
bool ZEBDisk::Export(const Filepath&, int) { return false; }
std::unique_ptr<VTrack> ZEBDisk::Analyze(int, int, int) { return nullptr; }
