// The framework's buffers, names, OIDs and logon data, as a mechanism sees them: what is copied, what is refused with
// which status, what is wiped.

#include <bit>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qxgss/gssp.h"
#include "qxgss/qxatlogon.h"

using namespace std::string_literals;

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

constexpr OM_uint32 kSuccess = 0x21000064U;
constexpr OM_uint32 kNoMemory = 0xE1000065U;
constexpr OM_uint32 kInvalid = 0xE10000C1U;
constexpr OM_uint32 kShort = 0xE10000C2U;
constexpr size_t kHuge = PTRDIFF_MAX;

qxgss_buffer_desc buffer_of(const std::string &text) {
    return {text.size(), const_cast<char *>(text.data())};
}

qxgss_OID_desc oid_of(const std::string &bytes) {
    return {static_cast<OM_uint32>(bytes.size()), const_cast<char *>(bytes.data())};
}

void *heap(const std::string &bytes) {
    return std::memcpy(std::malloc(bytes.size()), bytes.data(), bytes.size());
}

std::string text(const qxgss_buffer_desc &buffer) {
    return {static_cast<char *>(buffer.value), buffer.length};
}

std::string bytes(const qxgss_OID_desc &oid) {
    return {static_cast<char *>(oid.elements), oid.length};
}

std::vector<std::string> members(const qxgss_OID_set set) {
    std::vector<std::string> all;
    for (size_t i = 0; i < set->count; ++i)
        all.push_back(bytes(set->elements[i]));
    return all;
}

qxgss_name_t name_of(const std::string &name_text, qxgss_OID type) {
    qxgss_buffer_desc input = buffer_of(name_text);
    qxgss_name_t name = nullptr;
    EXPECT_EQ(qxgss_import_name(nullptr, &input, type, &name), GSS_S_COMPLETE);
    return name;
}

bool has_wiped(const std::string &secret) {
    for (const std::string &block : wiped)
        if (block.find(secret) != std::string::npos)
            return true;
    return false;
}

// A call with a minor status that must be overwritten.
#define EXPECT_STATUS(major, minor, call)                                                                              \
    do {                                                                                                               \
        OM_uint32 Minor = 1;                                                                                           \
        EXPECT_EQ(call, major);                                                                                        \
        EXPECT_EQ(Minor, minor);                                                                                       \
    } while (false)
#define EXPECT_SUCCESS(call) EXPECT_STATUS(GSS_S_COMPLETE, kSuccess, call)
#define EXPECT_FAILURE(minor, call) EXPECT_STATUS(GSS_S_FAILURE, minor, call)

TEST(Buffer, IsCopiedDeeply) {
    std::string source = "a\0b"s;
    qxgss_buffer_desc from = buffer_of(source), to{};
    EXPECT_SUCCESS(gssp_duplicate_buffer(&Minor, &from, &to));
    source[0] = 'X';
    EXPECT_EQ(text(to), "a\0b"s);
    EXPECT_SUCCESS(gssp_release_buffer(&Minor, &to));
    EXPECT_EQ(to.value, nullptr);
    EXPECT_EQ(to.length, 0U);
}

TEST(Buffer, EmptyOrNullOrTooLarge) {
    char byte = 0;
    for (qxgss_buffer_desc empty : {qxgss_buffer_desc{}, {0, &byte}, {5, nullptr}}) {
        qxgss_buffer_desc to{1, &byte};
        EXPECT_SUCCESS(gssp_duplicate_buffer(&Minor, &empty, &to));
        EXPECT_TRUE(to.value == nullptr && to.length == 0);
    }
    qxgss_buffer_desc to{1, &byte}, huge{kHuge, &byte};
    EXPECT_FAILURE(0xE1000077U, gssp_duplicate_buffer(&Minor, &huge, nullptr));
    EXPECT_FAILURE(0xE1000077U, gssp_duplicate_buffer(&Minor, nullptr, &to));
    EXPECT_TRUE(to.value == nullptr && to.length == 0);
    to = {1, &byte};
    EXPECT_FAILURE(kNoMemory, gssp_duplicate_buffer(&Minor, &huge, &to));
    EXPECT_TRUE(to.value == nullptr && to.length == 0);
    EXPECT_SUCCESS(gssp_release_buffer(&Minor, nullptr));
    EXPECT_SUCCESS(gssp_release_secure_buffer(&Minor, nullptr));
    EXPECT_SUCCESS(gssp_release_secure_buffer(&Minor, &to));
}

