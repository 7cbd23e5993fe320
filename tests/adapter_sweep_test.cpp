// Every allocation of the adapters fails once, and with all later ones: each mechanism goes through its whole life with
// allocation number 0, 1, 2 ... failing until a run sees no failure. A call is then right, or says that memory is
// lacking and hands out nothing; a side that failed is not established, handles can be asked and deleted, nothing is
// left, and no block that our objects give back holds the password. The libraries behind keep what they allocate. Two
// tables of what the adapter itself makes of NTLM come last: they need its objects, too.
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

struct Case {
    const RealMechanism &of;
    std::string password, wrong, message;
};
const Case kCases[] = {{kScram, "wonderland", "password=wonderland", "verifiers: Cannot allocate memory"},
                       {kKerberos, "Alice1", "authcid=alice realm=OTHER.TEST password=Alice1", ""},
                       {kNtlm, "Alice1", "password=Alice1", "hashes instead of passwords"}};
const std::string kVerifier = "alice:{SCRAM-SHA-256}4096,01V6qgHPbkyO5InM,J6EjnP+HkMMnAA0nUktzaQcIL52kjSKLV81C6oJSkGY=,"
                              "oaUcZlVm2nr2mYTed1y7K41VdPvWxp4JMxkNpZryWGs=\n";

bool failed = false; // a call of this life has
long from_gsasl = 0; // blocks that GNU SASL made and our objects have to free

bool lacks_memory(const std::string &said) { // GSS_S_FAILURE with a minor status of either adapter
    return said == "000D0000/E1000065" || said == "000D0000/00000007";
}

// A failure comes with a text; the first one is lack of memory, later ones follow from it.
void check_failure(const Peer &peer, const std::string &said) {
    Outputs text;
    OM_uint32 more = 0;
    const auto minor = static_cast<OM_uint32>(std::stoul(said.substr(9), nullptr, 16));
    const std::string shown =
        outcome(peer.table.ftn_gssp_display_status, minor, GSS_C_MECH_CODE, peer.info.pMechOid, &more, &text.buffer);
    EXPECT_TRUE(text.any() ? shown.starts_with("0000") : lacks_memory(shown)) << said << ", " << shown;
    EXPECT_TRUE(failed || lacks_memory(said)) << said << ", " << text_of(text.buffer);
    failed = true;
}

// The message is whole or empty; that of a failure has said what failed.
std::string configure(MechInfo_t &info, const std::string &expected) {
    Outputs message;
    const int use = std::exchange(info.fUseMech, GSSP_MECH_BEING_CONFIGURED);
    const std::string said = outcome(info.MechFtnTable.ftn_gssp_configure, QXGSS_SERVER, nullptr, &message.buffer);
    info.fUseMech = use;
    EXPECT_TRUE(!message.any() || text_of(message.buffer).ends_with(expected)) << text_of(message.buffer);
    if (!said.starts_with("0000"))
        failed = failed || message.any(), check_failure(Peer(info), said);
    return said;
}

void inquire(const Peer &peer, const std::string &source) {
    Outputs mechs, types;
    peer.call(mechs, &Table::ftn_gssp_indicate_mechs, &mechs.oids);
    peer.call(types, &Table::ftn_gssp_inquire_names_for_mech, peer.info.pMechOid, &types.oids);
    const std::string asked = peer.asked();
    EXPECT_TRUE(peer.complete() || asked.find(" 1 1 ") == std::string::npos) << asked;
    EXPECT_TRUE(!peer.failed() || (peer.token.empty() && peer.delegated == nullptr));
    int known = 0;
    gssp_test_oid_set_member(nullptr, peer.info.pMechOid, mechs.oids, &known);
    EXPECT_TRUE(failed || (known == 1 && types.oids->count == (source == kScram.user ? 4 : 5)));
    EXPECT_TRUE(failed || (asked.starts_with(source + ">") && asked.find(" 9:") != std::string::npos));
}

