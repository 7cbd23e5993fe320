// Every allocation of the adapters fails once, and with all later ones: each mechanism goes through its whole life with
// allocation number 0, 1, 2 ... failing until a run sees no failure. A call is then right, or says that memory is
// lacking and hands out nothing; a side that failed is not established, handles can be asked and deleted, nothing is
// left, and no block that our objects give back holds the password. The libraries behind keep what they allocate. Two
// tables of what the adapter itself makes of NTLM come last: they need its objects, too.
#include <optional>
#include <utility>

#include <gsasl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "mechanisms/hostgss/ntlm.h"
#include "tests/failing_heap.h"
#include "tests/peer.h"

namespace {

using namespace support;
using namespace testkit;
using Table = qxgss_ftn_table_desc;

struct Case {
    const RealMechanism &of;
    std::string password, wrong, message;
};
const Case kCases[] = {{kScram, "wonderland", "password=wonderland", "verifiers: Cannot allocate memory"},
                       {kKerberos, "Alice1", "authcid=alice realm=OTHER.TEST password=Alice1", ""},
                       {kNtlm, "Alice1", "password=Alice1", "hashes instead of passwords"}};
const std::string kVerifier = "alice:{SCRAM-SHA-256}4096,01V6qgHPbkyO5InM,J6EjnP+HkMMnAA0nUktzaQcIL52kjSKLV81C6oJSkGY=,"
                              "oaUcZlVm2nr2mYTed1y7K41VdPvWxp4JMxkNpZryWGs=\n";
const std::string kMessage = "message", kService = "host/localhost";

std::optional<failing_heap::Window> window; // open in every call of outcome
bool failed = false;                        // a call of this life has
long from_gsasl = 0;                        // blocks that GNU SASL made and our objects have to free

// What a call hands out.
struct Outputs {
    Outputs() = default;
    Outputs(const Outputs &) = delete;
    Outputs &operator=(const Outputs &) = delete;
    ~Outputs() {
        gssp_release_buffer(nullptr, &buffer);
        gssp_release_name(nullptr, &source);
        gssp_release_name(nullptr, &target);
        gssp_release_oid_set(nullptr, &oids);
        std::free(user);
        std::free(domain);
    }
    bool any() const {
        return buffer.value != nullptr || buffer.length != 0 || source != nullptr || target != nullptr ||
               oids != nullptr || user != nullptr || domain != nullptr;
    }

