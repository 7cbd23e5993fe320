// The framework's buffers, names, OIDs and logon data, as a mechanism sees them: what is copied, what is refused with
// which status, what is wiped.
#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qxgss/qxatlogon.h"
#include "tests/support.h"

using namespace std::string_literals;
using namespace support;

namespace {

std::vector<std::string> wiped; // what the library wiped, as it was before

} // namespace

// Stands in for the C library's, so that wiping can be seen. Huge sizes must be refused by malloc, not end the test.
extern "C" __attribute__((visibility("default"))) void explicit_bzero(void *block, size_t length) noexcept {
    wiped.emplace_back(static_cast<char *>(block), length);
    std::memset(block, 0, length);
}
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

constexpr const char *kDone = "00000000/21000064";

std::vector<std::string> members(const qxgss_OID_set set) {
    std::vector<std::string> all;
    for (size_t i = 0; i < set->count; ++i)
        all.push_back(bytes_of(set->elements[i]));
    return all;
}

bool has_wiped(const std::string &secret) {
    return std::ranges::any_of(wiped, [&](const std::string &block) { return block.find(secret) != block.npos; });
}

// Whatever is refused leaves its outputs empty or, a set and an answer, as they were.
TEST(Framework, RefusesWhatIsMissingOrTooLarge) {
    char byte = 0;
    OM_uint32 length = 7;
    unsigned char *der = reinterpret_cast<unsigned char *>(&byte);
    const std::string a = "\x2a\x03";
    qxgss_buffer_desc to{1, &byte}, joe = view(a), huge{PTRDIFF_MAX, &byte}, without{3, nullptr};
    qxgss_OID_desc oid = oid_view(a), empty{}, no_bytes{2, nullptr};
    qxgss_OID type = GSS_C_NT_QXAT_MECHDATA;
    qxgss_name_t name = reinterpret_cast<qxgss_name_t>(&byte), copy = name;
    qxgss_name_element_desc elements[] = {{nullptr, joe}, {nullptr, huge}};
    qxgss_name_desc nameless{}, huge_name{2, elements, nullptr}, no_value{1, &elements[0], nullptr};
    qxgss_OID_set none = nullptr, set = nullptr;
    gssp_create_empty_oid_set(nullptr, &set);
    gssp_add_oid_set_member(nullptr, &oid, &set);
    OM_sint32 order = 7;
    int present = 7;
    gssp_utf_convert_flags_t flags{GSSP_UTF8, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION}, by_type = flags, to16 = flags;
    by_type.InputFormat = GSSP_UTF_BY_NAMETYPE;
    to16.OutputFormat = GSSP_UTF16;
    wiped.clear();
    expect_all("000D0000/E1000065",
               {outcome(gssp_duplicate_buffer, &huge, &to), outcome(qxgss_import_name, &huge, type, &name),
                outcome(gssp_duplicate_name, &huge_name, &copy)});
    expect_all("000D0000/E1000069",
               {without_each(qxgss_import_name, &joe, type, &name), outcome(qxgss_import_name, &without, type, &name),
                outcome(qxgss_import_name, &joe, &empty, &name)});
    expect_all("000D0000/E10000C0", {without_each(gssp_convertname_utf, &no_value, &to, &flags),
                                     outcome(gssp_convertname_utf, &nameless, &to, &flags),
                                     outcome(gssp_convertname_utf, &no_value, &to, &to16),
                                     outcome(gssp_convertname_utf, &no_value, &to, &by_type)});
    elements[0] = {type, {SIZE_MAX, &byte}};
    expect_all("000D0000/E1000065", {outcome(gssp_convertname_utf, &no_value, &to, &by_type)});
    elements[0] = {type, without};
    expect_all("000D0000/E10000C0", {outcome(gssp_convertname_utf, &no_value, &to, &flags)});
    expect_all("000D0000/E10000CD",
               {without_each(gssp_compare_oids, &oid, &oid, &order), outcome(gssp_compare_oids, &empty, &oid, &order),
                outcome(gssp_compare_oids, &oid, &no_bytes, &order), outcome(gssp_add_oid_set_member, &empty, &set),
                outcome(gssp_test_oid_set_member, &empty, set, &present)});
    expect_all("000D0000/E1000070",
               {outcome(gssp_create_empty_oid_set, nullptr), outcome(gssp_add_oid_set_member, &oid, &none)});
    EXPECT_EQ(without_each(gssp_add_oid_set_member, &oid, &set), "000D0000/E10000CD 000D0000/E1000070");
    EXPECT_EQ(without_each(gssp_test_oid_set_member, &oid, set, &present),
              "000D0000/E10000CD 000D0000/E1000070 000D0000/E1000071");
    EXPECT_EQ(without_each(gssp_duplicate_buffer, &huge, &to), "000D0000/E1000077");
    EXPECT_EQ(without_each(gssp_oidstr_to_oidder, 0, 0, "1.2", &length, &der), "000D0000/E1000081");
    EXPECT_EQ(outcome(gssp_duplicate_name, nullptr, nullptr), "000D0000/E100006B");
    EXPECT_EQ(outcome(gssp_duplicate_oid_set, nullptr, nullptr), "000D0000/E1000079");
    expect_all(kDone, {outcome(gssp_release_buffer, nullptr), outcome(gssp_release_secure_buffer, nullptr),
                       outcome(gssp_release_secure_buffer, &to), outcome(gssp_release_name, nullptr),
                       outcome(gssp_release_name, &copy), outcome(gssp_duplicate_name, nullptr, &copy),
                       outcome(gssp_release_oid_set, nullptr), outcome(qxgss_release_oid_set, &none)});
    to = {1, &byte};
    EXPECT_EQ(outcome(gssp_duplicate_buffer, &without, &to), kDone);
    EXPECT_TRUE(to.length == 0 && to.value == nullptr && name == nullptr && copy == nullptr);
    EXPECT_TRUE(order == 7 && present == 7 && length == 0 && der == nullptr);
    EXPECT_TRUE(has_wiped(a)); // what had been copied of the name
    EXPECT_EQ(members(set), std::vector<std::string>{a});
    gssp_release_oid_set(nullptr, &set);
}