TEST(Buffer, SecureReleaseWipesExactlyTheLength) {
    wiped.clear();
    qxgss_buffer_desc secret{6, heap("secretX")}, unused{0, heap("x")};
    EXPECT_SUCCESS(gssp_release_secure_buffer(&Minor, &secret));
    EXPECT_EQ(gssp_release_secure_buffer(nullptr, &unused), GSS_S_COMPLETE);
    EXPECT_EQ(wiped, std::vector<std::string>{"secret"});
    EXPECT_TRUE(secret.value == nullptr && secret.length == 0 && unused.value == nullptr);
}

TEST(Name, ImportRefusesWhatIsMissing) {
    qxgss_buffer_desc joe = buffer_of("joe"), without{3, nullptr}, huge{kHuge, joe.value};
    qxgss_OID_desc empty{};
    qxgss_name_t name = reinterpret_cast<qxgss_name_t>(&empty);
    qxgss_OID type = GSS_C_NT_QXAT_MECHDATA;
    EXPECT_FAILURE(0xE1000069U, qxgss_import_name(&Minor, &joe, type, nullptr));
    EXPECT_FAILURE(0xE1000069U, qxgss_import_name(&Minor, nullptr, type, &name));
    EXPECT_EQ(name, nullptr);
    EXPECT_FAILURE(0xE1000069U, qxgss_import_name(&Minor, &without, type, &name));
    EXPECT_FAILURE(0xE1000069U, qxgss_import_name(&Minor, &joe, nullptr, &name));
    EXPECT_FAILURE(0xE1000069U, qxgss_import_name(&Minor, &joe, &empty, &name));
    EXPECT_FAILURE(kNoMemory, qxgss_import_name(&Minor, &huge, type, &name));
    EXPECT_EQ(name, nullptr);
}

TEST(Name, CopyOutlivesSourceAndForeignNameType) {
    std::string host = bytes(*GSS_C_NT_HOSTBASED_SERVICE), other = "\x2a\x03", third = "\x2b\x04\x05";
    auto *types = new qxgss_OID_desc[3]{oid_of(host), oid_of(other), oid_of(third)};
    // As a mechanism builds one: blocks of the C heap, name types of its own.
    auto *source = static_cast<qxgss_name_t>(std::calloc(1, sizeof(qxgss_name_desc)));
    source->Count = 4;
    source->pElements = static_cast<qxgss_name_element_t>(std::calloc(4, sizeof(qxgss_name_element_desc)));
    source->pElements[0] = {&types[0], {3, heap("joe")}};
    source->pElements[1] = {&types[1], {3, heap("ann")}};
    source->pElements[2] = {&types[2], {}};
    int anything = 0;
    source->pGssName = &anything;
    qxgss_name_t copy = nullptr;
    EXPECT_SUCCESS(gssp_duplicate_name(&Minor, source, &copy));
    EXPECT_SUCCESS(gssp_release_name(&Minor, &source));
    EXPECT_EQ(source, nullptr);
    delete[] types;
    other = third = "gone";
    ASSERT_EQ(copy->Count, 4U);
    EXPECT_EQ(copy->pGssName, nullptr);
    EXPECT_EQ(text(copy->pElements[0].Name), "joe");
    EXPECT_EQ(copy->pElements[0].pNameType, GSS_C_NT_HOSTBASED_SERVICE);
    EXPECT_EQ(text(copy->pElements[1].Name), "ann");
    EXPECT_EQ(bytes(*copy->pElements[1].pNameType), "\x2a\x03");
    EXPECT_EQ(bytes(*copy->pElements[2].pNameType), "\x2b\x04\x05");
    EXPECT_EQ(copy->pElements[2].Name.value, nullptr);
    EXPECT_EQ(copy->pElements[3].pNameType, nullptr);
    wiped.clear();
    EXPECT_SUCCESS(gssp_release_name(&Minor, &copy));
    EXPECT_EQ(wiped, (std::vector<std::string>{"joe", "ann"}));
}

