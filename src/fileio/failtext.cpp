#include "fileio/failtext.h"

#include <cstring>

std::string OpenFailText(const Filepath& path, const Fileio& file) {
    if (Fileio::IsExist(path.GetPath()) == 0) return "is a directory";
    return file.lastError ? std::strerror(file.lastError) : "cannot be opened";
}

std::string ReadFailText(const Fileio& file, int64_t offset, int64_t size, int64_t fileSize) {
    if (file.lastError) return std::strerror(file.lastError);
    if (fileSize == 0) return "empty file";
    return "file ends early at offset " + std::to_string(fileSize) + " (" + std::to_string(size) +
           " bytes wanted from offset " + std::to_string(offset) + ")";
}

std::string FileReason(const Filepath& path, const std::string& why) {
    return std::string(path.GetPath()) + ": " + why;
}
