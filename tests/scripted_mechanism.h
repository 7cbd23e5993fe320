// A security mechanism for tests, in four copies, A to D (prefixes MECH_A to MECH_D): each does what the script says,
// counts what it made, and writes down how it was called. Each thread has a script, counts and calls of its own. Inner
// token number k of mechanism A is the text "A<k>"; the client sends the odd ones. A side is established once it
// has sent or received the last of `legs` tokens: with an odd number the client finishes first.
#ifndef QXNEGO_SCRIPTED_MECHANISM_H
#define QXNEGO_SCRIPTED_MECHANISM_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "qxgss/gssp.h"

namespace scripted {

inline constexpr int kMechanisms = 4;
enum Side { kClient = 0, kServer = 1 };

// What a mechanism answers when it is asked whose credential it holds.
enum class Principal { kText, kNoName, kNoElements, kEmptyText, kFailure };

// One mechanism on one side. Failures of every kind come with `major` and `minor`.
struct Behaviour {
    OM_uint32 major = GSS_S_NO_CRED;
    OM_uint32 minor = 0xC5000007U;
    const char *text = "scripted failure"; // of any minor status; null: display_status gives none
    int failing_call = 0;                  // which init or accept call fails, from 1; 0: none
    bool error_token = false;              // a failing call brings the token "A!" all the same
    bool acquire_fails = false;
    bool release_cred_fails = false; // it is released all the same, and so is a context
    bool delete_fails = false;
    bool messages_fail = false;  // wrap, unwrap, get_mic, verify_mic, wrap_size_limit, inquire_context
    OM_uint32 supplementary = 0; // bits in the major status of every call that succeeds
    Principal principal = Principal::kText;
    const char *principal_text = "anna";
    const char *source = nullptr; // source name of an accepted context
    bool delegates = false;
    std::string_view properties;                          // what inquire_properties_for_user gives
    void (*alter)(qxgss_ftn_table_desc &table) = nullptr; // takes operations away
};

struct Script {
    Side acting = kClient; // whose call is under way, for operations that are not given an object of a side
    std::array<int, kMechanisms> legs{1, 1, 1, 1};
    std::array<std::array<Behaviour, 2>, kMechanisms> behaviour{};

    Behaviour &at(char mechanism, Side side) {
        return behaviour[static_cast<std::size_t>(mechanism - 'A')][static_cast<std::size_t>(side)];
    }
};
Script &script();

// A call as it arrived; what an operation does not have stays zero.
struct Call {
    const char *operation;
    char mechanism;
    std::array<char, 24> text{}; // input token, or text of the desired name
    const void *credential = nullptr, *name = nullptr /* target or desired name */, *bindings = nullptr;
    qxgss_OID mech_type = nullptr;
    OM_uint32 flags = 0; // requested flags, credential usage, or the message context
    OM_uint32 time = 0;
    OM_uint32 wanted = 0; // number of results asked for
};

// The last call of that operation of that mechanism.
Call &last_call(std::string_view operation, char mechanism);

// Credentials and contexts of all mechanisms that have not been released.
int live_objects();

// Default script, no calls; frees what a test left behind on purpose.
void reset();

// Lifetime and flags of every context; minor status of every call that succeeds.
inline constexpr OM_uint32 kLifetime = 4321;
inline constexpr OM_uint32 kFlags = GSS_C_MUTUAL_FLAG | GSS_C_INTEG_FLAG;
inline constexpr OM_uint32 kSuccess = 0x25000001U;
// Minor status, with GSS_S_DEFECTIVE_TOKEN, of a token other than the one that is due.
inline constexpr OM_uint32 kBadToken = 0xC5000009U;
// Minor status, with GSS_S_NO_CONTEXT, of a message or an inquiry without an established context.
inline constexpr OM_uint32 kNoContext = 0xC500000BU;

} // namespace scripted

#endif
