// The words for states and reasons, wherever they are printed. A value without one has an empty word.
#ifndef QXNEGO_WORDS_H
#define QXNEGO_WORDS_H

#include <array>
#include <string_view>

#include "gssp2qxnego/gssp2qxnegoint.h"

namespace qxnego {

inline constexpr std::array<std::string_view, NEG_MECH_STATE_INVALID_LAST> kMechStateWords{"", "Available", "Selected",
                                                                                           "Rejected"};

inline constexpr std::array<std::string_view, NEG_MECH_REASON_INVALID_LAST> kMechReasonWords{
    "",
    "Available",
    "GSSAPI Error",
    "Not Available at Client",
    "Not Available at Server",
    "Due to Policy",
    "Due to Rank",
    "Single Sign-On Required",
    "Authentication ID not Available",
    "Authorization Required"};

inline constexpr std::array<std::string_view, NEG_STATE_INVALID_LAST> kNegStateWords{"", "Completed", "Incomplete",
                                                                                     "Reject", "Request MIC"};

template <std::size_t N> constexpr std::string_view word_at(const std::array<std::string_view, N> &words, OM_uint32 i) {
    return i < N ? words[i] : std::string_view();
}

constexpr std::string_view word(NegMechState_et state) {
    return word_at(kMechStateWords, state);
}
constexpr std::string_view word(NegMechReason_et reason) {
    return word_at(kMechReasonWords, reason);
}
constexpr std::string_view word(NegState_et state) {
    return word_at(kNegStateWords, state);
}

} // namespace qxnego

#endif
