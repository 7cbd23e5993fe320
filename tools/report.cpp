// Reports travel as CBOR (RFC 8949), whose strings are bytes here: status texts are whatever a peer sent.
#include "tools/report.h"

#include <nlohmann/json.hpp>

#include "tools/failure.h"

namespace tools {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Call, time, name, major, minor, text, token)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Report, calls, established, failure, mechanism, user, flags, properties)

Bytes encode_report(const Report &report) {
    return nlohmann::json::to_cbor(nlohmann::json(report));
}

Report decode_report(ByteView bytes) {
    try {
        return nlohmann::json::from_cbor(bytes.begin(), bytes.end()).get<Report>();
    } catch (const nlohmann::json::exception &) {
        throw Failure("a process ended without a report");
    }
}

} // namespace tools
