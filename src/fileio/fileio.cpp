// Large-file offsets on 32-bit targets; must precede every system header.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "fileio/fileio.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

static_assert(sizeof(off_t) >= 8, "64-bit file offsets are required");

namespace {

// Moves size bytes between p and fd with io (read or write), going on after
// interrupted and short transfers and advancing *pos; false on an error, at the
// end of the file, or for a bad descriptor, size or buffer. *err gets the
// system's error number, 0 when the file simply ended.
template <class Byte, class Io>
bool TransferAll(int fd, Byte* p, int size, int64_t* pos, int* err, Io io) {
    if (fd < 0 || size < 0 || (size > 0 && !p)) {
        *err = EBADF;
        return false;
    }
    size_t left = static_cast<size_t>(size);
    while (left > 0) {
        const ssize_t n = io(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *err = n < 0 ? errno : 0;
            return false;
        }
        p += n;
        left -= static_cast<size_t>(n);
        *pos += n;
    }
    return true;
}

}  // namespace

Fileio::Fileio() : fd(-1), pos(0), lastError(0) {}
Fileio::~Fileio() {
    Close();
}

bool Fileio::Open(const char* fname, OpenMode mode) {
    if (!fname || !fname[0]) {
        Close();
        return false;
    }
    Close();

    int flags;
    switch (mode) {
        case ReadOnly:
            flags = O_RDONLY;
            break;
        case WriteOnly:
            flags = O_WRONLY | O_CREAT | O_TRUNC;
            break;
        case ReadWrite: {
            // Decided by the permission bit itself, not by open(): a privileged
            // user may open any file for writing.
            struct stat st;
            if (stat(fname, &st) != 0) {
                lastError = errno;
                return false;
            }
            if (!(st.st_mode & S_IWUSR)) {
                lastError = EACCES;
                return false;
            }
            flags = O_RDWR;
            break;
        }
        case Append:
            flags = O_WRONLY | O_CREAT | O_APPEND;
            break;
        default:
            return false;
    }
    int f;
    do {
        f = open(fname, flags | O_CLOEXEC, 0666);
    } while (f < 0 && errno == EINTR);
    if (f < 0) {
        lastError = errno;
        return false;
    }
    fd = f;
    pos = 0;
    struct stat st;
    buffered_ = mode == ReadOnly && fstat(f, &st) == 0 && S_ISREG(st.st_mode);
    aheadLen_ = 0;
    return true;
}

bool Fileio::Open(const Filepath& path, OpenMode mode) {
    return Open(path.GetPath(), mode);
}

bool Fileio::Read(void* buffer, int size) {
    if (buffered_) return ReadAhead(static_cast<uint8_t*>(buffer), size);
    return TransferAll(fd, static_cast<uint8_t*>(buffer), size, &pos, &lastError,
                       [](int d, uint8_t* p, size_t n) { return read(d, p, n); });
}

