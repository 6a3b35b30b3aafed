// The zebconv command line: banner, options, the run sequence.
#pragma once

#include <cstdint>

#include "fileio/filepath.h"

extern int32_t rawmode;
extern int32_t mb8877;
extern Filepath fpInfile;
extern Filepath fpOutfile;
extern int32_t diskno;

bool Banner(int argc, char* argv[]);
bool ParseArgument(int argc, char* argv[]);
// The whole run; returns the exit status.
int RunConversion(int argc, char* argv[]);
