// User-properties records: the walk over any bytes and its readers and markers, and the writers of directory records.
#include <array>
#include <climits>
#include <cstring>
#include <sstream>
#include <string>

#include "fuzz/configured.h"
#include "gssp2qxnego/gssp2qxnegoint.h"
#include "qxat/qxatldapauthorize.h"
#include "tests/failing_heap.h"
#include "tools/show/user_properties.h"

using fuzz::Input;
using fuzz::require;

namespace {

constexpr char kConfiguration[] = "[[mechanism]]\nname = \"one\"\noid = \"1.3.6.1.4.1.32473.2.1\"\nprefix = \"NONE\"\n"
                                  "[[mechanism]]\nname = \"two\"\noid = \"2.999.1\"\nprefix = \"NONE\"\n";

// Where the walk ends.
std::size_t walk(const unsigned char *bytes, std::size_t size) {
    std::size_t at = 0;
    qxat_data_header_t header{};
    for (; qxgss_record_at(bytes, size, at, &header) != 0; at += header.qxgss_Length) {
        std::size_t length = 0;
        const unsigned char *data = qxgss_record_data(bytes + at, &header, &length);
        require(data == nullptr || data + length <= bytes + at + header.qxgss_Length, "data lie within their record");
    }
    return at;
}

// What a writer made is a whole number of records; it is released.
void take(OM_uint32 major, qxgss_buffer_desc &made) {
    require(GSS_ERROR(major) == 0 || made.value == nullptr, "a failure leaves no records");
    const auto *bytes = static_cast<const unsigned char *>(made.value);
    require(walk(bytes, made.length) == made.length, "what is written are whole records");
    gssp_release_buffer(nullptr, &made);
}

void read_records(Input &input) {
    const tools::Bytes bytes = [](std::string_view text) {
        return tools::Bytes(text.begin(), text.end());
    }(input.rest());
    const std::optional<tools::SavedLog> log = tools::SavedLog::read(bytes);
    if (!log || log->properties().empty())
        return;
    require(log->facts().PropertyEnd == walk(bytes.data(), bytes.size()), "all readers end at the same place");
    std::ostringstream out;
    tools::print_properties(out, *log);
    for (const char byte : out.str())
        require(byte == '\n' || static_cast<unsigned char>(byte) >= 0x20, "what is printed is safe for a terminal");
}

void add_log(Input &input, int failing) {
    const unsigned policy = input.below(2), times = 1 + input.byte();
    std::string properties(input.bytes(input.byte())), log;
    for (const std::string_view piece = input.rest(); log.size() < times * piece.size();)
        log += piece;
    const auto *before = reinterpret_cast<const unsigned char *>(properties.data());
    const bool whole = walk(before, properties.size()) == properties.size();
    qxgss_buffer_desc props{properties.size(), properties.data()}, text{log.size(), log.data()}, made{};
    const failing_heap::From heap(failing);
    const OM_uint32 major = QXNEGO_INT_FillQxnegoInfo(nullptr, &props, policy, &text, &made);
    if (whole)
        take(major, made);
    gssp_release_buffer(nullptr, &made);
}

void add_mechanism(Input &input, int failing) {
    static const fuzz::Configured registry{std::string_view(kConfiguration)};
    const auto authenticated = static_cast<unsigned char>(input.below(2));
    const unsigned which = input.below(4);
    std::string oid(input.bytes(input.below(16))), properties(input.rest());
    qxgss_OID_desc mechanism{static_cast<OM_uint32>(oid.size()), oid.data()};
    qxgss_buffer_desc props{properties.size(), properties.data()}, made{};
    const failing_heap::From heap(failing);
    const OM_uint32 major = qxat_fill_mechinfo(nullptr, &props, &made, &authenticated,
                                               which < MechCount ? pMechInfo[which].pMechOid : &mechanism);
    take(major, made);
}

// A list of copies on the C heap; the writer frees entries that it takes out.
class Names {
  public:
    explicit Names(Input &input) {
        const std::size_t count = input.below(names_.size());
        for (std::size_t i = 0; i < count; ++i)
            names_[i] = strdup(std::string(input.line()).c_str());
    }
    Names(const Names &) = delete;
    Names &operator=(const Names &) = delete;
    ~Names() {
        for (char *name : names_)
            std::free(name);
    }
    qxs_namelist_t get() { return names_.data(); }

  private:
    std::array<char *, 6> names_{};
};

void write_directory_records(Input &input, int failing) {
    const unsigned given = input.byte(), kind = input.byte(), times = 1 + input.byte();
    Names roles(input), profiles(input), users(input);
    std::string texts[8];
    for (std::string &text : texts)
        text = input.line();
    for (std::string piece = texts[7]; texts[7].size() < times * piece.size();)
        texts[7] += piece;
    const auto text = [&](unsigned i) { return (given >> i & 1) != 0 ? nullptr : texts[i].data(); };
    qxs_authorizations_t authz{.ta_authorizeas = static_cast<qxs_authorizeas_t>(static_cast<int>(kind % 5) - 1),
                               .ta_service = text(0),
                               .ta_userfqdn = text(1),
                               .ta_ldapurl = text(7),
                               .ta_databasename = text(2),
                               .ta_roles = roles.get(),
                               .ta_profile = profiles.get(),
                               .ta_user = users.get(),
                               .ta_authtype = (kind & 8) != 0 ? QXS_AUTHTYPE_LIGHTWEIGHT : QXS_AUTHTYPE_LEGACY};
    qxgss_buffer_desc made{};
    const failing_heap::From heap(failing);
    const OM_uint32 major =
        qxat_fill_authorizations(nullptr, &made, text(3), text(4), &authz, text(5), text(6), kind & 16);
    take(major, made);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    const unsigned what = input.below(4), number = input.below(8);
    const int failing = number != 0 ? static_cast<int>(number) - 1 : INT_MAX;
    if (what == 0)
        read_records(input);
    else if (what == 1)
        add_log(input, failing);
    else if (what == 2)
        add_mechanism(input, failing);
    else
        write_directory_records(input, failing);
    return 0;
}