TEST(Name, EmptyNullAndTooLarge) {
    int dirt = 0;
    qxgss_name_t copy = reinterpret_cast<qxgss_name_t>(&dirt);
    EXPECT_SUCCESS(gssp_duplicate_name(&Minor, nullptr, &copy));
    EXPECT_EQ(copy, nullptr);
    EXPECT_FAILURE(0xE100006BU, gssp_duplicate_name(&Minor, nullptr, nullptr));
    EXPECT_SUCCESS(gssp_release_name(&Minor, nullptr));
    EXPECT_SUCCESS(gssp_release_name(&Minor, &copy));
    qxgss_name_desc without{1, nullptr, nullptr};
    EXPECT_SUCCESS(gssp_duplicate_name(&Minor, &without, &copy));
    EXPECT_EQ(copy->Count, 0U);
    gssp_release_name(nullptr, &copy);
    std::string first = "secret";
    qxgss_name_element_desc elements[] = {{nullptr, buffer_of(first)}, {nullptr, {kHuge, first.data()}}};
    qxgss_name_desc huge{2, elements, nullptr};
    wiped.clear();
    EXPECT_FAILURE(kNoMemory, gssp_duplicate_name(&Minor, &huge, &copy));
    EXPECT_EQ(copy, nullptr);
    EXPECT_TRUE(has_wiped("secret"));
}

// Code units in an order of bytes; those of the host when not said otherwise.
std::string units(size_t size, const std::vector<uint32_t> &values, bool swapped = false) {
    std::string out;
    for (const uint32_t value : values) {
        std::string unit(size, '\0');
        for (size_t i = 0; i < size; ++i)
            unit[(std::endian::native == std::endian::big) != swapped ? size - 1 - i : i] =
                static_cast<char>(value >> (8 * i));
        out += unit;
    }
    return out;
}

