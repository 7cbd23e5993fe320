// The confirmation of the offer: tokens carry no protection against someone in between who strikes a mechanism from
// them, so each side proves with a MIC of the selected mechanism which tokens it has seen.
#ifndef QXNEGO_TOOLS_CONFIRMATION_H
#define QXNEGO_TOOLS_CONFIRMATION_H

#include <memory>
#include <optional>

#include "tools/negotiation.h"

struct evp_md_ctx_st;

namespace tools {

// All tokens of one negotiation, as sent and received, in order. Each is hashed behind four octets with its length,
// most significant first, so that no byte can move from one token to another.
class Transcript {
  public:
    Transcript();
    void add(ByteView token);

    // What a side signs: its role ("client" or "server"), then the SHA-256 of the tokens (FIPS 180-4). The role in
    // front keeps a side's MIC from being sent back to it as its peer's.
    Bytes statement(const char *role) const;

  private:
    struct Free {
        void operator()(evp_md_ctx_st *context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> hash_;
};

// A MIC over the statement; empty when the mechanism has none. Throws Failure (confirmation) when it fails.
Bytes confirm(const Negotiation &negotiation, const Report &report, const Bytes &statement);

// Whether the peer's MIC is one over the statement; an empty one never is.
bool is_confirmed(const Negotiation &negotiation, const Bytes &statement, const Bytes &mic);

} // namespace tools

#endif
