// The bytes of one track record: its 16-byte header, then the bit data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

class TrackRecord {
public:
    TrackRecord() = default;
    // size zero bytes. They come from calloc, which hands out a large block as
    // fresh zero pages instead of clearing it: a raw track's record costs only
    // the pages its samples fill, and a record read from a file is written once.
    explicit TrackRecord(size_t size) : size_(size) {
        if (size == 0) return;
        bytes_.reset(static_cast<uint8_t*>(std::calloc(size, 1)));
        if (!bytes_) throw std::bad_alloc();
    }
    TrackRecord(TrackRecord&& o) noexcept
        : bytes_(std::move(o.bytes_)), size_(std::exchange(o.size_, 0)) {}
    TrackRecord& operator=(TrackRecord&& o) noexcept {
        bytes_ = std::move(o.bytes_);
        size_ = std::exchange(o.size_, 0);
        return *this;
    }

    uint8_t* data() { return bytes_.get(); }
    const uint8_t* data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    friend bool operator==(const TrackRecord& a, const TrackRecord& b) {
        return a.size_ == b.size_ &&
               (a.size_ == 0 || std::memcmp(a.data(), b.data(), a.size_) == 0);
    }

private:
    struct Free {
        void operator()(uint8_t* p) const { std::free(p); }
    };
    std::unique_ptr<uint8_t[], Free> bytes_;
    size_t size_ = 0;
};
