#include "tools/show/remedies.h"

#include <algorithm>
#include <iterator>

namespace tools {

namespace {

#define REASON(...)
constexpr Remedy kRemedies[] = {
#define REMEDY(whose, first, last, meaning, cause, remedy) {whose, first, last, meaning, cause, remedy},
#include "tools/show/remedies.def"
#undef REMEDY
};
#undef REASON

#define REMEDY(...)
constexpr ReasonRemedy kReasons[] = {
#define REASON(number, word, found_by, meaning, remedy) {number, found_by, meaning, remedy},
#include "tools/show/remedies.def"
#undef REASON
};
#undef REMEDY

template <typename Holds> const Remedy *find(OM_uint32 status, Holds is_its_owner) {
    const auto row = std::ranges::find_if(kRemedies, [&](const Remedy &candidate) {
        return candidate.first <= status && status <= candidate.last && is_its_owner(candidate.whose);
    });
    return row == std::end(kRemedies) ? nullptr : row;
}

} // namespace

const Remedy *find_major_remedy(OM_uint32 major) {
    return find(major & 0x00FF0000, [](std::string_view whose) { return whose == "major"; });
}

const Remedy *find_minor_remedy(OM_uint32 minor, std::string_view mechanism) {
    return find(minor, [&](std::string_view whose) { return whose == "minor" || mechanism.starts_with(whose); });
}

const ReasonRemedy *find_reason(OM_uint32 reason) {
    const auto row = std::ranges::find(kReasons, reason, &ReasonRemedy::reason);
    return row == std::end(kReasons) ? nullptr : row;
}

} // namespace tools
