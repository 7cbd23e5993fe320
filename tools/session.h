// One connection from its first token to its last message, for both roles. The rules that every application of a
// negotiating mechanism has to keep are kept here (docs/embedding.md).
#ifndef QXNEGO_TOOLS_SESSION_H
#define QXNEGO_TOOLS_SESSION_H

#include <memory>

#include "tools/claims.h"
#include "tools/confirmation.h"
#include "tools/connection.h"
#include "tools/negotiation.h"
#include "tools/stream.h"

namespace tools {

// What an administrator may set for either side.
struct SessionOptions {
    Limits limits;
    bool require_confirmation = false;
    std::chrono::milliseconds refusal{1000}; // from the client's last frame; the server's side only
};

struct Logon {
    const std::string &text; // the logon string, which is not copied; empty for single sign-on
    std::string target;
    OM_uint32 flags = 0;
};

class Session {
  public:
    Session(const Framework &framework, Stream &stream, const SessionOptions &options, Connection &connection);

    // Negotiates, confirms and exchanges the verdicts; the server also looks the policy up for the proved name. They
    // throw Failure with the class of what went wrong; the context is then deleted.
    void log_on(const Logon &logon);
    void admit();

    // Whether the mechanism protects messages.
    bool is_protecting() const { return (connection_.report.flags & GSS_C_INTEG_FLAG) != 0; }

    // Sends the text and verifies that it comes back the same. Throws Failure (network, protection, protocol).
    void send_for_echo(ByteView text);

    // Sends every message back until the client ends.
    void echo();

  private:
    TokenExchange exchange();
    bool send_token(ByteView token);
    std::optional<Bytes> receive_token();
    template <typename Run> void negotiate(const Run &run);
    void keep_views();
    void log_on_and_confirm(const Logon &logon);
    bool is_claim_refused() const;
    void negotiate_nameless();
    void confirm_tokens(const char *own_role, const char *peer_role);
    void send_views();
    void receive_views();
    void check_policy();
    [[noreturn]] void refuse(const std::string &why, ExitStatus status);
    [[noreturn]] void end(EndReason reason, const std::string &why, ExitStatus status);
    Bytes protect(ByteView text);
    Bytes unprotect(const Bytes &message);

    const Framework &framework_;
    Stream &stream_;
    const SessionOptions &options_;
    Connection &connection_;
    std::unique_ptr<Negotiation> negotiation_;
    Transcript transcript_;
    unsigned received_tokens_ = 0;
    Claims claims_;
    std::string claim_refusal_; // why the claimed name is refused; empty when it is not
};

} // namespace tools

#endif
