// The disk properties that zebconv prints for each disk and zebscan reports,
// read from the ZEB header, the text block both programs print them as, and the
// string formatter of the driver's text output.
#pragma once

#include <string>

class ZEBDisk;

struct DiskProperties {
    int type = 0;
    std::string name;
    int cylinders = 0, heads = 0, rate = 0, rpm = 0;
    bool writeProtect = false;
};

DiskProperties ReadProperties(const ZEBDisk& disk);

// "2D", "2DD", "2HD", "RAW" or "UNKNOWN".
const char* DiskTypeName(int type);

// The property block, one "Label : value" line per property.
std::string PropertyBlock(const DiskProperties& p);

// Appends printf-style formatted text to out, however long it is.
void AppendF(std::string& out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
