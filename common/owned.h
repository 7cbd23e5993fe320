// Owners of what the framework's C interface hands out: each releases its object on every path. Bytes that stay
// somebody else's are a std::string_view.
#ifndef COMMON_OWNED_H
#define COMMON_OWNED_H

#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <type_traits>
#include <utility>

#include "common/bytes.h"
#include "common/status.h"
#include "qxgss/gssp.h"

namespace common {

// Appends a copy of the text to a buffer on the C heap, without separator or NUL; false, and the buffer as it was, when
// memory is lacking.
inline bool append(qxgss_buffer_desc &buffer, std::string_view text) {
    if (text.empty())
        return true;
    const std::size_t length = buffer.length + text.size();
    if (length < text.size()) // which cannot be added
        return false;
    void *const grown = std::realloc(buffer.value, length); // NOLINT(clang-analyzer-unix.Malloc): never of 0 bytes
    if (grown == nullptr)
        return false;
    text.copy(static_cast<char *>(grown) + buffer.length, text.size());
    buffer = {length, grown};
    return true;
}

// A handle that Release(minor status, &handle) gives back.
template <typename Handle, auto Release> class Owned {
  public:
    Owned() = default;
    Owned(std::nullptr_t) {}
    explicit Owned(Handle handle) : handle_(handle) {}
    Owned(Owned &&other) noexcept : handle_(std::exchange(other.handle_, {})) {}
    Owned &operator=(Owned &&other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Owned() { reset(); }

    Handle get() const { return handle_; }
    Handle operator->() const { return handle_; }
    bool operator==(std::nullptr_t) const { return handle_ == nullptr; }
    Handle *out() { return &handle_; }
    Handle release() { return std::exchange(handle_, {}); }
    void reset() {
        if (handle_ != nullptr)
            Release(nullptr, &handle_);
    }

  private:
    Handle handle_ = nullptr;
};

using Name = Owned<qxgss_name_t, gssp_release_name>;
using OidSet = Owned<qxgss_OID_set, gssp_release_oid_set>;

// A buffer whose block is its own.
class Buffer {
  public:
    Buffer() = default;
    Buffer(Buffer &&other) noexcept : desc_(std::exchange(other.desc_, {})) {}
    Buffer &operator=(Buffer &&other) noexcept {
        std::swap(desc_, other.desc_);
        return *this;
    }
    ~Buffer() { gssp_release_buffer(nullptr, &desc_); }

    qxgss_buffer_t out() { return &desc_; }
    bool empty() const { return bytes().empty(); }
    std::string_view bytes() const { return bytes_of(&desc_); }
    qxgss_buffer_desc release() { return std::exchange(desc_, {}); }

  private:
    qxgss_buffer_desc desc_{};
};

// A handle of a mechanism, given back through a slot of the mechanism's function table.
template <typename Handle, auto Slot> class MechanismOwned {
  public:
    explicit MechanismOwned(const qxgss_ftn_table_desc &table) : table_(&table) {}
    MechanismOwned(const MechanismOwned &) = delete;
    MechanismOwned &operator=(const MechanismOwned &) = delete;
    ~MechanismOwned() { reset(); }

    Handle get() const { return handle_; }
    Handle *out() { return &handle_; }
    void reset() {
        OM_uint32 ignored = 0;
        if (handle_ == nullptr)
            return;
        if constexpr (std::is_invocable_v<decltype(table_->*Slot), OM_uint32 *, Handle *>)
            (table_->*Slot)(&ignored, &handle_);
        else // a deletion that may give a token: nobody wants it
            (table_->*Slot)(&ignored, &handle_, nullptr);
        handle_ = nullptr;
    }

  private:
    const qxgss_ftn_table_desc *table_;
    Handle handle_ = nullptr;
};

} // namespace common

#endif
