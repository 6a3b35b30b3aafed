#include "fileio/filepath.h"

#include <libgen.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

namespace {

// Appends src to the text in dst (a buffer of n bytes), cutting what does not fit.
void AppendCut(char* dst, size_t n, const char* src) {
    size_t have = strnlen(dst, n - 1);
    size_t add = std::min(std::strlen(src), n - 1 - have);
    std::memcpy(dst + have, src, add);
    dst[have + add] = 0;
}

// Copies src into a dst of n bytes, cutting it when it does not fit.
void CopyCut(char* dst, size_t n, const char* src) {
    dst[0] = 0;
    AppendCut(dst, n, src);
}

}  // namespace

Filepath::Filepath() {
    Clear();
}
Filepath::Filepath(const Filepath& other) : Filepath() {
    SetPath(other.path);
}
Filepath& Filepath::operator=(const Filepath& other) {
    if (this != &other) SetPath(other.path);
    return *this;
}
Filepath::~Filepath() = default;

void Filepath::SetPath(const char* p) {
    std::memset(path, 0, sizeof(path));
    if (p) CopyCut(path, sizeof(path), p);
    Split();
}

void Filepath::Split() {
    drive[0] = dir[0] = fname[0] = ext[0] = shortName[0] = 0;
    if (!path[0]) return;

    // dirname and basename may modify their argument, so each gets its own copy.
    char work[sizeof(path)];
    CopyCut(work, sizeof(work), path);
    CopyCut(dir, sizeof(dir), dirname(work));
    AppendCut(dir, sizeof(dir), "/");

    CopyCut(work, sizeof(work), path);
    CopyCut(fname, sizeof(fname), basename(work));

    if (char* dot = std::strrchr(fname, '.')) {
        CopyCut(ext, sizeof(ext), dot);
        *dot = 0;
    }
    CopyCut(shortName, sizeof(shortName), fname);
    AppendCut(shortName, sizeof(shortName), ext);
}

void Filepath::Make() {
    CopyCut(path, sizeof(path), dir);
    AppendCut(path, sizeof(path), fname);
    AppendCut(path, sizeof(path), ext);
}

void Filepath::Clear() {
    path[0] = drive[0] = dir[0] = fname[0] = ext[0] = shortName[0] = 0;
}

bool Filepath::IsClear() const {
    return !path[0] && !drive[0] && !dir[0] && !fname[0] && !ext[0] && !shortName[0];
}

bool Filepath::HasExt(const char* e) const {
    return e && strcasecmp(ext, e) == 0;
}
