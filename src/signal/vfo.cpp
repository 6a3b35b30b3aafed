#include "signal/vfo.h"

#include "signal/rawscan.h"

void VFO_Init(VFOState* vfo) {
    *vfo = VFOState{};
    vfo->gain = 6553;       // about 0.1 in 16.16
    vfo->period = 0x80000;  // 8 samples a cell
    vfo->bias = 45875;      // about 0.7, added before the centres are truncated
    vfo->center2 = 16;
    vfo->center3 = 24;
    vfo->center4 = 32;
}

void VFO_Update(VFOState* vfo, int interval) {
    rawscan::VfoStep(*vfo, interval);
}
