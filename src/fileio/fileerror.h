// Failure reasons for a file, in the words the programs print after "Error : ".
#pragma once

#include <string>

#include "fileio/filepath.h"

// "cannot create <path>: <system's error text>"
std::string CannotCreate(const Filepath& path, int err);
// "cannot write <path>: <system's error text>"
std::string CannotWrite(const Filepath& path, int err);
