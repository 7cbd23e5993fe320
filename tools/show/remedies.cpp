#include "tools/show/remedies.h"

#include <algorithm>
#include <iterator>

namespace tools {

namespace {

constexpr Remedy kRemedies[] = {
#define REMEDY(owner, first, last, meaning, cause, remedy) {Owner::owner, first, last, meaning, cause, remedy},
#include "tools/show/remedies.def"
#undef REMEDY
};

} // namespace

const Remedy *find_remedy(Owner owner, OM_uint32 code) {
    const auto row = std::ranges::find_if(
        kRemedies, [&](const Remedy &at) { return at.owner == owner && at.first <= code && code <= at.last; });
    return row == std::end(kRemedies) ? nullptr : row;
}

const Remedy *remedy_of_major(OM_uint32 major) {
    return find_remedy(Owner::MAJOR, major & 0x00FF0000U);
}

const Remedy *remedy_of_minor(std::string_view mechanism, OM_uint32 minor) {
    const Remedy *const own = mechanism.starts_with("SCRAM") ? find_remedy(Owner::SCRAM, minor) : nullptr;
    return own != nullptr ? own : find_remedy(Owner::MINOR, minor);
}

} // namespace tools
