#include "scan/scan_run.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fileio/atomicfile.h"
#include "fileio/fileerror.h"
#include "scan/scan_options.h"
#include "scan/scan_report.h"
#include "zebdisk/zebdisk.h"

namespace {

void Err(const std::string& text) {
    std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

// The map replaces an older one only once it is complete. Empty when written,
// else why not.
std::string WriteFile(const std::string& name, const std::string& text) {
    Filepath path;
    path.SetPath(name.c_str());
    AtomicFile f;
    if (!f.Create(path)) return CannotCreate(path, f.lastError);
    if (text.size() > INT32_MAX || !f.Write(text.data(), static_cast<int>(text.size())) ||
        !f.Commit())
        return CannotWrite(path, f.lastError);
    return {};
}

// The disk's losses as "Warning : " lines and, when it failed, its reason.
std::string ReportLines(const Report& report, bool failed) {
    std::string text;
    for (const std::string& w : report.warnings) text += "Warning : " + w + "\n";
    if (failed && !report.error.empty()) text += "Error : " + report.error + "\n";
    return text;
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
        Err(disk.report.error.empty() ? ReportLines(disk.report, false) +
                                            "Error : Cannot read image file " + opt.image + "\n"
                                      : ReportLines(disk.report, true));
        return 2;
    }
    if (!disk.report.warnings.empty()) Err(ReportLines(disk.report, false));

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

    if (!opt.mapPath.empty()) {
        const std::string why = WriteFile(opt.mapPath, ScanSvg(rep));
        if (!why.empty()) {
            Err("Error : " + why + "\n");
            return 14;
        }
    }
    return 0;
}
