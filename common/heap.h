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

// A text that may be a secret: wiped before it is freed.
struct WipeAndFree {
    void operator()(char *text) const {
        explicit_bzero(text, std::strlen(text));
        std::free(text);
    }
};
using Secret = std::unique_ptr<char, WipeAndFree>;

// Room for something secret, wiped when it goes; on the stack when no more than Usual bytes are wanted. There is none
// of 0 bytes, which is what one more than any length can come to.
template <std::size_t Usual> class SecretRoom {
  public:
    explicit SecretRoom(std::size_t size)
        : size_(size), room_(size > Usual ? static_cast<char *>(std::malloc(size))
                             : size > 0   ? usual_
                                          : nullptr) {}
    SecretRoom(const SecretRoom &) = delete;
    SecretRoom &operator=(const SecretRoom &) = delete;
    ~SecretRoom() {
        if (room_ == nullptr)
            return;
        explicit_bzero(room_, size_);
        if (room_ != usual_)
            std::free(room_);
    }
    char *get() const { return room_; } // null when memory is lacking

  private:
    std::size_t size_;
    char usual_[Usual]; // not cleared: what is read of it was written before
    char *room_;
};

// A NUL-terminated copy of bytes that may hold a secret. Null when memory is lacking.
class SecretText {
  public:
    explicit SecretText(std::string_view bytes) : room_(bytes.size() + 1) {
        if (room_.get() == nullptr)
            return;
        bytes.copy(room_.get(), bytes.size());
        room_.get()[bytes.size()] = '\0';
    }
    const char *get() const { return room_.get(); }

  private:
    SecretRoom<256> room_;
};

} // namespace common

#endif
