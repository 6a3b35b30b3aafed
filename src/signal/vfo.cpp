#include "signal/vfo.h"

#include "signal/rawscan.h"

void VFO_Init(VFOState* vfo) {
    *vfo = rawscan::VfoStart();
}

void VFO_Update(VFOState* vfo, int interval) {
    rawscan::VfoStep(*vfo, interval);
}
