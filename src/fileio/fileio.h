// A POSIX file descriptor with a tracked 64-bit position.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "fileio/filepath.h"

class Fileio {
public:
    enum OpenMode { ReadOnly = 0, WriteOnly = 1, ReadWrite = 2, Append = 3 };

    Fileio();
    Fileio(const Fileio&) = delete;
    Fileio& operator=(const Fileio&) = delete;
    virtual ~Fileio();

    bool Open(const char* fname, OpenMode mode);
    bool Open(const Filepath& path, OpenMode mode);
    bool Read(void* buffer, int size);
    // size bytes from offset, without moving the position; several threads may
    // read one file at once this way. False on any error or a short read
    // (lastError is left alone).
    bool ReadAt(void* buffer, int size, int64_t offset) const;
    bool Write(const void* buffer, int size);
    bool Seek(int64_t offset, int relative);
    int64_t GetFileSize();
    int64_t GetFilePos() const { return pos; }
    void Close();
    bool IsOpen() const { return fd >= 0; }

    bool Load(const Filepath& path, void* buffer, int size);
    bool Save(const Filepath& path, const void* buffer, int size);
    bool ReadLine(char* buffer, int size);

    // 1 regular file, 0 directory, -1 anything else or missing.
    static int IsExist(const char* fname);
    // Fills names[capacity][260] with the entries of dir whose names contain
    // pattern (all when pattern is null or empty), sorted by strcmp; returns the count.
    static int ListEntries(const char* dir, const char* pattern, char (*names)[260], int capacity);

    int fd;
    int64_t pos;
    // errno of the last failed open, read, write or seek; 0 when a read failed
    // only because the file ended.
    int lastError;

    // Writes the bytes that buffered writes still hold; false (with lastError)
    // when the file refuses them. Close flushes too.
    bool Flush();

protected:
    // From here on, small writes are gathered in a buffer and reach the file
    // in large pieces: at Flush, Close, Seek or GetFileSize, or when the buffer
    // is full. A failed write then shows at that point.
    void BufferWrites() { writeBuffered_ = true; }
    // Forgets the bytes that buffered writes still hold.
    void DropBuffered() { behindLen_ = 0; }

private:
    // A regular file opened for reading is read through a read-ahead buffer:
    // the image readers take it a few bytes at a time (a header, then a
    // sector), and a system call for each piece would cost more than the
    // conversion itself. Pieces of kDirect bytes and more go straight to the
    // caller.
    static constexpr size_t kAhead = 64 * 1024;
    static constexpr size_t kDirect = 16 * 1024;
    bool ReadAhead(uint8_t* p, int size);
    bool WriteBehind(const uint8_t* p, int size);
    bool buffered_ = false;
    bool writeBuffered_ = false;
    std::unique_ptr<uint8_t[]> behind_;
    size_t behindLen_ = 0;
    std::unique_ptr<uint8_t[]> ahead_;
    int64_t aheadAt_ = 0;  // file offset of ahead_[0]
    size_t aheadLen_ = 0;
};
