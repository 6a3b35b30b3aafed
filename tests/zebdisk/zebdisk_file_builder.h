// File helpers shared by the track-level disk tests.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/filepath.h"

namespace zebtest {

using Bytes = std::vector<uint8_t>;

inline Bytes Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

inline void Spit(const std::string& name, const Bytes& data) {
    chmod(name.c_str(), 0644);  // left read-only by an earlier run
    std::ofstream(name, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
}

inline Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

}  // namespace zebtest