// The minor status, and the text.
OM_uint32 convert(const std::string &input, qxgss_OID type, std::string &output,
                  gssp_utf_format_t format = GSSP_UTF_BY_NAMETYPE) {
    qxgss_name_t name = name_of(input, type);
    const gssp_utf_convert_flags_t flags{format, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    int dirt = 0;
    qxgss_buffer_desc result{4, &dirt};
    OM_uint32 minor = 1;
    const OM_uint32 major = gssp_convertname_utf(&minor, name, &result, &flags);
    EXPECT_EQ(major, minor == kSuccess ? GSS_S_COMPLETE : GSS_S_FAILURE);
    EXPECT_EQ(text(name->pElements[0].Name), input);
    output = text(result);
    EXPECT_TRUE(result.value == nullptr || static_cast<char *>(result.value)[result.length] == '\0');
    gssp_release_buffer(nullptr, &result);
    gssp_release_name(nullptr, &name);
    return minor;
}

// A text that touches every boundary of the encodings, cut at every byte: whole characters or "insufficient".
TEST(Utf, EveryPrefixOfAText) {
    const std::vector<std::string> characters = {"a",      "\x7F",   "\u0080",     "\u07FF",     "\u0800", "\uD7FF",
                                                 "\uE000", "\uFFFF", "\U00010000", "\U0010FFFF", "\0"s,    "\u20AC"};
    const std::vector<uint32_t> points = {'a',    0x7F,   0x80,    0x7FF,    0x800, 0xD7FF,
                                          0xE000, 0xFFFF, 0x10000, 0x10FFFF, 0,     0x20AC};
    const struct {
        qxgss_OID type;
        size_t unit;
    } encodings[] = {{GSS_C_NT_QXAT_MECHDATA, 1},
                     {GSS_C_NT_QXAT_MECHDATA_UTF8, 1},
                     {GSS_C_NT_QXAT_MECHDATA_UTF16, 2},
                     {GSS_C_NT_QXAT_MECHDATA_UTF32, 4}};
    for (const auto &encoding : encodings)
        for (const bool marked : {false, true}) {
            std::string done, whole, output;
            if (marked)
                done = encoding.unit == 1 ? "\xEF\xBB\xBF" : units(encoding.unit, {0xFEFF}, true);
            for (size_t i = 0; i < points.size(); ++i) {
                std::string next = units(encoding.unit, {points[i]}, marked);
                if (encoding.unit == 1)
                    next = characters[i];
                if (encoding.unit == 2 && points[i] > 0xFFFF)
                    next = units(2, {0xD7C0 + (points[i] >> 10), 0xDC00 + (points[i] & 0x3FF)}, marked);
                for (size_t cut = 1; cut < next.size(); ++cut)
                    EXPECT_EQ(convert(done + next.substr(0, cut), encoding.type, output), kShort)
                        << "unit " << encoding.unit << " character " << i << " cut " << cut;
                done += next;
                whole += characters[i];
                EXPECT_EQ(convert(done, encoding.type, output), kSuccess)
                    << "unit " << encoding.unit << " character " << i;
                EXPECT_EQ(output, whole) << encoding.unit;
            }
        }
}

TEST(Utf, WhatIsRefused) {
    // Overlong, surrogates, above U+10FFFF, not continued.
    const std::vector<std::string> utf8 = {"\x80",
                                           "\xC0\x80",
                                           "\xC1",
                                           "\xE0\x9F\xBF",
                                           "\xE0\x9F",
                                           "\xF0\x8F\xBF\xBF",
                                           "\xED\xA0\x80",
                                           "\xED\xBF\xBF",
                                           "\xF4\x90\x80\x80",
                                           "\xF5\x80\x80\x80",
                                           "\xFF",
                                           "a\xBF",
                                           "\xC3@",
                                           "\xE2\x82@",
                                           "\xE2\x82\xC0",
                                           "\xF0\x90@\x80"};
    const std::vector<std::vector<uint32_t>> utf16 = {{0xDC00, 'a'}, {0xDFFF}, {0xD800, 'a'}, {0xDBFF, 0xD800}};
    const std::vector<std::vector<uint32_t>> utf32 = {{0xD800}, {0xDFFF}, {0x110000}, {'a' << 24}};
    std::string output;
    for (size_t i = 0; i < utf8.size(); ++i)
        EXPECT_EQ(convert(utf8[i], GSS_C_NT_HOSTBASED_SERVICE, output, GSSP_UTF8), kInvalid) << "UTF-8 " << i;
    for (size_t i = 0; i < utf16.size(); ++i)
        EXPECT_EQ(convert(units(2, utf16[i]), GSS_C_NT_HOSTBASED_SERVICE, output, GSSP_UTF16), kInvalid) << i;
    for (size_t i = 0; i < utf32.size(); ++i)
        EXPECT_EQ(convert(units(4, utf32[i]), GSS_C_NT_HOSTBASED_SERVICE, output, GSSP_UTF32), kInvalid) << i;
    EXPECT_EQ(output, "");
    wiped.clear();
    EXPECT_EQ(convert(units(2, {'p', 'w', 0xDC00}), GSS_C_NT_QXAT_MECHDATA_UTF16, output), kInvalid);
    EXPECT_TRUE(has_wiped("pw"));
}

TEST(Utf, Arguments) {
    constexpr OM_uint32 bad = 0xE10000C0U;
    std::string output;
    EXPECT_EQ(convert("", GSS_C_NT_QXAT_MECHDATA_UTF16, output), kSuccess);
    EXPECT_EQ(convert("joe", GSS_C_NT_HOSTBASED_SERVICE, output), bad);
    qxgss_name_t name = name_of("joe", GSS_C_NT_QXAT_MECHDATA_UTF16);
    qxgss_name_desc empty{};
    qxgss_name_element_desc without{GSS_C_NT_QXAT_MECHDATA, {3, nullptr}}, typeless{nullptr, name->pElements[0].Name};
    qxgss_name_desc no_value{1, &without, nullptr}, no_type{1, &typeless, nullptr};
    gssp_utf_convert_flags_t flags{GSSP_UTF8, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    int dirt = 0;
    qxgss_buffer_desc result{4, &dirt};
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, nullptr, &result, &flags));
    EXPECT_EQ(result.value, nullptr);
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, name, nullptr, &flags));
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, name, &result, nullptr));
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, &empty, &result, &flags));
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, &no_value, &result, &flags));
    EXPECT_SUCCESS(gssp_convertname_utf(&Minor, name, &result, &flags)); // the format given, not the name type's
    EXPECT_EQ(text(result), "joe");
    gssp_release_buffer(nullptr, &result);
    flags.OutputFormat = GSSP_UTF16;
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, name, &result, &flags));
    flags = {};
    flags.OutputFormat = GSSP_UTF8;
    EXPECT_FAILURE(bad, gssp_convertname_utf(&Minor, &no_type, &result, &flags));
    typeless = {GSS_C_NT_QXAT_MECHDATA, {kHuge, &dirt}};
    EXPECT_FAILURE(kNoMemory, gssp_convertname_utf(&Minor, &no_type, &result, &flags));
    gssp_release_name(nullptr, &name);
}

