#include "track/vtrack.h"

VTrack::VTrack()
    : flags(0), iamPos(0), gap1(0), gap4a(0), gap4b(0), encLen(0), encData(nullptr),
      sectors(nullptr), mfmCount(0), fmCount(0) {}
VTrack::~VTrack() { Cleanup(); }
void VTrack::Cleanup() {}
void VTrack::ClrSector() {}
void VTrack::AddSector(VSector* s) { delete s; }
VSector* VTrack::GetSectorByIndex(int) const { return nullptr; }
VSector* VTrack::GetLasttSector() const { return nullptr; }
int32_t VTrack::GetLength() const { return 0; }
int VTrack::GetEncData(int) const { return 0; }
