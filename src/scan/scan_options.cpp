#include "scan/scan_options.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>

namespace {

// A whole decimal number in lo..hi, nothing else.
bool ParseInt(const std::string& s, int lo, int hi, int* out) {
    if (s.empty() || s.size() > 9) return false;
    for (char ch : s)
        if (ch < '0' || ch > '9') return false;
    const long v = std::strtol(s.c_str(), nullptr, 10);
    if (v < lo || v > hi) return false;
    *out = static_cast<int>(v);
    return true;
}

// "C" or "C0-C1" with C0 <= C1.
bool ParseTracks(const std::string& s, int* first, int* last) {
    const size_t dash = s.find('-');
    if (dash == std::string::npos) {
        if (!ParseInt(s, 0, 83, first)) return false;
        *last = *first;
        return true;
    }
    return ParseInt(s.substr(0, dash), 0, 83, first) && ParseInt(s.substr(dash + 1), 0, 83, last) &&
           *first <= *last;
}

}  // namespace

ScanParse ParseScanOptions(const std::vector<std::string>& args, ScanOptions* opt,
                           std::string* error) {
    *opt = ScanOptions();
    bool onlyFiles = false;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string a = args[i];
        if (onlyFiles || a.size() < 2 || a[0] != '-') {
            if (!opt->image.empty()) {
                *error = "only one image can be scanned at a time";
                return kScanUsageError;
            }
            opt->image = a;
            continue;
        }
        if (a == "--") {
            onlyFiles = true;
            continue;
        }
        // Split "--name=value" and "-xVALUE".
        std::string value;
        bool hasValue = false;
        if (a.compare(0, 2, "--") == 0) {
            const size_t eq = a.find('=');
            if (eq != std::string::npos) {
                value = a.substr(eq + 1);
                a.resize(eq);
                hasValue = true;
            }
        } else if (a.size() > 2) {
            value = a.substr(2);
            a.resize(2);
            hasValue = true;
        }
        const bool takesValue =
            a == "-n" || a == "-a" || a == "--tracks" || a == "--head" || a == "--map";
        if (takesValue && !hasValue) {
            if (i + 1 >= args.size()) {
                *error = "option " + a + " needs a value";
                return kScanUsageError;
            }
            value = args[++i];
        } else if (!takesValue && hasValue) {
            *error = "option " + a + " takes no value";
            return kScanUsageError;
        }

        if (a == "-h" || a == "--help") {
            opt->help = true;
        } else if (a == "--json") {
            opt->json = true;
        } else if (a == "--csv") {
            opt->csv = true;
        } else if (a == "-n") {
            if (!ParseInt(value, 1, 32, &opt->diskno)) {
                *error = "disk number must be 1..32: " + value;
                return kScanUsageError;
            }
        } else if (a == "-a") {
            if (strcasecmp(value.c_str(), "upd765") == 0) {
                opt->mode = 0;
            } else if (strcasecmp(value.c_str(), "mb8877") == 0) {
                opt->mode = 1;
            } else {
                *error = "analyze mode must be upd765 or mb8877: " + value;
                return kScanUsageError;
            }
        } else if (a == "--tracks") {
            if (!ParseTracks(value, &opt->firstCyl, &opt->lastCyl)) {
                *error = "tracks must be C or C0-C1 within 0..83: " + value;
                return kScanUsageError;
            }
        } else if (a == "--head") {
            if (!ParseInt(value, 0, 1, &opt->head)) {
                *error = "head must be 0 or 1: " + value;
                return kScanUsageError;
            }
        } else if (a == "--map") {
            if (value.empty()) {
                *error = "--map needs a file name";
                return kScanUsageError;
            }
            opt->mapPath = value;
        } else {
            *error = "unknown option " + a;
            return kScanUsageError;
        }
    }
    if (opt->help) return kScanHelp;
    if (opt->json && opt->csv) {
        *error = "--json and --csv cannot be combined";
        return kScanUsageError;
    }
    if (opt->image.empty()) {
        *error = "no image given";
        return kScanUsageError;
    }
    return kScanRun;
}

std::string ScanUsage(const std::string& prog) {
    return "Usage: " + prog +
           " [options] IMAGE\n"
           "\n"
           "Lists the tracks and sectors of a floppy disk image with their errors.\n"
           "\n"
           " -n DISKNO        disk of a multi-disk image, 1..32 (default 1)\n"
           " -a ANALYZE       analyze mode {upd765|mb8877} (default upd765)\n"
           " --tracks C0-C1   scan cylinders C0 to C1 only (or a single C)\n"
           " --head H         scan head H (0 or 1) only\n"
           " --json           print the report as JSON\n"
           " --csv            print one CSV row per sector\n"
           " --map FILE.svg   draw a picture of the disk into FILE.svg\n"
           " -h, --help       print this text\n"
           "\n"
           "Sector flags: i ID CRC error, d data CRC error, m no data mark, x deleted,\n"
           "f FM sector on a mixed track, t timing deviation of a raw track.\n"
           "Exit status: 0 image read, 2 image unreadable, 14 picture not written,\n"
           "22 bad usage.\n";
}