TEST(Name, CopyOutlivesSourceAndForeignNameType) {
    std::string host = bytes_of(*GSS_C_NT_HOSTBASED_SERVICE), other = "\x2a\x03", third = "\x2b\x04\x05";
    auto *types = new qxgss_OID_desc[3]{oid_view(host), oid_view(other), oid_view(third)};
    // As a mechanism builds one: blocks of the C heap, name types of its own.
    auto *source = static_cast<qxgss_name_t>(std::calloc(1, sizeof(qxgss_name_desc)));
    *source = {4, static_cast<qxgss_name_element_t>(std::calloc(4, sizeof(qxgss_name_element_desc))), &types};
    source->pElements[0] = {&types[0], {3, strdup("joe")}};
    source->pElements[1] = {&types[1], {3, strdup("ann")}};
    source->pElements[2] = {&types[2], {}};
    qxgss_name_t copy = nullptr;
    EXPECT_EQ(outcome(gssp_duplicate_name, source, &copy), kDone);
    EXPECT_EQ(outcome(gssp_release_name, &source), kDone);
    EXPECT_EQ(source, nullptr);
    delete[] types;
    other = third = "gone";
    std::string all;
    for (const qxgss_name_element_desc &element : std::span(copy->pElements, copy->Count))
        all += text_of(element.Name) + "|" + (element.pNameType == nullptr ? "" : bytes_of(*element.pNameType)) + " ";
    EXPECT_EQ(all, "joe|" + host + " ann|\x2a\x03 |\x2b\x04\x05 | ");
    EXPECT_TRUE(copy->pGssName == nullptr && copy->pElements[0].pNameType == GSS_C_NT_HOSTBASED_SERVICE);
    wiped.clear();
    EXPECT_EQ(outcome(gssp_release_name, &copy), kDone);
    EXPECT_EQ(wiped, (std::vector<std::string>{"joe", "ann"}));
    qxgss_name_desc without{1, nullptr, nullptr};
    EXPECT_EQ(outcome(gssp_duplicate_name, &without, &copy), kDone);
    gssp_release_name(nullptr, &copy);
}

