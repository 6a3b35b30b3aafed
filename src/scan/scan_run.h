// The zebscan run: options, reading the image, the report and the picture.
#pragma once

// Returns the exit status: 0 image read, 2 image unreadable, 14 picture not
// written, 22 bad usage.
int RunScan(int argc, char* argv[]);
