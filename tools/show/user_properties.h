// User properties as people read them: a row for each record.
#ifndef QXNEGO_TOOLS_SHOW_USER_PROPERTIES_H
#define QXNEGO_TOOLS_SHOW_USER_PROPERTIES_H

#include "tools/show/log.h"

namespace tools {

std::string name_of(const Property &property);
std::string value_of(const Property &property); // safe to print
void print_properties(std::ostream &out, const SavedLog &log);

} // namespace tools

#endif
