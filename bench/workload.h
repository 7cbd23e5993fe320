// The work that is measured: a framework configured with null mechanisms, and handshakes of a client and a server in
// one thread. Whatever fails ends the program: a figure of a failed handshake would be worth nothing.
#ifndef QXNEGO_WORKLOAD_H
#define QXNEGO_WORKLOAD_H

#include <string>

#include "qxgss/gssp.h"

namespace bench {

// A configured framework, whose first mechanism is QXNEGO. One at a time in a process.
class Framework {
  public:
    explicit Framework(const std::string &configuration);
    // Negotiation over so many null mechanisms (at most 64 of one leg, 32 of two or three).
    Framework(int candidates, int legs);
    Framework(const Framework &) = delete;
    Framework &operator=(const Framework &) = delete;
    ~Framework();

    // The function tables of QXNEGO and of the next mechanism.
    const qxgss_ftn_table_desc &qxnego() const { return pMechInfo[0].MechFtnTable; }
    const qxgss_ftn_table_desc &mechanism() const { return pMechInfo[1].MechFtnTable; }
};

// A credential for a logon string, or the acceptor's without one; reused by all handshakes.
class Credential {
  public:
    Credential(const Framework &framework, const char *logon, qxgss_cred_usage_t usage);
    Credential(const Credential &) = delete;
    Credential &operator=(const Credential &) = delete;
    ~Credential();
    qxgss_cred_id_t get() const { return handle_; }

  private:
    const Framework &framework_;
    qxgss_cred_id_t handle_ = nullptr;
};

// Both sides of a handshake over that table, until both contexts are complete; deletes them at the end.
class Handshake {
  public:
    Handshake(const qxgss_ftn_table_desc &table, qxgss_cred_id_t initiator, qxgss_cred_id_t acceptor, qxgss_OID mech);
    Handshake(const Handshake &) = delete;
    Handshake &operator=(const Handshake &) = delete;
    ~Handshake();

    void run();

    qxgss_ctx_id_t client = nullptr;
    qxgss_ctx_id_t server = nullptr;
    qxgss_name_t target = nullptr; // borrowed

  private:
    const qxgss_ftn_table_desc &table_;
    qxgss_cred_id_t initiator_, acceptor_;
    qxgss_OID mech_;
};

// A configuration in which QXNEGO negotiates these: a list of OIDs and the [[mechanism]] sections.
std::string negotiation_over(const std::string &negotiates, const std::string &mechanisms);

// The client's first token, which the caller releases.
qxgss_buffer_desc first_token(const qxgss_ftn_table_desc &table, qxgss_cred_id_t initiator, qxgss_ctx_id_t *ppContext);

// The server's first call with it, after which the server waits for another token: a half-open context.
void accept_first(const qxgss_ftn_table_desc &table, qxgss_cred_id_t acceptor, qxgss_buffer_desc token,
                  qxgss_ctx_id_t *ppContext);

void expect(bool condition, const char *what, OM_uint32 major = 0, OM_uint32 minor = 0);

} // namespace bench

#endif