    qxgss_buffer_desc buffer{};
    qxgss_name_t source = nullptr, target = nullptr;
    qxgss_OID_set oids = nullptr;
    char *user = nullptr, *domain = nullptr;
};

bool lacks_memory(const std::string &said) { // GSS_S_FAILURE with a minor status of either adapter
    return said == "000D0000/E1000065" || said == "000D0000/00000007";
}

// Whether a call succeeded. A failure comes with a text; the first one is lack of memory, later ones follow from it.
bool checked(const Peer &peer, const std::string &said) {
    if (said.starts_with("0000"))
        return true;
    Outputs text;
    OM_uint32 more = 0;
    const auto minor = static_cast<OM_uint32>(std::stoul(said.substr(9), nullptr, 16));
    const std::string shown =
        outcome(peer.table.ftn_gssp_display_status, minor, GSS_C_MECH_CODE, peer.info.pMechOid, &more, &text.buffer);
    EXPECT_TRUE(text.any() ? shown.starts_with("0000") : lacks_memory(shown)) << said << ", " << shown;
    EXPECT_TRUE(failed || lacks_memory(said)) << said << ", " << text_of(text.buffer);
    failed = true;
    return false;
}

// Makes a call, if the mechanism has it.
template <typename... Parameters>
bool good(const Peer &peer, const Outputs &out, OM_uint32 (*Table::*slot)(OM_uint32 *, Parameters...),
          std::type_identity_t<Parameters>... arguments) {
    if (peer.table.*slot == nullptr)
        return true;
    const bool succeeded = checked(peer, outcome(peer.table.*slot, arguments...));
    EXPECT_TRUE(succeeded || !out.any());
    return succeeded;
}

// The message is whole or empty; that of a failure has said what failed.
std::string configured(MechInfo_t &info, const std::string &expected) {
    Outputs message;
    const int use = std::exchange(info.fUseMech, GSSP_MECH_BEING_CONFIGURED);
    const std::string said = outcome(info.MechFtnTable.ftn_gssp_configure, QXGSS_SERVER, nullptr, &message.buffer);
    info.fUseMech = use;
    EXPECT_TRUE(!message.any() || text_of(message.buffer).ends_with(expected)) << text_of(message.buffer);
    failed = failed || (message.any() && !said.starts_with("0000"));
    return said;
}

void acquire(Peer &peer, qxgss_name_t name, qxgss_cred_usage_t usage, const std::string &source) {
    Outputs got, kept;
    qxgss_OID_set_desc mechs = {1, peer.info.pMechOid};
    const bool acquired = good(peer, got, &Table::ftn_gssp_acquire_cred, name, GSS_C_INDEFINITE, &mechs, usage,
                               &peer.credential, &got.oids, &peer.lifetime);
    EXPECT_TRUE((peer.credential != nullptr) == acquired && (peer.lifetime != 0) == acquired);
    const bool told =
        good(peer, kept, &Table::ftn_gssp_inquire_cred, peer.credential, &kept.source, nullptr, nullptr, &kept.oids);
    EXPECT_TRUE(!acquired || !told || usage == GSS_C_ACCEPT || text_of(kept.source) == source);
}

void inquire(const Peer &peer, const std::string &source) {
    Outputs mechs, types, names, user, records;
    int open = 0;
    good(peer, mechs, &Table::ftn_gssp_indicate_mechs, &mechs.oids);
    good(peer, types, &Table::ftn_gssp_inquire_names_for_mech, peer.info.pMechOid, &types.oids);
    good(peer, names, &Table::ftn_gssp_inquire_context, peer.context, &names.source, &names.target, nullptr, nullptr,
         nullptr, nullptr, &open);
    good(peer, user, &Table::ftn_gssp_get_client_domain_username, peer.context, &user.user, &user.domain);
    good(peer, records, &Table::ftn_gssp_inquire_properties_for_user, peer.context, &records.buffer);
    EXPECT_TRUE(peer.complete() || open == 0);
    EXPECT_TRUE(!peer.failed() || (peer.token.empty() && peer.delegated == nullptr && peer.source != source));
    EXPECT_TRUE(failed || (mechs.oids->count >= 1 && types.oids->count >= 4 && text_of(names.source) == source &&
                           described(text_of(records.buffer)).starts_with("9:")));
}

void protect(const Peer &from, const Peer &to) {
    Outputs wrapped, opened, mic;
    qxgss_buffer_desc in = view(kMessage);
    good(from, wrapped, &Table::ftn_gssp_wrap, from.context, 1, 0, &in, nullptr, &wrapped.buffer);
    good(to, opened, &Table::ftn_gssp_unwrap, to.context, &wrapped.buffer, &opened.buffer, nullptr, nullptr);
    good(from, mic, &Table::ftn_gssp_get_mic, from.context, 0, &in, &mic.buffer);
    good(to, {}, &Table::ftn_gssp_verify_mic, to.context, &in, &mic.buffer, nullptr);
    EXPECT_TRUE(failed || from.table.ftn_gssp_wrap == nullptr || text_of(opened.buffer) == kMessage);
}

void live(const Case &of, bool with_credential) {
    MechInfo_t &info = registered(of.of.name), &absent = registered("absent");
    Peer client(info), server(info);
    Outputs names, wrong;
    std::swap(client.target, names.target);
    client.target = imported(kService);
    client.request |= GSS_C_DELEG_FLAG;
    names.source = imported(of.of.logon);
    wrong.source = imported(of.wrong);
    failed = false;
    checked(client, configured(info, of.message));
    if (with_credential)
        acquire(server, server.target, GSS_C_ACCEPT, "");
    acquire(client, names.source, GSS_C_INITIATE, of.of.user);
    // A side that could not log on does not call: without a credential it would be another user.
    if (client.credential != nullptr && (server.credential != nullptr) == with_credential)
        checked(client, exchange(client, server)->said);
    EXPECT_TRUE(failed || (client.complete() && server.complete() && server.source == of.of.user));
    for (const Peer *peer : {&client, &server})
        inquire(*peer, of.of.user);
    protect(client, server);
    protect(server, client);
    for (Peer *peer : {&client, &server})
        EXPECT_TRUE(peer->context == nullptr ||
                    good(*peer, {}, &Table::ftn_gssp_delete_sec_context, &peer->context, nullptr));
    EXPECT_TRUE(good(client, {}, &Table::ftn_gssp_release_cred, &client.credential));
    failed = true; // as the next calls must
    acquire(client, wrong.source, GSS_C_INITIATE, "");
    EXPECT_FALSE(configured(absent, absent.pszMessage).starts_with("0000"));
    info.MechFtnTable.ftn_gssp_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr); // drops the verifiers
}

