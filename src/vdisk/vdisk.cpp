#include "vdisk/vdisk.h"

#include <cstring>

VDisk::VDisk() : type(0), cylinders(0), heads(0), name{}, writeProtect(0) {}
VDisk::~VDisk() = default;
void VDisk::Init(int t, int c, int h) {
    std::memset(name, 0, sizeof(name));
    writeProtect = 0;
    type = t;
    cylinders = c;
    heads = h;
}
void VDisk::Cleanup() {
    type = cylinders = heads = 0;
    std::memset(name, 0, sizeof(name));
    writeProtect = 0;
}
VTrack* VDisk::Track(int c, int h) const {
    if (c < 0 || c >= kMaxCylinders || h < 0 || h >= kMaxHeads) return nullptr;
    return tracks[c][h].get();
}
VTrack* VDisk::NewTrack(int c, int h) {
    if (c < 0 || c >= kMaxCylinders || h < 0 || h >= kMaxHeads) return nullptr;
    tracks[c][h] = std::make_unique<VTrack>();
    return tracks[c][h].get();
}
void VDisk::Clear() {
    for (auto& row : tracks)
        for (auto& t : row) t.reset();
    Cleanup();
}
int VDisk::Import(const Filepath&, int) { return 0; }
int VDisk::Export(const Filepath&) { return 0; }
