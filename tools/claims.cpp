// Fields of the INIT token: [0] the mechanisms, each with an optional [7] single sign-on name, [2] who logs on, [4] who
// is asked for.
#include "tools/claims.h"

#include <algorithm>

#include "tools/token_walk.h"

namespace tools {

namespace {

constexpr unsigned kInit = 0, kMechanisms = 0, kLogsOn = 2, kAskedFor = 4, kSignedOn = 7;
constexpr unsigned char kNoName = 0x7F; // a control character: nobody is called that

// The name fields, the one that counts last.
std::vector<Element> names_of(const Element &init) {
    std::vector<Element> names;
    for (const Element &field : init.children)
        if (field.tag == kMechanisms)
            for (const Element &mechanism : field.children)
                for (const Element &part : mechanism.children)
                    if (part.tag == kSignedOn)
                        names.insert(names.begin(), part);
    for (const unsigned tag : {kLogsOn, kAskedFor})
        for (const Element &field : init.children)
            if (field.tag == tag)
                names.push_back(field);
    std::erase_if(names, [](const Element &name) { return name.constructed || name.length == 0; });
    return names;
}

} // namespace

Claims read_claims(ByteView token) {
    const Walk walk = walk_token(token);
    if (walk.fault || walk.elements.size() != 1 || walk.elements.front().tag != kInit)
        return {};
    Claims claims{{}, Bytes(token.begin(), token.end())};
    for (const Element &name : names_of(walk.elements.front())) {
        claims.name = as_text(token.subspan(name.contents(), name.length));
        std::fill_n(claims.nameless.begin() + static_cast<std::ptrdiff_t>(name.contents()), name.length, kNoName);
    }
    return claims;
}

} // namespace tools
