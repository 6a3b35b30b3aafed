#include "zebdisk/zebdisk.h"
bool ZEBDisk::ImportSCP(const Filepath&) {
    return false;
}
