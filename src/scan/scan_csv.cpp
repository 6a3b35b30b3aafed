// One CSV row per sector, every field of the sector except its data.
#include <cstdio>

#include "scan/scan_report.h"

std::string ScanCsv(const ScanReport& rep) {
    std::string out =
        "cylinder,head,index,density,mfm,c,h,r,n,length,gap2,gap3,status,flags,idCrc,dataCrc,"
        "idPos,damPos,dataPos,endPos,dataCells,timeDev\n";
    for (const auto& t : rep.tracks) {
        int index = 0;
        for (const auto& s : t.sectors) {
            std::string names;
            for (const char* n : SectorStatusNames(s.status))
                names += names.empty() ? n : std::string(" ") + n;
            char buf[384];
            std::snprintf(buf, sizeof(buf),
                          "%d,%d,%d,%s,%d,%d,%d,%d,%d,%d,%d,%d,%d,%s,%04X,%04X,%d,%d,%d,%d,%d,%d\n",
                          t.cylinder, t.head, index++, DensityName(t.density), s.mfm, s.c, s.h, s.r,
                          s.n, s.length, s.gap2, s.gap3, s.status, names.c_str(), s.idCrc,
                          s.dataCrc, s.idPos, s.damPos, s.dataPos, s.endPos, s.dataCells,
                          s.timeDev);
            out += buf;
        }
    }
    return out;
}
