// All tokens of one negotiation, as they were sent and received: what each side confirms with a MIC.
#ifndef QXGSS_SESSION_TRANSCRIPT_H
#define QXGSS_SESSION_TRANSCRIPT_H

#include <memory>
#include <string>

struct evp_md_ctx_st;

namespace session {

// Each token is hashed behind four octets with its length, most significant first, so that no byte can move from one
// token to another; an empty one is none. All operations throw Failure (resources).
class Transcript {
  public:
    Transcript();
    void add(std::string_view token);

    // What a side signs: its role ("client" or "server"), then the SHA-256 of the tokens (FIPS 180-4). The role in
    // front keeps a side's MIC from being sent back to it as its peer's.
    std::string statement(const char *role) const;

  private:
    struct Free {
        void operator()(evp_md_ctx_st *context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> hash_;
};

// Four octets, most significant first.
std::string octets_of(std::size_t length);

} // namespace session

#endif
