// The words for states and reasons, by the enumerations of the negotiation records.
#ifndef QXNEGO_WORDS_H
#define QXNEGO_WORDS_H

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "gssp2qxnego/words.h"

namespace qxnego {

constexpr std::string_view word(NegMechState_et state) {
    return state_word(state);
}
constexpr std::string_view word(NegMechReason_et reason) {
    return reason_word(reason);
}
constexpr std::string_view word(NegState_et state) {
    return neg_state_word(state);
}

} // namespace qxnego

#endif
