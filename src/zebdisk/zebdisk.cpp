#include "zebdisk/zebdisk.h"

#include <cstring>

ZEBDisk::ZEBDisk() : initialized(0), readOnly(0), header{}, updated{} {}
ZEBDisk::~ZEBDisk() = default;
bool ZEBDisk::Init(int, int, int, int) { return false; }
void ZEBDisk::Cleanup() {}
bool ZEBDisk::Load(const Filepath&, int) { return false; }
bool ZEBDisk::Save(const Filepath&, int) { return false; }
char* ZEBDisk::GetName(char* buffer) const {
    buffer[0] = 0;
    return buffer;
}
void ZEBDisk::SetName(const char*) {}
int ZEBDisk::GetTrackLen(int, int) const { return 0; }
uint8_t* ZEBDisk::GetTrackData(int, int) const { return nullptr; }
void ZEBDisk::UpdateTrack(int, int) {}
int32_t ZEBDisk::HeaderInt(int) const { return 0; }
void ZEBDisk::SetHeaderInt(int, int32_t) {}
int32_t ZEBDisk::RecordInt(int, int) const { return 0; }
void ZEBDisk::SetRecordInt(int, int, int32_t) {}
void ZEBDisk::NewRecord(int, int, int, int, int) {}
int ZEBDisk::RecordDataSize(int) const { return 0; }