TEST(Oid, Compare) {
    std::string a = "\x2a\x03", b = "\x2a\x04", longer = "\x2a\x03\x01";
    qxgss_OID_desc first = oid_of(a), same = first, other = oid_of(b), long_one = oid_of(longer), empty{},
                   no_bytes{2, nullptr};
    OM_sint32 result = 7;
    EXPECT_SUCCESS(gssp_compare_oids(&Minor, &first, &same, &result));
    EXPECT_EQ(result, 0);
    for (qxgss_OID different : {&other, &long_one}) {
        EXPECT_SUCCESS(gssp_compare_oids(&Minor, &first, different, &result));
        EXPECT_NE(result, 0);
    }
    for (qxgss_OID bad : {static_cast<qxgss_OID>(nullptr), &empty, &no_bytes}) {
        EXPECT_FAILURE(0xE10000CDU, gssp_compare_oids(&Minor, &first, bad, &result));
        EXPECT_FAILURE(0xE10000CDU, gssp_compare_oids(&Minor, bad, &first, &result));
    }
    EXPECT_FAILURE(0xE10000CDU, gssp_compare_oids(&Minor, &first, &same, nullptr));
}

TEST(OidSet, KeepsOrderWhileItGrowsAndCopiesDeeply) {
    qxgss_OID_set set = nullptr, copy = nullptr;
    EXPECT_SUCCESS(gssp_duplicate_oid_set(&Minor, set, &copy));
    EXPECT_EQ(copy, nullptr);
    EXPECT_SUCCESS(gssp_create_empty_oid_set(&Minor, &set));
    EXPECT_SUCCESS(gssp_duplicate_oid_set(&Minor, set, &copy));
    EXPECT_EQ(members(copy).size(), 0U);
    gssp_release_oid_set(nullptr, &copy);
    std::vector<std::string> expected;
    for (char i = 1; i <= 33; ++i) {
        std::string member{'\x2a', i};
        qxgss_OID_desc oid = oid_of(member);
        EXPECT_SUCCESS(gssp_add_oid_set_member(&Minor, &oid, &set));
        expected.push_back(member);
    }
    EXPECT_SUCCESS(gssp_add_oid_set_member(&Minor, &set->elements[0], &set)); // a member of the set itself
    expected.push_back(expected[0]);
    EXPECT_SUCCESS(gssp_duplicate_oid_set(&Minor, set, &copy));
    EXPECT_SUCCESS(gssp_release_oid_set(&Minor, &set));
    EXPECT_EQ(set, nullptr);
    EXPECT_EQ(members(copy), expected);
    EXPECT_SUCCESS(gssp_add_oid_set_member(&Minor, &copy->elements[32], &copy)); // its array just fits
    EXPECT_EQ(copy->count, 35U);
    EXPECT_SUCCESS(qxgss_release_oid_set(&Minor, &copy));
    EXPECT_EQ(copy, nullptr);
}

TEST(OidSet, MembershipIsByValue) {
    std::string a = "\x2a\x03", b = "\x2a\x04", same = a;
    qxgss_OID_desc elements[] = {{}, oid_of(a)}, inside = oid_of(same), outside = oid_of(b), empty{};
    qxgss_OID_set_desc set{2, elements}, nothing{};
    int present = 7;
    EXPECT_FAILURE(0xE1000070U, gssp_test_oid_set_member(&Minor, &inside, nullptr, &present));
    EXPECT_FAILURE(0xE10000CDU, gssp_test_oid_set_member(&Minor, nullptr, &set, &present));
    EXPECT_FAILURE(0xE10000CDU, gssp_test_oid_set_member(&Minor, &empty, &set, &present));
    EXPECT_EQ(present, 7);
    EXPECT_FAILURE(0xE1000071U, gssp_test_oid_set_member(&Minor, &inside, &set, nullptr));
    EXPECT_SUCCESS(gssp_test_oid_set_member(&Minor, &inside, &set, &present));
    EXPECT_EQ(present, 1);
    EXPECT_SUCCESS(gssp_test_oid_set_member(&Minor, &outside, &set, &present));
    EXPECT_EQ(present, 0);
    EXPECT_SUCCESS(gssp_test_oid_set_member(&Minor, &inside, &nothing, &present));
    EXPECT_EQ(present, 0);
}

