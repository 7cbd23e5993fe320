#include "session/transcript.h"

#include <openssl/evp.h>

#include "session/failure.h"

namespace session {

namespace {

void check(bool is_done) {
    if (!is_done)
        throw Failure(QXGSS_SESSION_FAILURE_RESOURCES, "the tokens cannot be hashed");
}

} // namespace

void Transcript::Free::operator()(evp_md_ctx_st *context) const {
    EVP_MD_CTX_free(context);
}

Transcript::Transcript() : hash_(EVP_MD_CTX_new()) {
    check(hash_ != nullptr && EVP_DigestInit_ex(hash_.get(), EVP_sha256(), nullptr) == 1);
}

void Transcript::add(std::string_view token) {
    if (token.empty())
        return;
    const std::string length = octets_of(token.size());
    check(EVP_DigestUpdate(hash_.get(), length.data(), length.size()) == 1 &&
          EVP_DigestUpdate(hash_.get(), token.data(), token.size()) == 1);
}

std::string Transcript::statement(const char *role) const {
    const std::unique_ptr<EVP_MD_CTX, Free> copy(EVP_MD_CTX_new());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    check(copy != nullptr && EVP_MD_CTX_copy_ex(copy.get(), hash_.get()) == 1 &&
          EVP_DigestFinal_ex(copy.get(), digest, &length) == 1);
    return std::string(role).append(reinterpret_cast<const char *>(digest), length);
}

std::string octets_of(std::size_t length) {
    return {static_cast<char>(length >> 24), static_cast<char>(length >> 16), static_cast<char>(length >> 8),
            static_cast<char>(length)};
}

} // namespace session
