// A user-properties buffer as people read it: its records, one row each, and the negotiation log that it carries.
#ifndef QXNEGO_TOOLS_SHOW_USER_PROPERTIES_H
#define QXNEGO_TOOLS_SHOW_USER_PROPERTIES_H

#include <ostream>
#include <string>
#include <vector>

#include "qxgss/qxgss.h"
#include "tools/bytes.h"

namespace tools {

struct Property {
    OM_uint32 id = 0;
    std::size_t length = 0; // of the whole record, in bytes
    std::string name;
    std::string value; // safe to print
};

struct UserProperties {
    std::vector<Property> records;
    std::string log;     // the text of the negotiation-log record, empty without one
    std::size_t end = 0; // where the last whole record ends: the buffer's size when the buffer is sound
};

// None of a buffer that does not begin with a whole record of a known kind, as no token does.
UserProperties read_properties(ByteView buffer);
void print_properties(std::ostream &out, const UserProperties &properties);

} // namespace tools

#endif
