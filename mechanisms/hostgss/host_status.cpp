// Texts of the host's statuses, and the memory that passes the fence.
#include <cstdlib>
#include <cstring>

#include "mechanisms/hostgss/host_types.h"

namespace hostgss {

Block::~Block() {
    std::free(value_);
}

bool Block::append(Bytes bytes) {
    void *grown = std::realloc(value_, length_ + bytes.size() + 1);
    if (grown == nullptr)
        return false;
    value_ = grown;
    bytes.copy(static_cast<char *>(value_) + length_, bytes.size());
    length_ += bytes.size();
    static_cast<char *>(value_)[length_] = '\0';
    return true;
}

void *Block::release() {
    void *taken = value_;
    value_ = nullptr;
    length_ = 0;
    return taken;
}

namespace {

Status append_texts(OM_uint32 value, int type, gss_OID mech, Block &text) {
    Bytes separator = ": ";
    OM_uint32 message_context = 0;
    do {
        HostBuffer message;
        Status status;
        status.major = gss_display_status(&status.minor, value, type, mech, &message_context, message.get());
        if (status.failed())
            return status;
        // A mechanism that fails without a minor status of its own has the text of errno 0, which reads as a success.
        if (type == GSS_C_MECH_CODE && message.view() == std::strerror(0))
            continue;
        if ((text.length() != 0 && !text.append(separator)) || !text.append(message.view()))
            return kOutOfMemory;
        separator = "; ";
    } while (message_context != 0);
    return {};
}

} // namespace

Status major_text(std::uint32_t major, Block &text) {
    return append_texts(major, GSS_C_GSS_CODE, GSS_C_NO_OID, text);
}

Status minor_text(std::uint32_t minor, Bytes mech, Block &text) {
    gss_OID_desc oid = to_oid(mech);
    return append_texts(minor, GSS_C_MECH_CODE, mech.empty() ? GSS_C_NO_OID : &oid, text);
}

} // namespace hostgss