TEST(OidSet, RefusalsLeaveTheSetAsItWas) {
    std::string a = "\x2a\x03";
    qxgss_OID_desc oid = oid_of(a), empty{};
    qxgss_OID_set set = nullptr;
    EXPECT_FAILURE(0xE1000070U, gssp_create_empty_oid_set(&Minor, nullptr));
    EXPECT_FAILURE(0xE1000070U, gssp_add_oid_set_member(&Minor, &oid, nullptr));
    EXPECT_FAILURE(0xE1000070U, gssp_add_oid_set_member(&Minor, &oid, &set));
    EXPECT_FAILURE(0xE1000079U, gssp_duplicate_oid_set(&Minor, nullptr, nullptr));
    EXPECT_SUCCESS(gssp_release_oid_set(&Minor, nullptr));
    EXPECT_SUCCESS(qxgss_release_oid_set(&Minor, &set));
    gssp_create_empty_oid_set(nullptr, &set);
    gssp_add_oid_set_member(nullptr, &oid, &set);
    EXPECT_FAILURE(0xE10000CDU, gssp_add_oid_set_member(&Minor, nullptr, &set));
    EXPECT_FAILURE(0xE10000CDU, gssp_add_oid_set_member(&Minor, &empty, &set));
    EXPECT_EQ(members(set), std::vector<std::string>{a});
    gssp_release_oid_set(nullptr, &set);
}

OM_uint32 to_der(const char *oid, std::string &der) {
    OM_uint32 minor = 1, length = 7;
    unsigned char dirt = 0, *elements = &dirt;
    const OM_uint32 major = gssp_oidstr_to_oidder(&minor, 0, 0, oid, &length, &elements);
    EXPECT_EQ(major, minor == kSuccess ? GSS_S_COMPLETE : GSS_S_FAILURE);
    EXPECT_EQ(elements != nullptr, minor == kSuccess);
    der = bytes({length, elements});
    std::free(elements);
    return minor;
}

TEST(OidString, ToDer) {
    const std::vector<std::pair<const char *, std::string>> cases = {
        {"1.3.6.1.5.5.18", "\x2b\x06\x01\x05\x05\x12"},
        {"1.2.840.113554.1.2.1.4", bytes(*GSS_C_NT_HOSTBASED_SERVICE)},
        {"0.0", "\0"s},
        {"0.39.0", "\x27\0"s},
        {"1.39", "\x4f"},
        {"2.47", "\x7f"},
        {"2.48", "\x81\0"s},
        {"2.999.3", "\x88\x37\x03"}, // X.690 8.19.5
        {"2.4294967295", "\x90\x80\x80\x80\x4f"},
        {"1.0.127.128.16383.16384", "\x28\x7f\x81\0\xff\x7f\x81\x80\0"s},
        {"1.0.4294967295", "\x28\x8f\xff\xff\xff\x7f"},
    };
    std::string der;
    for (const auto &[oid, expected] : cases) {
        EXPECT_EQ(to_der(oid, der), kSuccess) << oid;
        EXPECT_EQ(der, expected) << oid;
    }
}

