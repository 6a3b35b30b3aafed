#include <cstdlib>

#include "scan/scan_run.h"

int main(int argc, char* argv[]) {
    std::exit(RunScan(argc, argv));
}
