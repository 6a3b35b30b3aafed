// The words a failure reason uses for what went wrong with a file: the
// system's error text, or where the file ended. Reasons are one line.
#pragma once

#include <cstdint>
#include <string>

#include "fileio/fileio.h"
#include "fileio/filepath.h"

// Why an open failed: "is a directory", or the system's error text.
std::string OpenFailText(const Filepath& path, const Fileio& file);

// Why a read of size bytes from offset failed in a file of fileSize bytes: the
// system's error text, "empty file", or the offset at which the file ends.
std::string ReadFailText(const Fileio& file, int64_t offset, int64_t size, int64_t fileSize);

// "<path>: <why>", the form every reason takes.
std::string FileReason(const Filepath& path, const std::string& why);
