// SHA-256 is OpenSSL's, the MIC the selected mechanism's.
#include "tools/confirmation.h"

#include <cstring>

#include <openssl/evp.h>

#include "tools/codes.h"
#include "tools/failure.h"

namespace tools {

namespace {

constexpr std::size_t kHashSize = 32;

void require(int result) {
    if (result != 1)
        throw Failure("SHA-256 is not available");
}

} // namespace

void Transcript::Free::operator()(evp_md_ctx_st *context) const {
    EVP_MD_CTX_free(context);
}

Transcript::Transcript() : hash_(EVP_MD_CTX_new()) {
    require(hash_ != nullptr && EVP_DigestInit_ex(hash_.get(), EVP_sha256(), nullptr) == 1);
}

void Transcript::add(ByteView token) {
    const auto length = static_cast<std::uint32_t>(token.size());
    const unsigned char head[] = {static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
                                  static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)};
    require(EVP_DigestUpdate(hash_.get(), head, sizeof head));
    require(EVP_DigestUpdate(hash_.get(), token.data(), token.size()));
}

Bytes Transcript::statement(const char *role) const {
    const std::unique_ptr<evp_md_ctx_st, Free> copy(EVP_MD_CTX_new());
    require(copy != nullptr && EVP_MD_CTX_copy_ex(copy.get(), hash_.get()) == 1);
    unsigned char hash[kHashSize];
    require(EVP_DigestFinal_ex(copy.get(), hash, nullptr));
    Bytes out(role, role + std::strlen(role));
    out.insert(out.end(), hash, hash + kHashSize);
    return out;
}

Bytes confirm(const Negotiation &negotiation, const Report &report, const Bytes &statement) {
    if ((report.flags & GSS_C_INTEG_FLAG) == 0)
        return {};
    OM_uint32 minor = 0;
    OwnedBuffer mic;
    qxgss_buffer_desc text = view(as_text(statement));
    const OM_uint32 major = negotiation.table().ftn_gssp_get_mic(&minor, negotiation.context(), 0, &text, mic.get());
    if (major == GSS_S_UNAVAILABLE)
        return {};
    if (GSS_ERROR(major) != 0 || mic.empty())
        throw Failure("the mechanism gives no MIC: " + major_name(major) + ' ' + code_text(minor), kExitConfirmation);
    return Bytes(mic.bytes().begin(), mic.bytes().end());
}

bool is_confirmed(const Negotiation &negotiation, const Bytes &statement, const Bytes &mic) {
    OM_uint32 minor = 0;
    qxgss_buffer_desc text = view(as_text(statement)), token = view(as_text(mic));
    return !mic.empty() && negotiation.table().ftn_gssp_verify_mic(&minor, negotiation.context(), &text, &token,
                                                                   nullptr) == GSS_S_COMPLETE;
}

} // namespace tools
