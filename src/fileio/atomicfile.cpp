// Large-file offsets on 32-bit targets; must precede every system header.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "fileio/atomicfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>

namespace {

// Link chains longer than this are loops (the system's own limit is similar).
constexpr int kMaxLinks = 40;
constexpr int kNameTries = 100;

std::string DirOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// Follows symbolic links from path to the file they name, which need not
// exist yet. False (with *err) on a loop or an unreadable link.
bool ResolveLinks(std::string path, std::string* out, int* err) {
    for (int i = 0; i < kMaxLinks; i++) {
        struct stat st;
        if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
            *out = path;
            return true;
        }
        std::string link(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1, '\0');
        const ssize_t n = readlink(path.c_str(), link.data(), link.size());
        if (n < 0) {
            *err = errno;
            return false;
        }
        link.resize(static_cast<size_t>(n));
        path = (!link.empty() && link[0] == '/') ? link : DirOf(path) + "/" + link;
    }
    *err = ELOOP;
    return false;
}

}  // namespace

AtomicFile::~AtomicFile() {
    Discard();
}

bool AtomicFile::Create(const Filepath& destination) {
    Discard();
    lastError = 0;
    const char* given = destination.GetPath();
    if (!given || !given[0]) {
        lastError = ENOENT;
        return false;
    }
    if (!ResolveLinks(given, &target, &lastError)) return false;

    struct stat st;
    const bool exists = stat(target.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) {
        lastError = EISDIR;
        return false;
    }
    if (exists && !S_ISREG(st.st_mode)) {
        // A device or pipe cannot be replaced by renaming; it takes the bytes itself.
        direct = true;
        return Open(target.c_str(), WriteOnly);
    }
    // A file the user may not write is not replaced behind its back.
    if (exists && access(target.c_str(), W_OK) != 0) {
        lastError = errno;
        return false;
    }

    const std::string dir = DirOf(target);
    const std::string base =
        target.substr(target.rfind('/') == std::string::npos ? 0 : target.rfind('/') + 1);
    // Process, time and a counter make a name no other writer is using; O_EXCL
    // below makes sure of it.
    static std::atomic<unsigned> counter{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    for (int i = 0; i < kNameTries; i++) {
        const unsigned mix = static_cast<unsigned>(getpid()) * 2654435761u ^
                             static_cast<unsigned>(now) ^ (counter++ * 40503u);
        char tag[16];
        std::snprintf(tag, sizeof tag, "%08x", mix);
        std::string name = dir + "/." + base + "." + tag + ".tmp";
        // Created as an ordinary file would be (0666 less the umask); an
        // existing destination's mode is copied on below.
        int f;
        do {
            f = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        } while (f < 0 && errno == EINTR);
        if (f < 0) {
            if (errno == EEXIST) continue;
            lastError = errno;
            return false;
        }
        fd = f;
        pos = 0;
        BufferWrites();
        temp = std::move(name);
        if (exists) {
            // Owner first (only possible for a privileged user), then the mode,
            // which a change of owner may have cleared of its set-id bits.
            if (fchown(fd, st.st_uid, st.st_gid) != 0) {
                // Not ours to change: the file then belongs to the writer.
            }
            if (fchmod(fd, st.st_mode & 07777) != 0) {
                lastError = errno;
                Discard();
                return false;
            }
        }
        return true;
    }
    lastError = EEXIST;
    return false;
}

bool AtomicFile::Commit() {
    if (fd < 0) {
        if (!lastError) lastError = EBADF;
        return false;
    }
    if (!Flush()) {
        Discard();
        return false;
    }
    if (direct) {
        const int r = close(fd);
        fd = -1;
        pos = 0;
        direct = false;
        if (r != 0) lastError = errno;
        return r == 0;
    }
    // Data first, then the name: a crash leaves either the old file or the new one.
    if (fsync(fd) != 0 && errno != EINVAL && errno != EROFS) {
        lastError = errno;
        Discard();
        return false;
    }
    const int r = close(fd);
    fd = -1;
    pos = 0;
    if (r != 0) {
        lastError = errno;
        Discard();
        return false;
    }
    if (rename(temp.c_str(), target.c_str()) != 0) {
        lastError = errno;
        Discard();
        return false;
    }
    temp.clear();
    // The directory entry too; a file system that cannot sync a directory still renamed.
    const int d = open(DirOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (d >= 0) {
        fsync(d);
        close(d);
    }
    return true;
}

void AtomicFile::Discard() {
    DropBuffered();
    Close();
    if (!temp.empty()) {
        unlink(temp.c_str());
        temp.clear();
    }
    direct = false;
}
