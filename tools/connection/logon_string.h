// What is wrong with a logon string, before it is used: no status of a negotiation says which of its items.
#ifndef QXNEGO_TOOLS_CONNECTION_LOGON_STRING_H
#define QXNEGO_TOOLS_CONNECTION_LOGON_STRING_H

#include <string_view>

namespace tools {

// Throws Failure (usage) for an item that is not KEYWORD=VALUE, for one without a value, and for quotation marks that
// are not closed. It names the item by its number and the keyword that was meant, never by its own text: that may be a
// piece of a password.
void check_logon_string(std::string_view text);

} // namespace tools

#endif