// Code units in an order of bytes; those of the host when not said otherwise.
std::string units(size_t size, const std::vector<uint32_t> &values, bool swapped = false) {
    std::string out;
    for (const uint32_t value : values)
        for (size_t i = 0; i < size; ++i)
            out += static_cast<char>(value >>
                                     (8 * ((std::endian::native == std::endian::big) != swapped ? size - 1 - i : i)));
    return out;
}

// The text, or "!" and the statuses.
std::string converted(const std::string &input, qxgss_OID type, gssp_utf_format_t format = GSSP_UTF_BY_NAMETYPE) {
    qxgss_name_t name = imported(input, type);
    const gssp_utf_convert_flags_t flags{format, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    qxgss_buffer_desc result{4, name};
    const std::string got = outcome(gssp_convertname_utf, name, &result, &flags);
    EXPECT_EQ(taken(name), input);
    EXPECT_TRUE(result.value == nullptr || static_cast<char *>(result.value)[result.length] == '\0');
    const std::string text = taken(result);
    return got == kDone ? text : "!" + got + text;
}
constexpr const char *kInvalid = "!000D0000/E10000C1", *kShort = "!000D0000/E10000C2";

// A text that touches every boundary of the encodings, cut at every byte: whole characters or "insufficient".
TEST(Utf, EveryPrefixOfAText) {
    const std::pair<uint32_t, std::string> characters[] = {
        {'a', "a"},         {0x7F, "\x7F"},     {0x80, "\u0080"},   {0x7FF, "\u07FF"},       {0x800, "\u0800"},
        {0xD7FF, "\uD7FF"}, {0xE000, "\uE000"}, {0xFFFF, "\uFFFF"}, {0x10000, "\U00010000"}, {0x10FFFF, "\U0010FFFF"},
        {0, "\0"s},         {0x20AC, "\u20AC"}};
    const std::pair<qxgss_OID, size_t> encodings[] = {{GSS_C_NT_QXAT_MECHDATA, 1},
                                                      {GSS_C_NT_QXAT_MECHDATA_UTF8, 1},
                                                      {GSS_C_NT_QXAT_MECHDATA_UTF16, 2},
                                                      {GSS_C_NT_QXAT_MECHDATA_UTF32, 4}};
    for (const auto &[type, unit] : encodings)
        for (const bool marked : {false, true}) {
            std::string done, whole;
            if (marked)
                done = unit == 1 ? "\xEF\xBB\xBF" : units(unit, {0xFEFF}, true);
            for (const auto &[point, utf8] : characters) {
                SCOPED_TRACE(std::to_string(unit) + " bytes, character " + std::to_string(point));
                std::string next = unit == 1 ? utf8 : units(unit, {point}, marked);
                if (unit == 2 && point > 0xFFFF)
                    next = units(2, {0xD7C0 + (point >> 10), 0xDC00 + (point & 0x3FF)}, marked);
                for (size_t cut = 1; cut < next.size(); ++cut)
                    EXPECT_EQ(converted(done + next.substr(0, cut), type), kShort) << cut;
                done += next;
                whole += utf8;
                EXPECT_EQ(converted(done, type), whole);
            }
        }
}

TEST(Utf, WhatIsRefused) {
    // Overlong, surrogates, above U+10FFFF, not continued.
    for (const char *input : {"\x80", "\xC1", "\xE0\x9F", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
                              "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "a\xBF", "\xC3@", "\xE2\x82\xC0"})
        EXPECT_EQ(converted(input, GSS_C_NT_HOSTBASED_SERVICE, GSSP_UTF8), kInvalid) << input;
    for (const std::vector<uint32_t> &input : {std::vector<uint32_t>{0xDC00, 'a'}, {0xDFFF}, {0xD800, 'a'}})
        EXPECT_EQ(converted(units(2, input), GSS_C_NT_HOSTBASED_SERVICE, GSSP_UTF16), kInvalid) << input[0];
    for (const uint32_t input : {0xD800U, 0xDFFFU, 0x110000U, 0x61000000U})
        EXPECT_EQ(converted(units(4, {input}), GSS_C_NT_HOSTBASED_SERVICE, GSSP_UTF32), kInvalid) << input;
    wiped.clear();
    EXPECT_EQ(converted(units(2, {'p', 'w', 0xDC00}), GSS_C_NT_QXAT_MECHDATA_UTF16), kInvalid);
    EXPECT_TRUE(has_wiped("pw"));
    EXPECT_EQ(converted("", GSS_C_NT_QXAT_MECHDATA_UTF16) + converted("\xFF\xFE", GSS_C_NT_QXAT_MECHDATA_UTF16), "");
    EXPECT_EQ(converted("joe", GSS_C_NT_QXAT_MECHDATA_UTF16, GSSP_UTF8), "joe"); // not the name type's
    EXPECT_EQ(converted("joe", GSS_C_NT_HOSTBASED_SERVICE), "!000D0000/E10000C0");
}

TEST(OidSet, KeepsOrderWhileItGrowsAndCopiesDeeply) {
    qxgss_OID_set set = nullptr, copy = nullptr;
    EXPECT_EQ(outcome(gssp_create_empty_oid_set, &set), kDone);
    std::vector<std::string> expected;
    for (char i = 1; i <= 33; ++i) {
        qxgss_OID_desc oid = oid_view(expected.emplace_back(1, i));
        int present = 7;
        gssp_test_oid_set_member(nullptr, &oid, set, &present);
        EXPECT_EQ(outcome(gssp_add_oid_set_member, &oid, &set) + std::to_string(present), kDone + "0"s);
    }
    expected.push_back(expected[0]);
    EXPECT_EQ(outcome(gssp_add_oid_set_member, &set->elements[0], &set), kDone); // a member of the set itself
    OM_sint32 order = 7, same = 7;
    gssp_compare_oids(nullptr, &set->elements[0], &set->elements[1], &order);
    gssp_compare_oids(nullptr, &set->elements[0], &set->elements[33], &same);
    EXPECT_TRUE(order != 0 && same == 0);
    EXPECT_EQ(outcome(gssp_duplicate_oid_set, set, &copy), kDone);
    EXPECT_EQ(outcome(gssp_release_oid_set, &set), kDone);
    EXPECT_EQ(members(copy), expected);
    EXPECT_EQ(outcome(qxgss_release_oid_set, &copy), kDone);
    EXPECT_TRUE(set == nullptr && copy == nullptr);
}

// The bytes, or "!" and the statuses.
std::string to_der(const char *oid) {
    OM_uint32 length = 7;
    unsigned char dirt = 0, *elements = &dirt;
    const std::string got = outcome(gssp_oidstr_to_oidder, 0, 0, oid, &length, &elements);
    EXPECT_EQ(elements != nullptr, got == kDone);
    const std::string der = bytes_of({length, elements});
    std::free(elements);
    return got == kDone ? der : "!" + got + der;
}

TEST(OidString, ToDer) {
    // clang-format off
    const std::pair<const char *, std::string> cases[] = {
        {"1.3.6.1.5.5.18", "\x2b\x06\x01\x05\x05\x12"},
        {"1.2.840.113554.1.2.1.4", bytes_of(*GSS_C_NT_HOSTBASED_SERVICE)}, {"0.0", "\0"s}, {"0.39.0", "\x27\0"s},
        {"1.39", "\x4f"}, {"2.47", "\x7f"}, {"2.48", "\x81\0"s},
        {"2.999.3", "\x88\x37\x03"}, // X.690 8.19.5
        {"2.4294967295", "\x90\x80\x80\x80\x4f"}, {"1.0.127.128.16383.16384", "\x28\x7f\x81\0\xff\x7f\x81\x80\0"s},
        {"1.0.4294967295", "\x28\x8f\xff\xff\xff\x7f"},
    };
    // clang-format on
    for (const auto &[oid, expected] : cases)
        EXPECT_EQ(to_der(oid), expected) << oid;
    for (const char *oid : {"", "1", "1.", ".1", "1..2", "1.2.", "3.1", "0.40", "1.02", "01.2", "-1", "1.-2", "1. 2",
                            "1.2a", "1.0.4294967296", "4294967296.1"})
        EXPECT_EQ(to_der(oid), "!000D0000/E1000081") << oid;
    EXPECT_EQ(to_der(nullptr), "!000D0000/E1000081");
}

// user|realm|password of each item, "-" for none; "" when the text is refused.
std::string parsed(const char *input, int flags) {
    qxat_logon_t logon = qxat_parse(input, static_cast<qxat_flags_t>(flags));
    std::string all;
    for (int i = 0; i < qxat_get_count(logon); ++i) {
        all += i == 0 ? "" : " ";
        for (auto get : {qxat_get_user, qxat_get_realm, qxat_get_password}) {
            const qxat_buffer_t part = get(logon, i);
            all += (get == qxat_get_user ? "" : "|") + (part == nullptr ? "-"s : std::string(part->kb_value));
            EXPECT_TRUE(part == nullptr || part->kb_length == std::strlen(part->kb_value)) << input;
        }
    }
    EXPECT_TRUE(qxat_get_user(logon, -1) == nullptr && qxat_get_user(logon, qxat_get_count(logon)) == nullptr);
    qxat_free(logon);
    return all;
}

TEST(Logon, Principals) {
    // clang-format off
    const std::pair<const char *, const char *> cases[] = {
        {"joe@@pw@x", "joe|-|pw@x"}, {"a@@b@@c", "a@|b|c"}, {"a@b@R@@c", "a@b|R|c"}, {"a@@@b", "a||b"},
        {"joe@", "joe||-"}, {"joe@@", "joe|-|"}, {"joe@R@@p,ann@@q,bob", "joe|R|p ann|-|q bob|-|-"},
        {"DOMAIN\\user@@p\\w", "DOMAIN\\user|-|p\\w"}, {"a\\\\\\", "a\\\\|-|-"},
        {"joe@@p\\@@w", "joe|-|p@@w"}, {"joe@\\@R", "joe|@R|-"}, {"jo\\\\@R", "jo\\|R|-"},
        {"jo\\,e,a\\'n\\\"n\\ ", "jo,e|-|- a'n\"n |-|-"},
        {"", ""}, {"@R", ""}, {"@@pw", ""}, {"joe,", ""}, {",joe", ""}, {"joe,,ann", ""}, {nullptr, ""},
    };
    // clang-format on
    for (const auto &[input, expected] : cases)
        EXPECT_EQ(parsed(input, QXAT_FLAG_UNESCAPE_ALL), expected) << expected;
    const char *escaped = "D\\u\\,@r\\,@@p\\,";
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_NONE), "D\\u\\,|r\\,|p\\,");
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_UNESCAPE_USER), "D\\u,|r\\,|p\\,");
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_UNESCAPE_PASSWORD), "D\\u\\,|r\\,|p,");
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_UNESCAPE_REALM), "D\\u\\,|r,|p\\,");
    char password[] = "\u00F6\\@\\ \\x\\\\w";
    qxat_buffer_desc buffer{password, sizeof password - 1, 0}, empty{};
    for (qxat_buffer_t each : {&buffer, &empty, static_cast<qxat_buffer_t>(nullptr)})
        qxat_unescape(each);
    EXPECT_EQ(std::string(buffer.kb_value, sizeof password), "\u00F6@ \\x\\w\0\0\0\0"s); // the rest is cleared
    EXPECT_TRUE(buffer.kb_length == 8 && buffer.kb_characters == 7);
    // The second is refused after the password was read.
    for (const auto &[text, items] : {std::pair{"joe@@secret", 1}, {"joe@@secret,", 0}}) {
        wiped.clear();
        qxat_logon_t logon = qxat_parse(text, QXAT_FLAG_NONE);
        EXPECT_EQ(qxat_get_count(logon), items);
        qxat_free(logon);
        EXPECT_TRUE(has_wiped("secret")) << text;
    }
}

} // namespace
