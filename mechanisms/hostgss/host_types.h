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
    return mech != Bytes("\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a");
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
    Bytes view() const { return to_bytes(buffer_); }

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
    // Its display text, without the NULs that some mechanisms count in; nothing for GSS_C_NO_NAME.
    Status display(Block &text) const;

  private:
    gss_name_t name_ = GSS_C_NO_NAME;
};

// The status of a call, with its buffer copied out; a copy that fails makes the call fail.
inline Status copied(Status status, const HostBuffer &buffer, Block &copy) {
    if (!buffer.view().empty() && !copy.append(buffer.view()))
        return kOutOfMemory;
    return status;
}

} // namespace hostgss

#endif
