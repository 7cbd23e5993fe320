// Owners of the codec's handles, ready for implicit tagging.
#ifndef COMMON_ASN_H
#define COMMON_ASN_H

#include "common/owned.h"
#include "qxgss/gsspasn.h"

namespace common {

// `status` is that of opening; a handle that could not be opened is null.
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

// Writes item by item, each given by its tag and type; after the first failure nothing more is written, and the closing
// tells it.
class Encoding {
  public:
    Encoding() {
        status_ = gsspasn_open_encode_handle(&handle_);
        run(gsspasn_set_encode_tagging, GSSP_TAGGING_IMPLICIT);
    }
    Encoding(const Encoding &) = delete;
    Encoding &operator=(const Encoding &) = delete;
    ~Encoding() { gsspasn_close_encode_handle(&handle_, nullptr); }

    gsspasn_encoding_t get() const { return handle_; }
    OM_uint32 status() const { return status_; }

    template <typename Element> void start(const Element &element) { run(gsspasn_start_encode_sequence, element.tag); }
    template <typename Element> void stop(const Element &element) { run(gsspasn_stop_encode_sequence, element.tag); }
    template <typename Element> void put(const Element &element, const void *value) {
        run(gsspasn_put_encode_item, element.tag, element.type, value);
    }
    OM_uint32 close_into(Buffer &output) {
        if (status_ == GSSPASN_E_SUCCESS)
            status_ = gsspasn_close_encode_handle(&handle_, output.out());
        return status_;
    }

  private:
    template <typename Operation, typename... Arguments> void run(Operation operation, Arguments... arguments) {
        if (status_ == GSSPASN_E_SUCCESS)
            status_ = operation(handle_, arguments...);
    }

    gsspasn_encoding_t handle_ = nullptr;
    OM_uint32 status_;
};

} // namespace common

#endif
