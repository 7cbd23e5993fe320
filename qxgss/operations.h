// The operations of a mechanism as rows, in the order of its function table: for what is done with each of them, and for
// the types of their functions, which the framework looks up by name and trusts.
#ifndef QXGSS_OPERATIONS_H
#define QXGSS_OPERATIONS_H

#include <type_traits>

#include "qxgss/gssp.h"

// ROW(ARGUMENT, operation) for each.
// clang-format off
#define QXGSS_OPERATIONS(ROW, ARGUMENT)                                                                                \
    ROW(ARGUMENT, configure) ROW(ARGUMENT, indicate_mechs) ROW(ARGUMENT, inquire_names_for_mech)                       \
    ROW(ARGUMENT, acquire_cred) ROW(ARGUMENT, release_cred) ROW(ARGUMENT, inquire_cred)                                \
    ROW(ARGUMENT, init_sec_context) ROW(ARGUMENT, accept_sec_context) ROW(ARGUMENT, delete_sec_context)                \
    ROW(ARGUMENT, inquire_context) ROW(ARGUMENT, wrap_size_limit) ROW(ARGUMENT, wrap) ROW(ARGUMENT, unwrap)            \
    ROW(ARGUMENT, get_mic) ROW(ARGUMENT, verify_mic) ROW(ARGUMENT, get_client_domain_username)                         \
    ROW(ARGUMENT, qop_string_to_int) ROW(ARGUMENT, qop_int_to_string) ROW(ARGUMENT, inquire_properties_for_user)       \
    ROW(ARGUMENT, display_status) ROW(ARGUMENT, release_name) ROW(ARGUMENT, inquire_negotiated_mech)                   \
    ROW(ARGUMENT, inquire_negotiation) ROW(ARGUMENT, inquire_candidate)
// clang-format on

#define QXGSS_DECLARE_OPERATION(PREFIX, operation)                                                                     \
    QXGSS_API extern std::remove_pointer_t<decltype(qxgss_ftn_table_desc::ftn_gssp_##operation)> PREFIX##_##operation;

// Declares the functions of the mechanism with that prefix, also those that it lacks: one of another type does not
// compile.
#define QXGSS_DECLARE_OPERATIONS(PREFIX)                                                                               \
    extern "C" {                                                                                                       \
    QXGSS_OPERATIONS(QXGSS_DECLARE_OPERATION, PREFIX)                                                                  \
    }

#endif
