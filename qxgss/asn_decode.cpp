// Reads BER (X.690 8). Opening a token checks all of it, in one pass without recursion, and lays its elements out in
// one block in the order in which they come; a handle is the address of an element there, so lookups allocate nothing.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "qxgss/asn_octets.h"
#include "qxgss/gsspasn.h"
#include "qxgss/internal.h"

// One element. Distances are counted in elements from this one on, so the block may move while it grows. The block's
// first element stands for the token itself: its handle is the decoder's, and the outer element is its only child.
struct gsspasn_element_struct {
    const unsigned char *contents;
    OM_uint32 length; // kOpen before the end of an indefinite one
    OM_uint32 span;   // with all elements below: the distance to what follows
    OM_uint32 next;   // distance to the first child that is not yet passed over
    OM_uint32 children;
    unsigned char tag;
    bool constructed;
};

namespace {

using Element = gsspasn_element_struct;

constexpr unsigned char kTokenTag = 0xFF; // no element has it
constexpr std::size_t kSmallest = 8;
constexpr std::size_t kUsualBytes = 4; // of an element in a list of mechanisms, headers included
constexpr std::size_t kUsualMost = 1024;
constexpr std::size_t kMaxElements = 1 + GSSPASN_DECODE_MAX_ELEMENTS;
constexpr std::size_t kIndefinite = SIZE_MAX; // no length is as large as these two
constexpr std::size_t kRefused = SIZE_MAX - 1;
constexpr std::size_t kReserved = 0x7F; // of length octets, X.690 8.1.3.5 c
constexpr OM_uint32 kOpen = static_cast<OM_uint32>(kIndefinite);

// To tell places and faults costs instructions, of which a token that is only to be read takes none.
template <bool Tells> class Parser {
  public:
    explicit Parser(const qxgss_buffer_desc &token)
        : begin_(static_cast<const unsigned char *>(token.value)), at_(begin_), end_(at_ + token.length), limit_(end_) {
    }

    OM_uint32 run();
    Element *release() { return elements_.release(); }

    // After run: what it has read, also when that failed, and why it failed.
    OM_uint32 get_places(qxgss_buffer_t pPlaces);
    gsspasn_fault_desc fault() const;

  private:
    struct Open {
        OM_uint32 element;
        const unsigned char *limit; // of an indefinite length: that of the element around it
        bool indefinite;
    };

    // What is wrong and where. Of a length that is too large also how large it is, and how many octets there are.
    struct Fault {
        const unsigned char *at;
        const char *why;
        std::size_t length, there;
    };

    OM_uint32 fail(OM_uint32 status, const unsigned char *at, const char *why);
    std::size_t fail_length(const unsigned char *at, const char *why, std::size_t length = 0);
    OM_uint32 read_element();
    std::size_t read_length();
    std::size_t read_long_length(std::size_t octets);
    OM_uint32 add(unsigned char tag, bool constructed);
    bool grow();
    OM_uint32 enter(std::size_t length, const unsigned char *begin);
    bool at_end_of_contents() const;
    OM_uint32 close();

    const unsigned char *const begin_;
    const unsigned char *at_;
    const unsigned char *end_;
    const unsigned char *limit_; // of the innermost open element
    qxgss::Heap<Element[]> elements_;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
    Open open_[GSSPASN_DECODE_MAX_DEPTH];
    std::size_t depth_ = 0;
    Fault fault_{};
};

template <bool Tells> inline OM_uint32 Parser<Tells>::fail(OM_uint32 status, const unsigned char *at, const char *why) {
    if constexpr (Tells)
        fault_ = {at, why, 0, 0};
    return status;
}

template <bool Tells>
inline std::size_t Parser<Tells>::fail_length(const unsigned char *at, const char *why, std::size_t length) {
    if constexpr (Tells)
        fault_ = {at, why, length, static_cast<std::size_t>(limit_ - at_)};
    return kRefused;
}

template <bool Tells> OM_uint32 Parser<Tells>::run() {
    OM_uint32 status = add(kTokenTag, true);
    if (status != GSSPASN_E_SUCCESS)
        return status;
    do {
        status = read_element();
        while (status == GSSPASN_E_SUCCESS && depth_ != 0 && at_end_of_contents())
            status = close();
    } while (status == GSSPASN_E_SUCCESS && depth_ != 0);
    if (status != GSSPASN_E_SUCCESS)
        return status;
    elements_[0].span = static_cast<OM_uint32>(count_);
    return at_ == end_ ? GSSPASN_E_SUCCESS : fail(GSSPASN_E_ENCODING, at_, "more bytes follow the outer element");
}

template <bool Tells> inline OM_uint32 Parser<Tells>::read_element() {
    if (at_ == limit_)
        return fail(GSSPASN_E_ENCODING, at_, "an element should begin here");
    const unsigned char *const begin = at_;
    const unsigned identifier = *at_++;
    if ((identifier & qxgss::kClassMask) != qxgss::kContextSpecific)
        return fail(GSSPASN_E_CLASS_INVALID, begin, "the element's class is not context-specific");
    if ((identifier & qxgss::kTagMask) > qxgss::kMaxTag)
        return fail(GSSPASN_E_TAG_INVALID, begin, "the tag number is 31 or above");
    const bool constructed = (identifier & qxgss::kConstructed) != 0;
    const std::size_t length = read_length();
    if (length == kRefused)
        return GSSPASN_E_ENCODING;
    if (length == kIndefinite && !constructed)
        return fail(GSSPASN_E_ENCODING, begin + 1, "a primitive element has an indefinite length");
    const OM_uint32 status = add(static_cast<unsigned char>(identifier & qxgss::kTagMask), constructed);
    if (status != GSSPASN_E_SUCCESS)
        return fail(status, begin, status == GSSPASN_E_STACK_FULL ? "more than 16384 elements" : "");
    ++elements_[depth_ == 0 ? 0 : open_[depth_ - 1].element].children;
    if (constructed)
        return enter(length, begin);
    elements_[count_ - 1].length = static_cast<OM_uint32>(length);
    at_ += length;
    return GSSPASN_E_SUCCESS;
}

// A length that fits before the limit, or one of the two.
template <bool Tells> inline std::size_t Parser<Tells>::read_length() {
    if (at_ == limit_)
        return fail_length(at_, "a length should follow");
    const std::size_t length = *at_++;
    if (length == qxgss::kLongLength)
        return kIndefinite;
    if (length > qxgss::kLongLength)
        return read_long_length(length - qxgss::kLongLength);
    if (length > static_cast<std::size_t>(limit_ - at_))
        return fail_length(at_ - 1, "", length);
    return length;
}

// Leading zero octets are BER, if not DER.
template <bool Tells> std::size_t Parser<Tells>::read_long_length(std::size_t octets) {
    const unsigned char *const begin = at_ - 1;
    if (octets == kReserved)
        return fail_length(begin, "a length octet has the reserved value FF");
    if (octets > static_cast<std::size_t>(limit_ - at_))
        return fail_length(begin, "the length has more octets than are there");
    std::size_t length = 0;
    for (; octets != 0; --octets) {
        length = length << 8 | *at_++;
        if (length > static_cast<std::size_t>(limit_ - at_)) // more octets make it no smaller: nothing overflows
            return fail_length(begin, "", length);
    }
    return length;
}

template <bool Tells> inline OM_uint32 Parser<Tells>::add(unsigned char tag, bool constructed) {
    if (count_ == capacity_) {
        if (count_ == kMaxElements)
            return GSSPASN_E_STACK_FULL;
        if (!grow())
            return GSSPASN_E_NO_MEMORY;
    }
    elements_[count_++] = {at_, 0, 1, 1, 0, tag, constructed};
    return GSSPASN_E_SUCCESS;
}

// The first block suits the token's length, so that a usual one needs no other; a long one may be one long text.
template <bool Tells> bool Parser<Tells>::grow() {
    const std::size_t usual = std::min(kSmallest + static_cast<std::size_t>(end_ - at_) / kUsualBytes, kUsualMost);
    const std::size_t capacity = std::min(capacity_ == 0 ? usual : 2 * capacity_, kMaxElements);
    void *elements = std::realloc(elements_.get(), capacity * sizeof(Element));
    if (elements == nullptr)
        return false;
    static_cast<void>(elements_.release());
    elements_.reset(static_cast<Element *>(elements));
    capacity_ = capacity;
    return true;
}

template <bool Tells> inline OM_uint32 Parser<Tells>::enter(std::size_t length, const unsigned char *begin) {
    if (depth_ == GSSPASN_DECODE_MAX_DEPTH)
        return fail(GSSPASN_E_STACK_FULL, begin, "elements are nested more than 16 deep");
    if constexpr (Tells)
        elements_[count_ - 1].length = static_cast<OM_uint32>(length);
    const bool indefinite = length == kIndefinite;
    if (!indefinite)
        limit_ = at_ + length;
    open_[depth_++] = {static_cast<OM_uint32>(count_ - 1), limit_, indefinite};
    return GSSPASN_E_SUCCESS;
}

template <bool Tells> inline bool Parser<Tells>::at_end_of_contents() const {
    return open_[depth_ - 1].indefinite ? at_ != limit_ && *at_ == 0 : at_ == limit_;
}

template <bool Tells> inline OM_uint32 Parser<Tells>::close() {
    const Open &open = open_[--depth_];
    elements_[open.element].span = static_cast<OM_uint32>(count_) - open.element;
    if (open.indefinite) { // two zero octets, X.690 8.1.5
        if (limit_ - at_ < 2 || at_[1] != 0)
            return fail(GSSPASN_E_ENCODING, at_ + 1, "the end of an indefinite length is two zero octets");
        if constexpr (Tells)
            elements_[open.element].length = static_cast<OM_uint32>(at_ - elements_[open.element].contents);
        at_ += 2;
    }
    limit_ = depth_ == 0 ? end_ : open_[depth_ - 1].limit;
    return GSSPASN_E_SUCCESS;
}

// An element begins where the one before it ends, the first in another where the contents of that begin; between them
// stand at most the zero octets that end indefinite lengths, with which no element begins.
template <bool Tells> OM_uint32 Parser<Tells>::get_places(qxgss_buffer_t pPlaces) {
    for (; depth_ != 0; --depth_)
        elements_[open_[depth_ - 1].element].span = static_cast<OM_uint32>(count_) - open_[depth_ - 1].element;
    if (count_ < 2)
        return GSSPASN_E_SUCCESS;
    auto places = qxgss::zeroed<gsspasn_place_desc>(count_ - 1);
    if (places == nullptr)
        return GSSPASN_E_NO_MEMORY;
    const unsigned char *at = begin_;
    for (std::size_t i = 1; i < count_; ++i) {
        const Element &element = elements_[i];
        while (*at == 0)
            ++at;
        const std::size_t length =
            element.length == kOpen ? static_cast<std::size_t>(at_ - element.contents) : element.length;
        places[i - 1] = {static_cast<std::size_t>(at - begin_),
                         static_cast<std::size_t>(element.contents - at),
                         length,
                         element.tag,
                         element.span,
                         element.constructed ? 1 : 0};
        at = element.contents + (element.constructed ? 0 : length);
    }
    *pPlaces = {(count_ - 1) * sizeof(gsspasn_place_desc), places.release()};
    return GSSPASN_E_SUCCESS;
}

template <bool Tells> gsspasn_fault_desc Parser<Tells>::fault() const {
    gsspasn_fault_desc fault{static_cast<std::size_t>(fault_.at - begin_), {}};
    if (fault_.length == 0)
        std::snprintf(fault.szWhy, sizeof fault.szWhy, "%s", fault_.why);
    else
        std::snprintf(fault.szWhy, sizeof fault.szWhy, "the length is %zu, and only %zu bytes follow%s", fault_.length,
                      fault_.there, limit_ == end_ ? "" : " in the element around it");
    return fault;
}

bool is_token(gsspasn_decoding_t handle) {
    return handle != nullptr && handle->tag == kTokenTag;
}

bool is_parent(gsspasn_decoding_t handle) {
    return handle != nullptr && handle->tag != kTokenTag;
}

// Searches on from the parent's `next`, which only `pass` moves: what fails leaves every child to later requests.
inline OM_uint32 find(Element &parent, OM_uint32 tag, bool constructed, Element **ppChild) {
    if (tag > qxgss::kMaxTag)
        return GSSPASN_E_TAG_INVALID;
    for (OM_uint32 at = parent.next; at != parent.span; at += (&parent)[at].span) {
        Element &child = (&parent)[at];
        if (child.tag != tag)
            continue;
        if (child.constructed != constructed)
            return constructed ? GSSPASN_E_NOT_SEQUENCE : GSSPASN_E_NOT_ITEM;
        *ppChild = &child;
        return GSSPASN_E_SUCCESS;
    }
    return GSSPASN_E_TAG_NOT_FOUND;
}

void pass(Element &parent, const Element &child) {
    parent.next = static_cast<OM_uint32>(&child - &parent) + child.span;
}

OM_uint32 get_sequence(Element &parent, OM_uint32 tag, gsspasn_decoding_t *pChildren, OM_uint32 *pCount) {
    if (pChildren == nullptr || pCount == nullptr)
        return GSSPASN_E_ARGUMENT;
    const OM_uint32 status = find(parent, tag, true, pChildren);
    if (status == GSSPASN_E_SUCCESS)
        *pCount = (*pChildren)->children;
    return status;
}

// Contents of a non-negative value (X.690 8.3) that has 32 bits at most.
OM_uint32 read_integer(const Element &item, void *pValue) {
    const unsigned char *contents = item.contents;
    const bool sign_only = item.length > 1 && contents[0] == 0;
    if (item.length == 0 || item.length > (sign_only ? 5 : 4) || (contents[0] & 0x80) != 0)
        return GSSPASN_E_ENCODING;
    if (sign_only && (contents[1] & 0x80) == 0) // X.690 8.3.2
        return GSSPASN_E_ENCODING;
    OM_uint32 value = 0;
    for (OM_uint32 i = 0; i != item.length; ++i)
        value = value << 8 | contents[i];
    std::memcpy(pValue, &value, sizeof value); // the caller's may be an enumeration
    return GSSPASN_E_SUCCESS;
}

OM_uint32 get_integer(Element &parent, const Element &item, void *pValue) {
    const OM_uint32 status = read_integer(item, pValue);
    if (status == GSSPASN_E_SUCCESS)
        pass(parent, item);
    return status;
}

// OCTET STRING and OBJECT IDENTIFIER: a length and a block of their own, none for an empty one. Not inline, so that
// the other items need none of the registers that a call of the allocator wants kept.
template <typename Descriptor>
[[gnu::noinline]] OM_uint32 get_bytes(Element &parent, const Element &item, void *pValue) {
    void *copy = nullptr;
    if (item.length != 0) {
        copy = std::malloc(item.length);
        if (copy == nullptr)
            return GSSPASN_E_NO_MEMORY;
        std::memcpy(copy, item.contents, item.length);
    }
    *static_cast<Descriptor *>(pValue) = {item.length, copy};
    pass(parent, item);
    return GSSPASN_E_SUCCESS;
}

// The item types are also those that a mechanism may count on in any framework: there are no others.
bool is_item_type(OM_uint32 ItemType) {
    return ItemType == GSSPASN_INTEGER || ItemType == GSSPASN_OCTET_STRING || ItemType == GSSPASN_OBJECT_IDENTIFIER;
}

bool is_readable(const qxgss_buffer_desc *pToken) {
    return pToken != nullptr && (pToken->value != nullptr || pToken->length == 0);
}

} // namespace

