#include "driver/driver.h"

int32_t rawmode;
int32_t mb8877;
Filepath fpInfile;
Filepath fpOutfile;
int32_t diskno;

bool Banner(int argc, char*[]) { return argc > 1; }
bool ParseArgument(int, char*[]) { return false; }
int RunConversion(int argc, char* argv[]) {
    if (!Banner(argc, argv)) return 0;
    if (!ParseArgument(argc, argv)) return 22;
    return 2;
}
