#include "driver/driver.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zebdisk/properties.h"
#include "zebdisk/zebdisk.h"

int32_t rawmode;
int32_t mb8877;
Filepath fpInfile;
Filepath fpOutfile;
int32_t diskno;

namespace {

// Errors and results go to standard error, after whatever is pending on
// standard output so that a shared terminal or log keeps the order.
void ErrorText(const char* text) {
    std::fflush(stdout);
    std::fwrite(text, 1, std::strlen(text), stderr);
    std::fflush(stderr);
}

// What the library reported: one "Warning : " line per kind of loss and, when a
// stage failed, one "Error : " line saying why, all before the Result line.
void ReportAndResult(const Report& report, bool failed, const char* result) {
    std::string text;
    for (const std::string& w : report.warnings) text += "Warning : " + w + "\n";
    if (failed && !report.error.empty()) text += "Error : " + report.error + "\n";
    text += "Result             : ";
    text += result;
    text += "\n";
    ErrorText(text.c_str());
}

void PrintProperties(const ZEBDisk& disk) {
    std::fputs(PropertyBlock(ReadProperties(disk)).c_str(), stdout);
}

// First letter of an option value, upper-cased by clearing bit 5.
int FoldedFirst(const char* s) {
    return static_cast<unsigned char>(s[0]) & 0xDF;
}

}  // namespace

bool Banner(int argc, char* argv[]) {
    std::printf(
        "ZEBKIT version %01d.%01d.%01x(%s, %s)\n"
        "Copyright (C) 2026 ZEBKIT developers\n",
        2, 1, 0, __DATE__, __TIME__);
    std::printf("Floppy image convert utility\n");
    std::printf("\n");
    if (argc > 1) return true;

    std::printf("Usage: %s -i SRCFILE [-n DISKNO] -o DESTFILE [-f FORMAT] [-a ANALYZE]\n",
                argc > 0 && argv && argv[0] ? argv[0] : "zebconv");
    std::printf("\n");
    std::printf(" SRCFILE is source image file path.\n");
    std::printf(" DISKNO is disk number of multi image format, Default is 1.\n");
    std::printf(" DESTFILE is destination image file path.\n");
    std::printf(" FORMAT is data format {encode|raw} when DESTFILE is ZEB. Default is encode.\n");
    std::printf(" ANALYZE is analyze mode {upd765|mb8877}, Default is upd765.\n");
    std::printf("\n");
    return false;
}

bool ParseArgument(int argc, char* argv[]) {
    rawmode = 0;
    mb8877 = 0;
    opterr = 0;
    optind = 1;  // a fresh scan on every call

    const char* src = nullptr;
    const char* dst = nullptr;
    const char* num = nullptr;
    int opt;
    while ((opt = getopt(argc, argv, "i:n:o:f:a:")) != -1) {
        switch (opt) {
            case 'i':
                src = optarg;
                break;
            case 'o':
                dst = optarg;
                break;
            case 'n':
                num = optarg;
                break;
            case 'f':
                // A later -f encode does not undo an earlier -f raw.
                if (FoldedFirst(optarg) == 'R') rawmode = 1;
                break;
            case 'a':
                mb8877 = FoldedFirst(optarg) == 'M' ? 1 : 0;
                break;
            default:
                break;  // unknown options and missing values are ignored
        }
    }

    if (!src) {
        ErrorText("Error : Invalid source image file path\n");
        return false;
    }
    fpInfile.SetPath(src);
    if (!dst) {
        ErrorText("Error : Invalid destination image file path\n");
        return false;
    }
    fpOutfile.SetPath(dst);
    diskno = 1;
    if (num) {
        long n = std::strtol(num, nullptr, 10);
        if (n >= 1 && n <= 32) diskno = static_cast<int32_t>(n);
    }
    return true;
}

int RunConversion(int argc, char* argv[]) {
    if (!Banner(argc, argv)) {
        std::fflush(stdout);
        return 0;
    }
    if (!ParseArgument(argc, argv)) {
        std::fflush(stdout);
        return 22;
    }

    ZEBDisk disk;
    if (fpInfile.HasExt(".ZEB")) {
        if (!disk.Load(fpInfile, 0)) {
            ReportAndResult(disk.report, true, "Load failed");
            return 2;
        }
    } else if (!disk.Import(fpInfile, diskno)) {
        ReportAndResult(disk.report, true, "Import failed");
        return 2;
    }

    std::printf("Input file         : %s\n", fpInfile.GetPath());
    PrintProperties(disk);
    std::printf("\n");

    if (fpOutfile.HasExt(".ZEB")) {
        if (rawmode && disk.Type() != ZEB_RAW) {
            disk.ConvertRaw();
        } else if (!rawmode && disk.Type() == ZEB_RAW) {
            disk.ConvertEnc();
        }
        std::printf("Output file        : %s\n", fpOutfile.GetPath());
        PrintProperties(disk);
        if (!disk.Save(fpOutfile, 1)) {
            ReportAndResult(disk.report, true, "Save failed");
            return 14;
        }
    } else {
        std::printf("Export file        : %s\n", fpOutfile.GetPath());
        std::printf("Analyze mode       : %s\n", mb8877 ? "MB8877" : "uPD765");
        if (!disk.Export(fpOutfile, mb8877)) {
            ReportAndResult(disk.report, true, "Export failed");
            return 14;
        }
    }

    ReportAndResult(disk.report, false, "Success");
    return 0;
}
