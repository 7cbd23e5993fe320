// A negotiation token whose every field the input decides.
#ifndef QXNEGO_FUZZ_TOKEN_H
#define QXNEGO_FUZZ_TOKEN_H

#include <string>

#include "fuzz/input.h"

namespace fuzz {

std::string made_token(Input &input);

} // namespace fuzz

#endif