bool Fileio::ReadAt(void* buffer, int size, int64_t offset) const {
    if (fd < 0 || size < 0 || offset < 0 || (size > 0 && !buffer)) return false;
    auto* p = static_cast<uint8_t*>(buffer);
    size_t left = static_cast<size_t>(size);
    while (left > 0) {
        const ssize_t n = pread(fd, p, left, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        left -= static_cast<size_t>(n);
        offset += n;
    }
    return true;
}

bool Fileio::ReadAhead(uint8_t* p, int size) {
    if (fd < 0 || size < 0 || (size > 0 && !p)) {
        lastError = EBADF;
        return false;
    }
    size_t left = static_cast<size_t>(size);
    while (left > 0) {
        if (pos >= aheadAt_ && pos - aheadAt_ < static_cast<int64_t>(aheadLen_)) {
            const size_t off = static_cast<size_t>(pos - aheadAt_);
            const size_t n = std::min(left, aheadLen_ - off);
            std::memcpy(p, ahead_.get() + off, n);
            p += n;
            left -= n;
            pos += static_cast<int64_t>(n);
            continue;
        }
        ssize_t n;
        if (left >= kDirect) {
            n = pread(fd, p, left, static_cast<off_t>(pos));
            if (n > 0) {
                p += n;
                left -= static_cast<size_t>(n);
                pos += n;
                continue;
            }
        } else {
            if (!ahead_) ahead_ = std::make_unique_for_overwrite<uint8_t[]>(kAhead);
            n = pread(fd, ahead_.get(), kAhead, static_cast<off_t>(pos));
            if (n > 0) {
                aheadAt_ = pos;
                aheadLen_ = static_cast<size_t>(n);
                continue;
            }
        }
        if (n < 0 && errno == EINTR) continue;
        lastError = n < 0 ? errno : 0;
        return false;
    }
    return true;
}

bool Fileio::Write(const void* buffer, int size) {
    if (writeBuffered_) return WriteBehind(static_cast<const uint8_t*>(buffer), size);
    return TransferAll(fd, static_cast<const uint8_t*>(buffer), size, &pos, &lastError,
                       [](int d, const uint8_t* p, size_t n) { return write(d, p, n); });
}

bool Fileio::WriteBehind(const uint8_t* p, int size) {
    if (fd < 0 || size < 0 || (size > 0 && !p)) {
        lastError = EBADF;
        return false;
    }
    const size_t n = static_cast<size_t>(size);
    // Large pieces go out at once, after what is held; small ones wait for room.
    if ((n >= kDirect || behindLen_ + n > kAhead) && !Flush()) return false;
    if (n >= kDirect) {
        return TransferAll(fd, p, size, &pos, &lastError,
                           [](int d, const uint8_t* q, size_t m) { return write(d, q, m); });
    }
    if (!behind_) behind_ = std::make_unique_for_overwrite<uint8_t[]>(kAhead);
    std::memcpy(behind_.get() + behindLen_, p, n);
    behindLen_ += n;
    pos += size;
    return true;
}

bool Fileio::Flush() {
    if (behindLen_ == 0) return true;
    // pos already counts the held bytes.
    int64_t at = pos - static_cast<int64_t>(behindLen_);
    const int size = static_cast<int>(behindLen_);
    behindLen_ = 0;
    return TransferAll(fd, behind_.get(), size, &at, &lastError,
                       [](int d, const uint8_t* q, size_t m) { return write(d, q, m); });
}

bool Fileio::Seek(int64_t offset, int relative) {
    int64_t target = offset;
    if (relative && __builtin_add_overflow(pos, offset, &target)) return false;
    if (target == pos) return true;
    if (fd < 0 || target < 0) return false;
    if (!Flush()) return false;
    // Buffered reads say where they read: the position is all there is to move.
    if (buffered_) {
        pos = target;
        return true;
    }
    off_t r = lseek(fd, static_cast<off_t>(target), SEEK_SET);
    if (r < 0) {
        lastError = errno;
        return false;
    }
    pos = r;
    return r == target;
}

int64_t Fileio::GetFileSize() {
    if (fd < 0 || !Flush()) return 0;
    off_t end = lseek(fd, 0, SEEK_END);
    if (lseek(fd, static_cast<off_t>(pos), SEEK_SET) < 0 || end < 0) return 0;
    return end;
}

void Fileio::Close() {
    if (fd >= 0) {
        Flush();
        close(fd);
    }
    fd = -1;
    pos = 0;
    buffered_ = false;
    aheadLen_ = 0;
    writeBuffered_ = false;
    behindLen_ = 0;
}

bool Fileio::Load(const Filepath& path, void* buffer, int size) {
    if (!Open(path, ReadOnly)) return false;
    bool ok = Read(buffer, size);
    Close();
    return ok;
}

bool Fileio::Save(const Filepath& path, const void* buffer, int size) {
    if (!Open(path, WriteOnly)) return false;
    bool ok = Write(buffer, size);
    // A failed close can mean data that never reached the file.
    ok = (close(fd) == 0) && ok;
    fd = -1;
    pos = 0;
    return ok;
}

bool Fileio::ReadLine(char* buffer, int size) {
    if (!buffer || size <= 0) return false;
    int n = 0;
    while (n < size - 1) {
        char c;
        if (!Read(&c, 1)) break;
        buffer[n++] = c;
        if (c == '\n') break;
    }
    buffer[n] = 0;
    return n > 0;
}

int Fileio::IsExist(const char* fname) {
    struct stat st;
    if (!fname || stat(fname, &st) != 0) return -1;
    if (S_ISREG(st.st_mode)) return 1;
    if (S_ISDIR(st.st_mode)) return 0;
    return -1;
}

namespace {
int CompareNames(const void* a, const void* b) {
    return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}
}  // namespace

int Fileio::ListEntries(const char* dir, const char* pattern, char (*names)[260], int capacity) {
    if (!dir || !names || capacity <= 0) return 0;
    DIR* d = opendir(dir);
    if (!d) return 0;
    int count = 0;
    while (count < capacity) {
        const dirent* e = readdir(d);
        if (!e) break;
        const char* n = e->d_name;
        if (!std::strcmp(n, ".") || !std::strcmp(n, "..")) continue;
        if (pattern && pattern[0] && !std::strstr(n, pattern)) continue;
        // A name that does not fit would be listed as a different name.
        if (std::strlen(n) >= sizeof(names[0])) continue;
        std::strcpy(names[count++], n);
    }
    closedir(d);
    std::qsort(names, static_cast<size_t>(count), sizeof(names[0]), CompareNames);
    return count;
}
