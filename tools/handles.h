// Owners of what the framework and a mechanism hand out: each releases its object on every path, as an application has
// to. A mechanism's own objects are released through its function table.
#ifndef QXNEGO_TOOLS_HANDLES_H
#define QXNEGO_TOOLS_HANDLES_H

#include "qxgss/gssp.h"
#include "tools/bytes.h"

namespace tools {

// A descriptor over bytes that stay the caller's.
inline qxgss_buffer_desc view(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())};
}

class OwnedBuffer {
  public:
    OwnedBuffer() = default;
    OwnedBuffer(const OwnedBuffer &) = delete;
    OwnedBuffer &operator=(const OwnedBuffer &) = delete;
    ~OwnedBuffer() { gssp_release_buffer(nullptr, &desc_); }

    qxgss_buffer_t get() { return &desc_; }
    bool empty() const { return desc_.length == 0 || desc_.value == nullptr; }
    ByteView bytes() const {
        return empty() ? ByteView() : ByteView(static_cast<const unsigned char *>(desc_.value), desc_.length);
    }
    std::string_view text() const { return as_text(bytes()); }

  private:
    qxgss_buffer_desc desc_{};
};

class OwnedName {
  public:
    OwnedName() = default;
    OwnedName(const OwnedName &) = delete;
    OwnedName &operator=(const OwnedName &) = delete;
    ~OwnedName() { gssp_release_name(nullptr, &name_); }

    qxgss_name_t *out() { return &name_; }
    qxgss_name_t get() const { return name_; }

    // The text of the first element, empty when there is none.
    std::string_view text() const {
        if (name_ == nullptr || name_->Count == 0 || name_->pElements[0].Name.value == nullptr)
            return {};
        const qxgss_buffer_desc &first = name_->pElements[0].Name;
        return {static_cast<const char *>(first.value), first.length};
    }

  private:
    qxgss_name_t name_ = nullptr;
};

class OwnedOidSet {
  public:
    OwnedOidSet() = default;
    OwnedOidSet(const OwnedOidSet &) = delete;
    OwnedOidSet &operator=(const OwnedOidSet &) = delete;
    ~OwnedOidSet() { gssp_release_oid_set(nullptr, &set_); }

    qxgss_OID_set *out() { return &set_; }
    qxgss_OID_set get() const { return set_; }
    bool is_empty() const { return set_ == nullptr || set_->count == 0; }

  private:
    qxgss_OID_set set_ = nullptr;
};

class Credential {
  public:
    explicit Credential(const qxgss_ftn_table_desc &table) : table_(table) {}
    Credential(const Credential &) = delete;
    Credential &operator=(const Credential &) = delete;
    ~Credential() {
        OM_uint32 ignored = 0;
        if (handle_ != nullptr)
            release(&ignored);
    }

    qxgss_cred_id_t *out() { return &handle_; }
    qxgss_cred_id_t get() const { return handle_; }
    OM_uint32 release(OM_uint32 *minor) { return table_.ftn_gssp_release_cred(minor, &handle_); }

  private:
    const qxgss_ftn_table_desc &table_;
    qxgss_cred_id_t handle_ = nullptr;
};

class Context {
  public:
    explicit Context(const qxgss_ftn_table_desc &table) : table_(table) {}
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    ~Context() {
        OM_uint32 ignored = 0;
        if (handle_ != nullptr)
            release(&ignored);
    }

    qxgss_ctx_id_t *out() { return &handle_; }
    qxgss_ctx_id_t get() const { return handle_; }
    OM_uint32 release(OM_uint32 *minor) { return table_.ftn_gssp_delete_sec_context(minor, &handle_, nullptr); }

  private:
    const qxgss_ftn_table_desc &table_;
    qxgss_ctx_id_t handle_ = nullptr;
};

} // namespace tools

#endif
