// A POSIX file descriptor with a tracked 64-bit position.
#pragma once

#include <cstdint>

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
};
