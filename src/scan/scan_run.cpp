#include "scan/scan_run.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "scan/scan_options.h"
#include "scan/scan_report.h"
#include "zebdisk/zebdisk.h"

namespace {

void Err(const std::string& text) {
    std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

bool WriteFile(const std::string& path, const std::string& text) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace

int RunScan(int argc, char* argv[]) {
    const std::string prog = argc > 0 && argv && argv[0] ? argv[0] : "zebscan";
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);

    ScanOptions opt;
    std::string error;
    switch (ParseScanOptions(args, &opt, &error)) {
        case kScanHelp:
            std::fputs(ScanUsage(prog).c_str(), stdout);
            std::fflush(stdout);
            return 0;
        case kScanUsageError:
            Err(args.empty() ? ScanUsage(prog)
                             : "Error : " + error + " (see " + prog + " --help)\n");
            return 22;
        case kScanRun:
            break;
    }

    ZEBDisk disk;
    if (!LoadScanImage(opt.image, opt.diskno, &disk)) {
        Err("Error : Cannot read image file " + opt.image + "\n");
        return 2;
    }

    // Raw tracks take a noticeable time each; show where we are, but only to a person.
    ScanProgress progress;
    const bool showProgress = disk.Type() == ZEB_RAW && isatty(STDERR_FILENO);
    if (showProgress) {
        progress = [](int done, int total) {
            std::fprintf(stderr, "\rAnalyzing track %d of %d", done + 1, total);
            std::fflush(stderr);
        };
    }
    const ScanReport rep = BuildScanReport(disk, opt, progress);
    if (showProgress) std::fputs("\r                                        \r", stderr);

    const std::string text = opt.json ? ScanJson(rep) : opt.csv ? ScanCsv(rep) : ScanText(rep);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);

    if (!opt.mapPath.empty() && !WriteFile(opt.mapPath, ScanSvg(rep))) {
        Err("Error : Cannot write map file " + opt.mapPath + "\n");
        return 14;
    }
    return 0;
}