// Lives with allocation number 0, 1, 2 ... failing, until one sees no failure.
void sweep(const Case &of, bool all_later, bool with_credential) {
    int points = 0;
    for (bool happened = true; happened && !testing::Test::HasFailure(); points += happened) {
        SCOPED_TRACE("allocation " + std::to_string(points) + (all_later ? " and all later" : ""));
        const long before = failing_heap::live_blocks() + from_gsasl;
        {
            const failing_heap::InWindows failing(points, all_later);
            live(of, with_credential);
            happened = failing.happened();
        }
        EXPECT_EQ(failing_heap::live_blocks() + from_gsasl, before);
        EXPECT_EQ(failing_heap::secrets_given_back(), 0);
    }
    std::printf("%d allocations failed\n", points);
}

class AdapterSweep : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(Each, AdapterSweep, testing::ValuesIn(kCases),
                         [](const auto &row) { return row.param.of.prefix + std::to_string(row.index); });

TEST_P(AdapterSweep, WholeLife) {
    const Folder folder;
    const std::string verifiers = folder.file("verifiers", kVerifier);
    std::filesystem::permissions(verifiers, std::filesystem::perms(0600));
    RealMechanism rows[] = {kScram, kKerberos, kNtlm};
    rows[0].settings = "verifiers_file = \"" + verifiers + "\"\n";
    const std::string file =
        folder.file("qxgss.conf", entry_of("absent", "1.3.6.1.4.1.99999.1", "HOSTGSS", "") + entries_of(rows));
    ASSERT_EQ(qxgss_configure(nullptr, QXGSS_CLIENT, file.c_str(), nullptr), GSS_S_COMPLETE);
    around_call = [](bool before) { before ? void(window.emplace()) : window.reset(); };
    failing_heap::watch_for(GetParam().password);
    for (const auto &[all_later, with_credential] : {std::pair{false, true}, {true, true}, {false, false}}) {
        // In processes of their own: the host's NTLM takes thread keys for each password, and never gives them back.
        const pid_t child = fork();
        if (child == 0) {
            sweep(GetParam(), all_later, with_credential);
            std::fflush(nullptr);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    failing_heap::watch_for("");
    qxgss_shutdown(nullptr);
}

// Each field of each message, at every offset up to the message's end and at those of the largest numbers.
TEST(NtlmMessage, HasItsFieldsBehindItsHeaderAndInside) {
    using enum hostgss::NtlmMessage;
    const struct {
        hostgss::NtlmMessage type;
        std::size_t header;
        std::vector<std::pair<std::size_t, unsigned char>> fields; // where its length stands, its length
    } cases[] = {{kNegotiate, 32, {{16, 3}, {24, 0}}},
                 {kChallenge, 48, {{12, 2}, {40, 9}}},
                 {kAuthenticate, 64, {{12, 24}, {20, 44}, {28, 0}, {36, 2}, {44, 4}, {52, 16}}}};
    for (const auto &[type, header, fields] : cases) {
        std::string message = "NTLMSSP" + std::string(121, '\0');
        message[8] = static_cast<char>(type);
        for (const auto &[at, length] : fields)
            message[at] = static_cast<char>(length), message[at + 4] = static_cast<char>(header);
        EXPECT_FALSE(check_ntlm_message(message, type).failed());
        EXPECT_TRUE(check_ntlm_message(message.substr(0, header - 1), type).failed());
        for (const auto &[at, length] : fields)
            for (std::size_t number = 0; number < 132; ++number) {
                const std::size_t offset = number < 130 ? number : 0xFFFFFFFF - (number - 130) * length;
                std::string moved = message;
                for (std::size_t i = 0; i < 4; ++i)
                    moved[at + 4 + i] = static_cast<char>(offset >> 8 * i);
                const bool fits = length == 0 || (offset >= header && offset + length <= message.size());
                EXPECT_EQ(check_ntlm_message(moved, type).failed(), !fits) << header << " " << at << " " << offset;
            }
    }
}

// A user of the host's NTLM, as the client has written the name.
TEST(NtlmName, IsThatOfTheOneAccountThatItCanMean) {
    const std::string two = "A:alice:x\nb:Alice:y\n", hashes = ":1:h:h:u\n", none = "none", refused;
    const struct {
        std::string users, shown, name;
    } cases[] = {
        {two, "A\\ALICE", "A\\alice"},
        {two, "B\\alice", "b\\Alice"},
        {two, "alice", refused},
        {two, "\\alice", refused},
        {two, "C\\Alice", "C\\alice"}, // not in the file: the host has asked somebody else
        {two + "a:ALICE:z\n", "A\\alice", refused},
        {two + "A:alice:z\n", "a\\alice", "A\\alice"},
        {"#A:bob:x\n\nA:bob\nA:bobby:x\nA:\xC3\xA9", "bob", refused},
        {"A:bob:x:y\nB:bob:x\r\n", "bob", "B\\bob"}, // three colons are no line
        {"C:B\\bob:x\nB:bob:y\n", "B\\bob", refused},
        {"C:B\\bob:x\n", "B\\bob", "C\\B\\bob"},
        {"bob" + hashes, "ANY\\BOB", "bob"},
        {"A\\bob" + hashes, "BOB", "A\\bob"},
        {"A\\bob" + hashes + "bob" + hashes, "a\\bob", refused},
        {":bob:x\n", "BOB", "bob"},
        {"A:" + std::string(1021, 'x') + "B:bob:y", "b\\bob", "B\\bob"}, // a long line is two
        {"A:ma\xC3\x9F:x\nA:mass:y\n", "A\\mass", refused},
        {"A:bob:x\n", "A\\b\xC3\xB6\x62", refused},
        {none, "bob", refused},
        {none, "dOm\\bOb", "DOM\\bob"},
        {none, "dom.example\\bob", refused},
        {none, "DOM\\bob@dom.example", refused},
        {none, "DOM\\a\\bob", refused},
        {none, "DOM\\", refused},
        {".", "DOM\\bob", refused}, // a folder
    };
    const Folder folder;
    for (const auto &[users, shown, name] : cases) {
        const std::string file =
            users == none || users == "." ? folder.path + "/" + users : folder.file("users", users);
        hostgss::Block found;
        const hostgss::Status status = hostgss::canonical_ntlm_name(shown, file.c_str(), found);
        EXPECT_EQ(status.failed() ? refused : std::string(found.view()), name) << shown << " in\n" << users;
    }
    hostgss::Block found;
    EXPECT_FALSE(hostgss::canonical_ntlm_name("dom\\Bob", nullptr, found).failed());
    EXPECT_EQ(found.view(), "DOM\\bob");
}

} // namespace

extern "C" int __real_gsasl_step(Gsasl_session *, const char *, std::size_t, char **, std::size_t *);
extern "C" int __wrap_gsasl_step(Gsasl_session *pSession, const char *pInput, std::size_t length, char **ppOutput,
                                 std::size_t *pLength) {
    const int rc = __real_gsasl_step(pSession, pInput, length, ppOutput, pLength);
    from_gsasl += (rc == GSASL_OK || rc == GSASL_NEEDS_MORE) && *ppOutput != nullptr;
    return rc;
}