void live(const Case &of, bool with_credential) {
    MechInfo_t &info = registered(of.of.name), &absent = registered("absent");
    Peer client(info), server(info);
    gssp_release_name(nullptr, &client.target);
    client.target = imported("host/localhost");
    client.request |= GSS_C_DELEG_FLAG;
    failed = false;
    configure(info, of.message);
    if (with_credential)
        server.acquire("host@localhost", GSS_C_ACCEPT, GSS_C_NT_HOSTBASED_SERVICE), server.owner();
    client.acquire(of.of.logon);
    const std::string owner = client.owner();
    EXPECT_TRUE(client.failed() || owner == "(none)" || owner == of.of.user);
    // A side that could not log on does not call: without a credential it would be another user.
    if (client.credential != nullptr && (server.credential != nullptr) == with_credential)
        exchange(client, server);
    EXPECT_TRUE(failed || (client.complete() && server.complete() && server.source == of.of.user));
    for (const Peer *peer : {&client, &server})
        inquire(*peer, of.of.user);
    for (const auto &[from, to] : {std::pair{&client, &server}, {&server, &client}})
        for (const int kind : {1, 2}) {
            const std::string message = to->unprotect(kind, from->protect(kind, kMessage), kMessage);
            EXPECT_TRUE(failed || message == (of.of.has_mics ? kMessage : ""));
        }
    for (Peer *peer : {&client, &server})
        EXPECT_TRUE(peer->context == nullptr ||
                    peer->call({}, &Table::ftn_gssp_delete_sec_context, &peer->context, nullptr).starts_with("0000"));
    EXPECT_TRUE(client.call({}, &Table::ftn_gssp_release_cred, &client.credential).starts_with("0000"));
    failed = true; // as the next calls must
    EXPECT_FALSE(client.acquire(of.wrong).starts_with("0000"));
    EXPECT_FALSE(configure(absent, absent.pszMessage).starts_with("0000"));
    info.MechFtnTable.ftn_gssp_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr); // drops the verifiers
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
    around_call = failing_heap::open_window;
    Peer::on_failure = check_failure;
    failing_heap::watch_for(GetParam().password);
    for (const auto &[all_later, with_credential] : {std::pair{false, true}, {true, true}, {false, false}}) {
        // In processes of their own: the host's NTLM takes thread keys for each password, and never gives them back.
        const pid_t child = fork();
        if (child == 0) {
            failing_heap::sweep(
                all_later, [&] { live(GetParam(), with_credential); },
                [] { return failing_heap::live_blocks() + from_gsasl; });
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

// Each field of each message, with every length up to the message's end and the largest, at every offset up to that end
// and at those of the largest numbers.
TEST(NtlmMessage, HasItsFieldsBehindItsHeaderAndInside) {
    using enum hostgss::NtlmMessage;
    struct Field {
        std::size_t at, length, least = 0, most = 0xFFFF; // where its length stands, a good one, and what it may be
    };
    const struct {
        hostgss::NtlmMessage type;
        std::size_t header;
        std::vector<Field> fields;
    } cases[] = {{kNegotiate, 32, {{16, 3}, {24, 0}}},
                 {kChallenge, 48, {{12, 2, 1}, {40, 9}}},
                 {kAuthenticate, 64, {{12, 24}, {20, 44, 44}, {28, 0}, {36, 2}, {44, 4}, {52, 16, 16, 16}}}};
    for (const auto &[type, header, fields] : cases) {
        std::string message = "NTLMSSP" + std::string(121, '\0');
        message[8] = static_cast<char>(type);
        const auto put = [](std::string &in, std::size_t at, std::size_t value, std::size_t bytes) {
            for (std::size_t i = 0; i < bytes; ++i)
                in[at + i] = static_cast<char>(value >> 8 * i);
        };
        for (const Field &field : fields)
            put(message, field.at, field.length, 2), put(message, field.at + 4, header, 4);
        EXPECT_FALSE(check_ntlm_message(message, type).failed());
        EXPECT_TRUE(check_ntlm_message(message.substr(0, header - 1), type).failed());
        for (const auto &[at, usual, least, most] : fields)
            for (std::size_t length = 0; length < 131; ++length)
                for (std::size_t number = 0; number < 132; ++number) {
                    const std::size_t size = length == 130 ? 0xFFFF : length;
                    const std::size_t offset = number < 130 ? number : 0xFFFFFFFF - (number - 130) * size;
                    put(message, at, size, 2), put(message, at + 4, offset, 4);
                    const bool inside = offset >= header && offset + size <= message.size();
                    EXPECT_EQ(check_ntlm_message(message, type).failed(),
                              size < least || size > most || !(size == 0 || inside))
                        << header << " " << at << " " << size << " at " << offset;
                    put(message, at, usual, 2), put(message, at + 4, header, 4);
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
