// The exported entry points: one row and one set of functions for each mechanism. No exception leaves them.
#include <exception>

#include "mechanisms/scram/scram.h"
#include "qxgss/operations.h"

namespace {

using scram::Answers;
using scram::Mechanism;

// Runs an operation; where memory is lacking that becomes its status.
template <typename Operation> OM_uint32 guarded(OM_uint32 *pMinorStatus, Operation operation) {
    try {
        return operation();
    } catch (const std::exception &) {
        return scram::fail(pMinorStatus, GSASL_MALLOC_ERROR);
    }
}

unsigned char oid_sha256[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x12};
unsigned char oid_sha1[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x0E};

constinit Mechanism sha256{"SCRAM-SHA-256", "1.3.6.1.5.5.18", {sizeof oid_sha256, oid_sha256}, nullptr};
constinit Mechanism sha1{"SCRAM-SHA-1", "1.3.6.1.5.5.14", {sizeof oid_sha1, oid_sha1}, nullptr};

} // namespace

QXGSS_DECLARE_OPERATIONS(SCRAM_SHA_256)
QXGSS_DECLARE_OPERATIONS(SCRAM_SHA_1)

#define SCRAM_ENTRY(operation) SCRAM_SHA_256_##operation
#define SCRAM_MECHANISM sha256
#include "mechanisms/scram/entry_points.inc"
#undef SCRAM_ENTRY
#undef SCRAM_MECHANISM

#define SCRAM_ENTRY(operation) SCRAM_SHA_1_##operation
#define SCRAM_MECHANISM sha1
#include "mechanisms/scram/entry_points.inc"
#undef SCRAM_ENTRY
#undef SCRAM_MECHANISM
