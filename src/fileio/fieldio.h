// Bounds-checked little-endian field access for file headers and tables.
// Every image format reads and writes its fixed layouts through these two
// classes: an access outside the buffer yields 0 (or writes nothing) and makes
// ok() false, so a hostile size or offset can never reach past the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class FieldReader {
public:
    FieldReader(const void* data, size_t size) : p_(static_cast<const uint8_t*>(data)), n_(size) {}

    bool Has(size_t off, size_t len) const { return off <= n_ && len <= n_ - off; }
    bool ok() const { return ok_; }
    size_t size() const { return n_; }

    uint8_t U8(size_t off) const { return Has(off, 1) ? p_[off] : Fail(); }
    uint16_t U16(size_t off) const {
        if (!Has(off, 2)) return Fail();
        return static_cast<uint16_t>(p_[off] | (p_[off + 1] << 8));
    }
    uint32_t U32(size_t off) const {
        if (!Has(off, 4)) return Fail();
        return static_cast<uint32_t>(p_[off]) | (static_cast<uint32_t>(p_[off + 1]) << 8) |
               (static_cast<uint32_t>(p_[off + 2]) << 16) |
               (static_cast<uint32_t>(p_[off + 3]) << 24);
    }
    int32_t I32(size_t off) const { return static_cast<int32_t>(U32(off)); }
    int16_t I16(size_t off) const { return static_cast<int16_t>(U16(off)); }

    // Copies len bytes at off into dst; false (and nothing copied) when out of range.
    bool Bytes(size_t off, void* dst, size_t len) const {
        if (!Has(off, len)) return Fail() != 0;
        if (len) std::memcpy(dst, p_ + off, len);
        return true;
    }
    // True when the bytes at off equal the len bytes of s.
    bool Equals(size_t off, const void* s, size_t len) const {
        return Has(off, len) && std::memcmp(p_ + off, s, len) == 0;
    }
    const uint8_t* Ptr(size_t off, size_t len) const { return Has(off, len) ? p_ + off : nullptr; }

private:
    uint8_t Fail() const {
        ok_ = false;
        return 0;
    }
    const uint8_t* p_;
    size_t n_;
    mutable bool ok_ = true;
};

class FieldWriter {
public:
    FieldWriter(void* data, size_t size) : p_(static_cast<uint8_t*>(data)), n_(size) {}

    bool Has(size_t off, size_t len) const { return off <= n_ && len <= n_ - off; }
    bool ok() const { return ok_; }

    void U8(size_t off, uint32_t v) {
        if (Check(off, 1)) p_[off] = static_cast<uint8_t>(v);
    }
    void U16(size_t off, uint32_t v) {
        if (!Check(off, 2)) return;
        p_[off] = static_cast<uint8_t>(v);
        p_[off + 1] = static_cast<uint8_t>(v >> 8);
    }
    void U32(size_t off, uint32_t v) {
        if (!Check(off, 4)) return;
        for (int i = 0; i < 4; i++) p_[off + i] = static_cast<uint8_t>(v >> (8 * i));
    }
    void I32(size_t off, int32_t v) { U32(off, static_cast<uint32_t>(v)); }
    void Bytes(size_t off, const void* src, size_t len) {
        if (Check(off, len) && len) std::memcpy(p_ + off, src, len);
    }
    void Fill(size_t off, uint8_t v, size_t len) {
        if (Check(off, len) && len) std::memset(p_ + off, v, len);
    }
    // Copies a NUL-terminated text of at most maxLen characters; the rest of the
    // field (fieldLen bytes) is zeroed.
    void Text(size_t off, const char* s, size_t maxLen, size_t fieldLen) {
        if (!Check(off, fieldLen)) return;
        std::memset(p_ + off, 0, fieldLen);
        size_t n = 0;
        while (s && n < maxLen && n < fieldLen && s[n]) n++;
        if (n) std::memcpy(p_ + off, s, n);
    }

private:
    bool Check(size_t off, size_t len) {
        if (Has(off, len)) return true;
        ok_ = false;
        return false;
    }
    uint8_t* p_;
    size_t n_;
    bool ok_ = true;
};
