// The cell time of a flux capture, measured from the flux itself: the shortest
// clear peak of the interval histogram is two cells, in MFM and in FM alike.
#pragma once

#include <cstddef>
#include <cstdint>

// Fixed-point scale of a cell time: clock units times 65536.
constexpr int kCellTimeShift = 16;

// Cell time of the n intervals (clock units of a clock of clockHz), or 0 when
// no peak stands out between the shortest and longest cells a floppy disk has.
uint64_t FluxCellTime(const uint32_t* intervals, size_t n, double clockHz);
