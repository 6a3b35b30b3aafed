#include "fileio/fileerror.h"

#include <cstring>

namespace {

std::string Reason(const char* what, const Filepath& path, int err) {
    std::string s = std::string(what) + " " + path.GetPath();
    // 0 means no system error was given (a transfer that moved nothing).
    if (err != 0) s += std::string(": ") + std::strerror(err);
    return s;
}

}  // namespace

std::string CannotCreate(const Filepath& path, int err) {
    return Reason("cannot create", path, err);
}

std::string CannotWrite(const Filepath& path, int err) {
    return Reason("cannot write", path, err);
}
