#include "fileio/fileio.h"

Fileio::Fileio() : fd(-1), pos(0) {}
Fileio::~Fileio() { Close(); }
bool Fileio::Open(const char*, OpenMode) { return false; }
bool Fileio::Open(const Filepath& path, OpenMode mode) { return Open(path.GetPath(), mode); }
bool Fileio::Read(void*, int) { return false; }
bool Fileio::Write(const void*, int) { return false; }
bool Fileio::Seek(int64_t, int) { return false; }
int64_t Fileio::GetFileSize() { return 0; }
void Fileio::Close() {}
bool Fileio::Load(const Filepath&, void*, int) { return false; }
bool Fileio::Save(const Filepath&, const void*, int) { return false; }
bool Fileio::ReadLine(char*, int) { return false; }
int Fileio::IsExist(const char*) { return -1; }
int Fileio::ListEntries(const char*, const char*, char (*)[260], int) { return 0; }
