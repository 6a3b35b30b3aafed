#include "vdisk/imagecommon.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "fileio/failtext.h"
#include "fileio/fileio.h"

bool ProbeWriteProtect(const Filepath& path) {
    // An update-mode open needs the owner-write bit as well as a read-write
    // open, so it also reports protection when running as root.
    Fileio f;
    const bool writable = f.Open(path, Fileio::ReadWrite);
    f.Close();
    return !writable;
}

bool OpenImage(const Filepath& path, Report& report, Fileio* file, int64_t* fileSize,
               bool* writeProtect, uint8_t* header, int headerSize, int64_t offset) {
    *writeProtect = ProbeWriteProtect(path);
    if (!file->Open(path, Fileio::ReadOnly))
        return report.Fail(FileReason(path, OpenFailText(path, *file)));
    *fileSize = file->GetFileSize();
    if (Fileio::IsExist(path.GetPath()) == 0)
        return report.Fail(FileReason(path, "is a directory"));
    if (*fileSize == 0 && headerSize > 0) return report.Fail(FileReason(path, "empty file"));
    if (*fileSize - offset < headerSize) {
        file->lastError = 0;
        return report.Fail(
            FileReason(path, "header: " + ReadFailText(*file, offset, headerSize, *fileSize)));
    }
    if (!file->Seek(offset, 0))
        return report.Fail(
            FileReason(path, "header: " + ReadFailText(*file, offset, headerSize, *fileSize)));
    return ReadImage(path, report, *file, header, headerSize, *fileSize, "header");
}

bool ReadImage(const Filepath& path, Report& report, Fileio& file, void* buffer, int size,
               int64_t fileSize, const std::string& what) {
    const int64_t at = file.GetFilePos();
    if (file.Read(buffer, size)) return true;
    if (fileSize == 0 && file.lastError == 0) return report.Fail(FileReason(path, "empty file"));
    return report.Fail(FileReason(path, what + ": " + ReadFailText(file, at, size, fileSize)));
}

int RefuseImage(const Filepath& path, Report& report, const std::string& why) {
    report.Fail(FileReason(path, why));
    return 0;
}

std::string HexByte(int v) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    return std::string("0x") + kDigits[(v >> 4) & 15] + kDigits[v & 15];
}

std::string TrackLabel(int c, int h) {
    return "track " + std::to_string(c) + "." + std::to_string(h);
}

std::string Counted(int n, const std::string& one, const std::string& many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

void WarnTracksNotRead(const std::vector<bool>& used, int firstNotRead, const std::string& where,
                       Report& report) {
    int count = 0, first = -1;
    for (int t = std::max(firstNotRead, 0); t < static_cast<int>(used.size()); t++) {
        if (!used[static_cast<size_t>(t)]) continue;
        if (first < 0) first = t;
        count++;
    }
    if (count == 0) return;
    report.Warn(Counted(count, "track", "tracks") + " " + where + (count == 1 ? " was" : " were") +
                " not read (first: " + TrackLabel(first / 2, first % 2) + ")");
}

void CopyDiskName(char* name, const char* src, int srcLen) {
    int limit = srcLen < 59 ? srcLen : 59;
    int n = 0;
    if (src) {
        while (n < limit && src[n] != '\0') n++;
        if (n) std::memcpy(name, src, static_cast<size_t>(n));
    }
    std::memset(name + n, 0, static_cast<size_t>(60 - n));
}

int32_t EstimateTrackLength(const VTrack* t) {
    if (!t) return 0;
    int64_t sum = 0;
    for (const VSector* s = t->sectors; s; s = s->next) {
        sum += (s->mfm ? 60 : 31) + static_cast<int64_t>(s->length) + 2 + s->gap3;
    }
    if (sum != 0) sum += (t->mfmCount < t->fmCount) ? 106 : 212;
    if (sum > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    if (sum < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(sum);
}

VSector* MakeSector(int mfm, int c, int h, int r, int n, const uint8_t* data, int length, int gap2,
                    int gap3, int status) {
    auto* s = new VSector();
    s->mfm = mfm ? 1 : 0;
    s->idC = static_cast<uint8_t>(c);
    s->idH = static_cast<uint8_t>(h);
    s->idR = static_cast<uint8_t>(r);
    s->idN = static_cast<uint8_t>(n);
    s->gap2 = gap2;
    s->gap3 = gap3;
    s->status = static_cast<uint8_t>(status);
    if (length > 0) {
        s->data = new uint8_t[static_cast<size_t>(length)];
        if (data)
            std::memcpy(s->data, data, static_cast<size_t>(length));
        else
            std::memset(s->data, 0, static_cast<size_t>(length));
        s->length = length;
    }
    return s;
}

VSector* MakeFormattedSector(int mfm, int c, int h, int r, int n, const uint8_t* data, int length,
                             int status) {
    const int idx = std::clamp(n, 0, 3);
    return MakeSector(mfm, c, h, r, n, data, length, mfm ? 22 : 11,
                      mfm ? Gap3MFM[idx] : Gap3FM[idx], status);
}

void AppendSectorData(std::vector<uint8_t>& out, const VSector* s) {
    if (!s || s->length <= 0) return;
    const auto len = static_cast<size_t>(s->length);
    if (s->data)
        out.insert(out.end(), s->data, s->data + len);
    else
        out.insert(out.end(), len, 0);
}