OM_uint32 gsspasn_open_decode_handle(gsspasn_decoding_t *pHandle, const qxgss_buffer_t pToken) {
    if (pHandle == nullptr)
        return GSSPASN_E_ARGUMENT;
    *pHandle = nullptr;
    if (!is_readable(pToken))
        return GSSPASN_E_ARGUMENT;
    if (pToken->length > GSSPASN_DECODE_MAX_TOKEN)
        return GSSPASN_E_ENCODING;
    Parser<false> parser(*pToken);
    const OM_uint32 status = parser.run();
    if (status == GSSPASN_E_SUCCESS)
        *pHandle = parser.release();
    return status;
}

OM_uint32 gsspasn_set_decode_tagging(gsspasn_decoding_t Handle, OM_uint32 Tagging) {
    if (!is_token(Handle))
        return GSSPASN_E_NO_HANDLE;
    return Tagging == GSSP_TAGGING_IMPLICIT ? GSSPASN_E_SUCCESS : GSSPASN_E_ARGUMENT;
}

OM_uint32 gsspasn_get_top_decode_sequence(gsspasn_decoding_t Handle, OM_uint32 Tag, gsspasn_decoding_t *pChildren,
                                          OM_uint32 *pCount) {
    return is_token(Handle) ? get_sequence(*Handle, Tag, pChildren, pCount) : GSSPASN_E_NO_HANDLE;
}

