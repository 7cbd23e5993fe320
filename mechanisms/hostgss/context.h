// A security context: the host's, and what is known of it besides. The framework's handle points to one.
#ifndef HOSTGSS_CONTEXT_H
#define HOSTGSS_CONTEXT_H

#include "mechanisms/hostgss/host.h"
#include "mechanisms/hostgss/status.h"

namespace hostgss {

struct Context {
    Context(Bytes which, bool initiates) : mech(which), initiator(initiates) {}
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    ~Context() { drop(); }

    // Deletes the host's context: after a failure nothing may go on with it.
    void drop() {
        Block unsent;
        if (host != nullptr)
            delete_context(&host, unsent);
        host = nullptr;
        established = false;
    }

    void *host = nullptr;
    Bytes mech; // the registry's octets, or the host's
    bool initiator;
    bool established = false;
    std::uint32_t flags = 0;
    Block source; // once established, of an acceptor: the peer's one name
};

inline Context *context_of(qxgss_ctx_id_t handle) {
    return static_cast<Context *>(handle);
}

// Refuses what only an established context can do.
inline Status check_established(const Context *context) {
    if (context == nullptr)
        return refusal(GSS_S_NO_CONTEXT, "There is no context.");
    return context->established ? Status{} : refusal(GSS_S_NO_CONTEXT, "The context is not established.");
}

// What is known of a context in any state; names only once it is established.
Status inquire(const Context *context, ContextFacts &facts); // establish.cpp

} // namespace hostgss

#endif
