// Everything that a peer sent is shown in printable form.
#include "tools/show/story.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "tools/show/codes.h"

namespace tools {

namespace {

struct StatusName {
    ExitStatus status;
    const char *name;
};

constexpr StatusName kStatusNames[] = {
    {kExitSuccess, "success"},           {kExitUsage, "usage"},       {kExitConfiguration, "configuration"},
    {kExitNetwork, "network"},           {kExitProtocol, "protocol"}, {kExitNegotiation, "negotiation"},
    {kExitConfirmation, "confirmation"}, {kExitPolicy, "policy"},     {kExitProtection, "protection"},
    {kExitInterrupted, "interrupted"},
};

std::string milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", seconds * 1000);
    return text;
}

// In quotation marks unless it is plain: nothing in a name can look like what stands behind it.
std::string shown(const std::string &name) {
    const auto is_plain = [](unsigned char c) { return std::isalnum(c) != 0 || (c != 0 && std::strchr("@._-/\\", c)); };
    return std::ranges::all_of(name, is_plain) ? name : common::quoted(name);
}

} // namespace

const char *class_of(ExitStatus status) {
    const auto row = std::ranges::find(kStatusNames, status, &StatusName::status);
    return row == std::end(kStatusNames) ? "failure" : row->name;
}

void print_line(std::ostream &out, const Story &story) {
    out << story.peer;
    if (story.is_established && !story.user.empty())
        out << "  user " << shown(story.user);
    if (story.is_established)
        out << "  " << printable(story.mechanism) << "  flags " << flag_names(story.flags) << "  "
            << story.confirmation;
    out << "  rounds " << story.rounds << "  " << milliseconds(story.seconds);
    if (!story.delegated.empty())
        out << "  delegated by " << shown(story.delegated);
    if (story.messages != 0)
        out << "  messages " << story.messages;
    if (!story.failure.empty())
        out << "  " << class_of(story.status) << ": " << printable(story.failure);
    out << '\n';
}

} // namespace tools
