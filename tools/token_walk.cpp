// The same rules in the same order as the framework's decoder (X.690 8.1, with its limits), by recursion.
#include "tools/token_walk.h"

namespace tools {

namespace {

constexpr unsigned kClassMask = 0xC0, kContextSpecific = 0x80, kConstructed = 0x20, kTagMask = 0x1F;
constexpr unsigned kIndefinite = 0x80, kReserved = 0xFF;

class Walker {
  public:
    explicit Walker(ByteView token) : token_(token) {}

    Walk run() {
        if (token_.size() > GSSPASN_DECODE_MAX_TOKEN)
            fail(GSSPASN_DECODE_MAX_TOKEN, GSSPASN_E_ENCODING, "the token is larger than 1 MiB");
        else if (read_element(token_.size(), 0, walk_.elements) && at_ != token_.size())
            fail(at_, GSSPASN_E_ENCODING, "more bytes follow the outer element");
        return std::move(walk_);
    }

  private:
    bool fail(std::size_t offset, OM_uint32 status, const std::string &why) {
        walk_.fault = Fault{offset, status, why};
        return false;
    }
    // A length that does not fit before the limit.
    bool fail_beyond(std::size_t offset, std::size_t limit, std::size_t length) {
        return fail(offset, GSSPASN_E_ENCODING,
                    "the length is " + std::to_string(length) + ", and only " + std::to_string(limit - at_) +
                        (limit == token_.size() ? " bytes follow" : " bytes follow in the element around it"));
    }
    bool read_element(std::size_t limit, std::size_t depth, std::vector<Element> &siblings);
    bool read_length(std::size_t limit, Element &element);
    bool read_long_length(std::size_t limit, Element &element);
    bool read_children(std::size_t limit, std::size_t depth, Element &parent);

    ByteView token_;
    std::size_t at_ = 0;
    std::size_t count_ = 0;
    bool indefinite_ = false; // the length read last
    Walk walk_;
};

bool Walker::read_element(std::size_t limit, std::size_t depth, std::vector<Element> &siblings) {
    if (at_ == limit)
        return fail(at_, GSSPASN_E_ENCODING, "an element should begin here");
    const unsigned identifier = token_[at_];
    Element element{at_++, 1, 0, identifier & kTagMask, (identifier & kConstructed) != 0, {}};
    if ((identifier & kClassMask) != kContextSpecific)
        return fail(element.offset, GSSPASN_E_CLASS_INVALID, "the element's class is not context-specific");
    if (element.tag == kTagMask)
        return fail(element.offset, GSSPASN_E_TAG_INVALID, "the tag number is 31 or above");
    if (!read_length(limit, element))
        return false;
    if (indefinite_ && !element.constructed)
        return fail(element.offset + 1, GSSPASN_E_ENCODING, "a primitive element has an indefinite length");
    if (++count_ > GSSPASN_DECODE_MAX_ELEMENTS)
        return fail(element.offset, GSSPASN_E_STACK_FULL, "more than 16384 elements");
    element.header = at_ - element.offset;
    siblings.push_back(element);
    if (!element.constructed) {
        at_ += element.length;
        return true;
    }
    if (depth == GSSPASN_DECODE_MAX_DEPTH)
        return fail(element.offset, GSSPASN_E_STACK_FULL, "elements are nested more than 16 deep");
    return read_children(limit, depth, siblings.back());
}

bool Walker::read_length(std::size_t limit, Element &element) {
    if (at_ == limit)
        return fail(at_, GSSPASN_E_ENCODING, "a length should follow");
    const unsigned octet = token_[at_];
    indefinite_ = octet == kIndefinite;
    if (octet == kReserved)
        return fail(at_, GSSPASN_E_ENCODING, "a length octet has the reserved value FF"); // X.690 8.1.3.5 c
    if (octet > kIndefinite)
        return read_long_length(limit, element);
    ++at_;
    if (indefinite_)
        return true;
    element.length = octet;
    return element.length <= limit - at_ || fail_beyond(at_ - 1, limit, element.length);
}

bool Walker::read_long_length(std::size_t limit, Element &element) {
    const std::size_t begin = at_++;
    const std::size_t octets = token_[begin] - kIndefinite;
    if (octets > limit - at_)
        return fail(begin, GSSPASN_E_ENCODING, "the length has more octets than are there");
    for (const std::size_t end = at_ + octets; at_ != end;) {
        element.length = element.length << 8 | token_[at_++];
        if (element.length > limit - at_)
            return fail_beyond(begin, limit, element.length);
    }
    return true;
}

bool Walker::read_children(std::size_t limit, std::size_t depth, Element &parent) {
    const bool indefinite = indefinite_;
    const std::size_t end = indefinite ? limit : at_ + parent.length;
    while (indefinite ? at_ == end || token_[at_] != 0 : at_ != end) {
        const bool ok = read_element(end, depth + 1, parent.children);
        parent.length = indefinite ? at_ - parent.contents() : parent.length;
        if (!ok)
            return false;
    }
    if (!indefinite)
        return true;
    if (end - at_ < 2 || token_[at_ + 1] != 0)
        return fail(at_ + 1, GSSPASN_E_ENCODING, "the end of an indefinite length is two zero octets");
    at_ += 2;
    return true;
}

} // namespace

Walk walk_token(ByteView token) {
    return Walker(token).run();
}

} // namespace tools
