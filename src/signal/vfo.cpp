#include "signal/vfo.h"

void VFO_Init(VFOState* vfo) { *vfo = VFOState{}; }
void VFO_Update(VFOState*, int) {}
