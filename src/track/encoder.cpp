#include "track/vtrack.h"

int VTrack::Encode(int, unsigned char*, int len) { return len; }
int VTrack::EncodeMFM(unsigned char*, int cells) { return cells; }
int VTrack::EncodeFM(unsigned char*, int cells) { return cells; }
int VTrack::CalcTotalMFM() { return 0; }
int VTrack::CalcTotalFM() { return 0; }
int VTrack::ShrinkGapMFM(int) { return 0; }
int VTrack::ShrinkGapFM(int) { return 0; }
int VTrack::FillMFM(unsigned char*, unsigned char, int count, int*) { return count * 2; }
int VTrack::GenMFM(unsigned char*, unsigned char*, int count, int*) { return count * 2; }
int VTrack::FillFM(unsigned char*, unsigned char, int count) { return count * 4; }
int VTrack::GenFM(unsigned char*, unsigned char*, int count) { return count * 4; }
int VTrack::GenIAM(unsigned char*, int m) { return m ? 8 : 4; }
int VTrack::GenIDAM(unsigned char*, int m) { return m ? 8 : 4; }
int VTrack::GenDAM(unsigned char*, int, int m) { return m ? 8 : 4; }
