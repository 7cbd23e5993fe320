// A client's first token without the names in it.
#ifndef QXGSS_SESSION_NAMELESS_H
#define QXGSS_SESSION_NAMELESS_H

#include <string>
#include <string_view>

namespace session {

// The token with every name in it overwritten by as many bytes that are nobody's name. A token that cannot be read
// comes back as it is. Throws std::bad_alloc.
std::string nameless(std::string_view token);

} // namespace session

#endif
