// Owners of the codec's handles, ready for implicit tagging. `status` is that of opening; a handle that could not be
// opened is null.
#ifndef COMMON_ASN_H
#define COMMON_ASN_H

#include "common/owned.h"
#include "qxgss/gsspasn.h"

namespace common {

class Decoding {
  public:
    // The token's bytes stay while it is decoded.
    explicit Decoding(std::string_view token) : token_(view(token)) {
        status_ = gsspasn_open_decode_handle(&handle_, &token_);
        if (status_ == GSSPASN_E_SUCCESS)
            status_ = gsspasn_set_decode_tagging(handle_, GSSP_TAGGING_IMPLICIT);
    }
    Decoding(const Decoding &) = delete;
    Decoding &operator=(const Decoding &) = delete;
    ~Decoding() { gsspasn_close_decode_handle(&handle_); }

    gsspasn_decoding_t get() const { return handle_; }
    OM_uint32 status() const { return status_; }

  private:
    qxgss_buffer_desc token_;
    gsspasn_decoding_t handle_ = nullptr;
    OM_uint32 status_;
};

class Encoding {
  public:
    Encoding() {
        status_ = gsspasn_open_encode_handle(&handle_);
        if (status_ == GSSPASN_E_SUCCESS)
            status_ = gsspasn_set_encode_tagging(handle_, GSSP_TAGGING_IMPLICIT);
    }
    Encoding(const Encoding &) = delete;
    Encoding &operator=(const Encoding &) = delete;
    ~Encoding() { gsspasn_close_encode_handle(&handle_, nullptr); }

    gsspasn_encoding_t get() const { return handle_; }
    OM_uint32 status() const { return status_; }
    OM_uint32 close_into(Buffer &output) { return gsspasn_close_encode_handle(&handle_, output.out()); }

  private:
    gsspasn_encoding_t handle_ = nullptr;
    OM_uint32 status_;
};

} // namespace common

#endif
