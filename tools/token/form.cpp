// The outer element tells the form: [0] is the client's first token, [1] every later one in both directions.
#include "tools/token/form.h"

#include "qxgss/gsspasn.h"

namespace tools {

namespace {

class Decoder {
  public:
    explicit Decoder(ByteView token) : bytes_{token.size(), const_cast<unsigned char *>(token.data())} {
        status_ = gsspasn_open_decode_handle(&handle_, &bytes_);
        if (status_ == GSSPASN_E_SUCCESS)
            status_ = gsspasn_set_decode_tagging(handle_, GSSP_TAGGING_IMPLICIT);
    }
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;
    ~Decoder() {
        if (handle_ != nullptr)
            gsspasn_close_decode_handle(&handle_);
    }

    bool has_outer_tag(OM_uint32 tag) const {
        gsspasn_decoding_t children = nullptr;
        OM_uint32 count = 0;
        return status_ == GSSPASN_E_SUCCESS &&
               gsspasn_get_top_decode_sequence(handle_, tag, &children, &count) == GSSPASN_E_SUCCESS;
    }

  private:
    qxgss_buffer_desc bytes_;
    gsspasn_decoding_t handle_ = nullptr;
    OM_uint32 status_ = GSSPASN_E_SUCCESS;
};

} // namespace

std::string outer_form(ByteView token) {
    const Decoder decoder(token);
    if (decoder.has_outer_tag(0))
        return "INIT";
    return decoder.has_outer_tag(1) ? "RESP" : "malformed";
}

} // namespace tools
