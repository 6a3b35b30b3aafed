#include "fileio/filepath.h"

#include <cstring>
#include <strings.h>

Filepath::Filepath() { Clear(); }
Filepath::Filepath(const Filepath& other) : Filepath() { SetPath(other.path); }
Filepath& Filepath::operator=(const Filepath& other) {
    if (this != &other) SetPath(other.path);
    return *this;
}
Filepath::~Filepath() = default;
void Filepath::SetPath(const char* p) {
    std::memset(path, 0, sizeof(path));
    if (p) std::strncpy(path, p, sizeof(path) - 1);
    Split();
}
void Filepath::Split() {}
void Filepath::Make() {}
void Filepath::Clear() {
    path[0] = drive[0] = dir[0] = fname[0] = ext[0] = shortName[0] = 0;
}
bool Filepath::IsClear() const { return !path[0]; }
bool Filepath::HasExt(const char* e) const { return strcasecmp(ext, e) == 0; }
