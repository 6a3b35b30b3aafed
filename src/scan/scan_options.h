// The zebscan command line.
#pragma once

#include <string>
#include <vector>

struct ScanOptions {
    std::string image;
    int diskno = 1;    // 1..32, the disk of a multi-disk file
    int mode = 0;      // 0 uPD765 rules, 1 MB8877 rules
    int firstCyl = 0;  // cylinders firstCyl..lastCyl are scanned
    int lastCyl = 83;
    int head = -1;  // -1 both heads
    bool json = false;
    bool csv = false;
    std::string mapPath;  // empty: no picture
    bool help = false;
};

enum ScanParse { kScanRun, kScanHelp, kScanUsageError };

// Parses argv[1..argc-1]; on kScanUsageError, *error holds the reason.
ScanParse ParseScanOptions(const std::vector<std::string>& args, ScanOptions* opt,
                           std::string* error);

// The usage text, with prog as the program name.
std::string ScanUsage(const std::string& prog);
