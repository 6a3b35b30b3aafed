#include "zebdisk/properties.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "zebdisk/zebdisk.h"

DiskProperties ReadProperties(const ZEBDisk& disk) {
    DiskProperties p;
    char name[zebhdr::kNameLen + 1] = {};
    p.type = disk.Type();
    p.name = disk.GetName(name);
    p.cylinders = disk.Cylinders();
    p.heads = disk.Heads();
    p.rate = disk.Rate();
    p.rpm = disk.Rpm();
    p.writeProtect = disk.HeaderInt(zebhdr::kWriteProtect) != 0;
    return p;
}

const char* DiskTypeName(int type) {
    switch (type) {
        case ZEB_2D:
            return "2D";
        case ZEB_2DD:
            return "2DD";
        case ZEB_2HD:
            return "2HD";
        case ZEB_RAW:
            return "RAW";
        default:
            return "UNKNOWN";
    }
}

std::string PropertyBlock(const DiskProperties& p) {
    std::string out;
    AppendF(out, "DIsk Type          : %s\n", DiskTypeName(p.type));
    AppendF(out, "Name               : %s\n", p.name.c_str());
    AppendF(out, "Cylinders          : %d\n", p.cylinders);
    AppendF(out, "Heads              : %d\n", p.heads);
    AppendF(out, "Rate               : %d kbps\n", p.rate);
    AppendF(out, "RPM                : %d\n", p.rpm);
    AppendF(out, "Write Protect      : %s\n", p.writeProtect ? "ON" : "OFF");
    return out;
}

void AppendF(std::string& out, const char* fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    const int n = std::vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    if (n > 0 && static_cast<size_t>(n) < sizeof(buf)) {
        out.append(buf, static_cast<size_t>(n));
    } else if (n > 0) {
        std::vector<char> big(static_cast<size_t>(n) + 1);
        std::vsnprintf(big.data(), big.size(), fmt, again);
        out.append(big.data(), static_cast<size_t>(n));
    }
    va_end(again);
}