TEST(OidString, WhatIsRefused) {
    std::string der;
    for (const char *oid :
         {"",     "1",    "1.",   ".1",    "1..2",           "1.2.",   "3.1",          "0.40",
          "1.40", "1.02", "01.2", "-1",    "1.2.00",         "1.-2",   "1.+2",         "1. 2",
          "1.2 ", " 1.2", "1.2a", "1.0x2", "1.0.4294967296", "QXNEGO", "4294967296.1", "2.99999999999999999999999"})
        EXPECT_EQ(to_der(oid, der), 0xE1000081U) << oid;
    EXPECT_EQ(to_der(nullptr, der), 0xE1000081U);
    OM_uint32 length = 7;
    unsigned char dirt = 0, *elements = &dirt;
    EXPECT_FAILURE(0xE1000081U, gssp_oidstr_to_oidder(&Minor, 0, 0, "1.2", nullptr, &elements));
    EXPECT_FAILURE(0xE1000081U, gssp_oidstr_to_oidder(&Minor, 0, 0, "1.2", &length, nullptr));
    EXPECT_TRUE(length == 0 && elements == nullptr);
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
    const std::pair<const char *, const char *> cases[] = {
        {"joe", "joe|-|-"},
        {"joe@R", "joe|R|-"},
        {"joe@R@@pw", "joe|R|pw"},
        {"joe@@pw", "joe|-|pw"},
        {"joe@@pw@x", "joe|-|pw@x"},
        {"a@@b@@c", "a@|b|c"},
        {"a@b@R@@c", "a@b|R|c"},
        {"a@@@b", "a||b"},
        {"joe@", "joe||-"},
        {"joe@@", "joe|-|"},
        {"joe@R@@p,ann@@q,bob", "joe|R|p ann|-|q bob|-|-"},
        {"DOMAIN\\user@@p\\w", "DOMAIN\\user|-|p\\w"},
        {"DOMAIN\\\\user", "DOMAIN\\user|-|-"},
        {"joe\\", "joe\\|-|-"},
        {"a\\\\\\", "a\\\\|-|-"},
        {"jo\\@e@R", "jo@e|R|-"},
        {"jo\\@@R", "jo@|R|-"},
        {"joe@@p\\@@w", "joe|-|p@@w"},
        {"joe@\\@R", "joe|@R|-"},
        {"jo\\\\@R", "jo\\|R|-"},
        {"jo\\,e,a\\'n\\\"n\\ ", "jo,e|-|- a'n\"n |-|-"},
    };
    for (const auto &[input, expected] : cases)
        EXPECT_EQ(parsed(input, QXAT_FLAG_UNESCAPE_ALL), expected) << input;
    for (const char *input : {"", "@R", "@@pw", "joe,", ",joe", "joe,,ann"})
        EXPECT_EQ(parsed(input, QXAT_FLAG_UNESCAPE_ALL), "") << input;
    const char *escaped = "D\\u\\,@r\\,@@p\\,";
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_NONE), "D\\u\\,|r\\,|p\\,");
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_UNESCAPE_USER), "D\\u,|r\\,|p\\,");
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_UNESCAPE_PASSWORD), "D\\u\\,|r\\,|p,");
    EXPECT_EQ(parsed(escaped, QXAT_FLAG_UNESCAPE_REALM), "D\\u\\,|r,|p\\,");
}

TEST(Logon, CountsCharactersAndBytes) {
    qxat_logon_t logon = qxat_parse("j\u00F6\\@\u20AC\U0001F600", QXAT_FLAG_UNESCAPE_ALL);
    ASSERT_NE(logon, nullptr);
    EXPECT_EQ(qxat_get_user(logon, 0)->kb_length, 11U);
    EXPECT_EQ(qxat_get_user(logon, 0)->kb_characters, 5U);
    qxat_free(logon);
}

TEST(Logon, UnescapeWorksInPlaceAndClearsTheRest) {
    char password[] = "p\\@\\ \\x\\\\w";
    qxat_buffer_desc buffer{password, sizeof password - 1, 0};
    qxat_unescape(&buffer);
    EXPECT_EQ(std::string(buffer.kb_value, sizeof password), "p@ \\x\\w\0\0\0\0"s);
    EXPECT_EQ(buffer.kb_length, 7U);
    EXPECT_EQ(buffer.kb_characters, 7U);
    qxat_buffer_desc empty{};
    qxat_unescape(&empty);
    qxat_unescape(nullptr);
}

TEST(Logon, NullIsHarmlessAndSecretsAreWiped) {
    EXPECT_EQ(qxat_parse(nullptr, QXAT_FLAG_UNESCAPE_ALL), nullptr);
    qxat_free(nullptr);
    EXPECT_EQ(qxat_get_count(nullptr), 0);
    EXPECT_EQ(qxat_get_user(nullptr, 0), nullptr);
    wiped.clear();
    qxat_free(qxat_parse("joe@@secret", QXAT_FLAG_NONE));
    EXPECT_TRUE(has_wiped("secret"));
    wiped.clear();
    EXPECT_EQ(qxat_parse("joe@@secret,", QXAT_FLAG_NONE), nullptr); // refused after the password was read
    EXPECT_TRUE(has_wiped("secret"));
}

} // namespace
