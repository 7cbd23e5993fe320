// Between the host's records and ours; owners of what the host hands out. Only for the host's side of the fence.
#ifndef HOSTGSS_HOST_TYPES_H
#define HOSTGSS_HOST_TYPES_H

#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

#include "mechanisms/hostgss/host.h"

namespace hostgss {

// The host only reads what these point to.
inline gss_buffer_desc to_buffer(Bytes bytes) {
    return {bytes.size(), const_cast<char *>(bytes.data() != nullptr ? bytes.data() : "")};
}

inline gss_OID_desc to_oid(Bytes bytes) {
    return {static_cast<OM_uint32>(bytes.size()), const_cast<char *>(bytes.data())};
}

inline Bytes to_bytes(const gss_buffer_desc &buffer) {
    return {static_cast<const char *>(buffer.value), buffer.length};
}

inline Bytes to_bytes(gss_const_OID oid) {
    return oid == nullptr ? Bytes{} : Bytes{static_cast<const char *>(oid->elements), oid->length};
}

// gss-ntlmssp (1.2.0) follows a null pointer when it is asked for the name of an acceptor that has none.
inline bool names_acceptors(Bytes mech) {
    return mech != kNtlm;
}

// A buffer of the host.
class HostBuffer {
  public:
    HostBuffer() = default;
    HostBuffer(const HostBuffer &) = delete;
    HostBuffer &operator=(const HostBuffer &) = delete;
    ~HostBuffer() {
        OM_uint32 minor;
        gss_release_buffer(&minor, &buffer_);
    }
    gss_buffer_t get() { return &buffer_; }
    // Some calls that fail leave a length without bytes.
    Bytes view() const { return buffer_.value == nullptr ? Bytes{} : to_bytes(buffer_); }

  private:
    gss_buffer_desc buffer_ = GSS_C_EMPTY_BUFFER;
};

// A name of the host.
class HostName {
  public:
    HostName() = default;
    HostName(const HostName &) = delete;
    HostName &operator=(const HostName &) = delete;
    ~HostName() {
        OM_uint32 minor;
        if (name_ != GSS_C_NO_NAME)
            gss_release_name(&minor, &name_);
    }
    gss_name_t get() const { return name_; }
    gss_name_t *address() { return &name_; }

    // A name without text stays GSS_C_NO_NAME.
    Status import(const Name &name);
    // Its display text; nothing for GSS_C_NO_NAME. Some mechanisms count a NUL at its end in; one inside is refused.
    Status display(Block &text) const;

  private:
    gss_name_t name_ = GSS_C_NO_NAME;
};

// The status of an establishment call, with its token copied out, also that of a call that failed; a copy that fails
// makes the call fail.
inline Status with_token(Status status, const HostBuffer &token, Block &copy) {
    return token.view().empty() || copy.append(token.view()) ? status : kOutOfMemory;
}

// The status of any other call: what one that failed left in its buffer is nobody's.
inline Status copied(Status status, const HostBuffer &buffer, Block &copy) {
    return status.failed() ? status : with_token(status, buffer, copy);
}

} // namespace hostgss

#endif