OM_uint32 gsspasn_get_decode_sequence(gsspasn_decoding_t Handle, OM_uint32 Tag, gsspasn_decoding_t *pChildren,
                                      OM_uint32 *pCount) {
    if (!is_parent(Handle))
        return GSSPASN_E_NO_HANDLE;
    const OM_uint32 status = get_sequence(*Handle, Tag, pChildren, pCount);
    if (status == GSSPASN_E_SUCCESS)
        pass(*Handle, **pChildren);
    return status;
}

OM_uint32 gsspasn_get_decode_item(gsspasn_decoding_t Handle, OM_uint32 Tag, OM_uint32 ItemType, void *pValue) {
    if (!is_parent(Handle))
        return GSSPASN_E_NO_HANDLE;
    if (pValue == nullptr)
        return GSSPASN_E_ARGUMENT;
    if (!is_item_type(ItemType))
        return GSSPASN_E_ITEM_TYPE;
    Element *item = nullptr;
    const OM_uint32 status = find(*Handle, Tag, false, &item);
    if (status != GSSPASN_E_SUCCESS)
        return status;
    switch (ItemType) {
    case GSSPASN_INTEGER:
        return get_integer(*Handle, *item, pValue);
    case GSSPASN_OCTET_STRING:
        return get_bytes<qxgss_buffer_desc>(*Handle, *item, pValue);
    default:
        return get_bytes<qxgss_OID_desc>(*Handle, *item, pValue);
    }
}

