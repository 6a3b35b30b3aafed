// Runs the built tools and reads and writes the files they work on.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "fileio/filepath.h"

namespace drivertest {

inline std::string Slurp(const std::string& name) {
    std::ifstream f(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

inline void Spit(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

inline Filepath PathOf(const std::string& name) {
    Filepath p;
    p.SetPath(name.c_str());
    return p;
}

struct ToolRun {
    int status = -1;
    std::string out, err;
};

// tool is ZEBCONV_PATH or ZEBSCAN_PATH: a command prefix, an emulator in front
// of the program in a cross build.
inline ToolRun RunTool(const std::string& tool, const std::string& args, const std::string& tag) {
    const std::string out = tag + ".stdout", err = tag + ".stderr";
    const int rc = std::system((tool + " " + args + " >" + out + " 2>" + err).c_str());
    ToolRun r;
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    r.out = Slurp(out), r.err = Slurp(err);
    return r;
}

}  // namespace drivertest
