// Blocks of the C heap, which is the one that crosses the interfaces.
#ifndef COMMON_HEAP_H
#define COMMON_HEAP_H

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace common {

struct Free {
    void operator()(void *block) const { std::free(block); }
};

// An owner of a record, or of an array T[].
template <typename T> using Heap = std::unique_ptr<T, Free>;

// Zeroed; null when memory is lacking.
template <typename T> Heap<T[]> zeroed(std::size_t count) {
    return Heap<T[]>(static_cast<T *>(std::calloc(count, sizeof(T))));
}

// For a record malloc is the faster way: calloc passes by the blocks that the C library keeps at hand.
template <typename T> Heap<T> zeroed() {
    Heap<T> record(static_cast<T *>(std::malloc(sizeof(T))));
    if (record != nullptr)
        *record = T{};
    return record;
}

// A copy of the bytes, at least one; null when memory is lacking.
inline Heap<unsigned char> copy_bytes(const void *bytes, std::size_t length) {
    Heap<unsigned char> copy(static_cast<unsigned char *>(std::malloc(length)));
    if (copy != nullptr)
        std::memcpy(copy.get(), bytes, length);
    return copy;
}

// A NUL-terminated copy; null when memory is lacking.
inline Heap<char> copy_text(const char *text) {
    return Heap<char>(strdup(text));
}

// A NUL-terminated copy of bytes that may hold a secret, wiped when it goes; on the stack when it has a usual length.
// Null when memory is lacking.
class SecretText {
  public:
    explicit SecretText(std::string_view bytes) : size_(bytes.size() + 1) {
        if (bytes.size() >= sizeof usual_) {
            large_.reset(size_ == 0 ? nullptr : static_cast<char *>(std::malloc(size_)));
            text_ = large_.get();
        }
        if (text_ == nullptr)
            return;
        bytes.copy(text_, bytes.size());
        text_[bytes.size()] = '\0';
    }
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;
    ~SecretText() {
        if (text_ != nullptr)
            explicit_bzero(text_, size_);
    }
    const char *get() const { return text_; }

  private:
    std::size_t size_;
    char usual_[256]; // not cleared: what is read of it was written before
    Heap<char> large_;
    char *text_ = usual_;
};

} // namespace common

#endif