OM_uint32 gsspasn_get_decode_contents(gsspasn_decoding_t Handle, OM_uint32 Tag, qxgss_buffer_t pContents) {
    if (!is_parent(Handle))
        return GSSPASN_E_NO_HANDLE;
    if (pContents == nullptr)
        return GSSPASN_E_ARGUMENT;
    Element *item = nullptr;
    const OM_uint32 status = find(*Handle, Tag, false, &item);
    if (status != GSSPASN_E_SUCCESS)
        return status;
    *pContents = {item->length, const_cast<unsigned char *>(item->contents)};
    pass(*Handle, *item);
    return GSSPASN_E_SUCCESS;
}

OM_uint32 gsspasn_close_decode_handle(gsspasn_decoding_t *pHandle) {
    if (pHandle == nullptr || !is_token(*pHandle))
        return GSSPASN_E_NO_HANDLE;
    const qxgss::Heap<Element[]> elements(*pHandle);
    *pHandle = nullptr;
    return GSSPASN_E_SUCCESS;
}

OM_uint32 gsspasn_inspect_token(const qxgss_buffer_t pToken, qxgss_buffer_t pPlaces, gsspasn_fault_desc *pFault) {
    if (pPlaces != nullptr)
        *pPlaces = {};
    if (pFault != nullptr)
        *pFault = {};
    if (pPlaces == nullptr || pFault == nullptr || !is_readable(pToken))
        return GSSPASN_E_ARGUMENT;
    if (pToken->length > GSSPASN_DECODE_MAX_TOKEN) {
        *pFault = {GSSPASN_DECODE_MAX_TOKEN, "the token is larger than 1 MiB"};
        return GSSPASN_E_ENCODING;
    }
    Parser<true> parser(*pToken);
    const OM_uint32 status = parser.run();
    if (status == GSSPASN_E_NO_MEMORY || parser.get_places(pPlaces) != GSSPASN_E_SUCCESS)
        return GSSPASN_E_NO_MEMORY;
    if (status != GSSPASN_E_SUCCESS)
        *pFault = parser.fault();
    return status;
}
