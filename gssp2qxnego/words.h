// The words for states and reasons, wherever they are shown. A value without one has an empty word.
#ifndef QXNEGO_PUBLIC_WORDS_H
#define QXNEGO_PUBLIC_WORDS_H

#include <array>
#include <cstdint>
#include <string_view>

namespace qxnego {

inline constexpr std::array<std::string_view, 4> kMechStateWords{"", "Available", "Selected", "Rejected"};

inline constexpr std::array<std::string_view, 10> kMechReasonWords{"",
                                                                   "Available",
                                                                   "GSSAPI Error",
                                                                   "Not Available at Client",
                                                                   "Not Available at Server",
                                                                   "Due to Policy",
                                                                   "Due to Rank",
                                                                   "Single Sign-On Required",
                                                                   "Authentication ID not Available",
                                                                   "Authorization Required"};

inline constexpr std::array<std::string_view, 5> kNegStateWords{"", "Completed", "Incomplete", "Reject", "Request MIC"};

template <std::size_t N>
constexpr std::string_view word_at(const std::array<std::string_view, N> &words, std::uint32_t value) {
    return value < N ? words[value] : std::string_view();
}

constexpr std::string_view state_word(std::uint32_t mech_state) {
    return word_at(kMechStateWords, mech_state);
}
constexpr std::string_view reason_word(std::uint32_t mech_reason) {
    return word_at(kMechReasonWords, mech_reason);
}
constexpr std::string_view neg_state_word(std::uint32_t neg_state) {
    return word_at(kNegStateWords, neg_state);
}

} // namespace qxnego

#endif
