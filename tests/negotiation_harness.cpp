// The harness: configuration, the swapping of sides, and the short notations for outcomes, entries and log records.
#include "tests/negotiation_harness.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <utility>

namespace harness {

namespace {

// Words for the log's texts.
struct Word {
    const char *word;
    const char *text;
};
constexpr Word kWords[] = {
    {"have", "QXNEGO_INT_GetNegMechList: Mechanism is available for negotiation"},
    {"cred-none", "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not needed for NULL credential at Server"},
    {"cred-skip", "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not supported, skip for this mechanism"},
    {"cred", "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred succeeded for mechanism"},
    {"cred-fail", "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred failed for mechanism"},
    {"sso-no", "QXNEGO_INT_SetAuthInfo: SSO required but not supported by mechanism"},
    {"sso-id", "QXNEGO_INT_SetAuthInfo: Could not get Authentication ID for SSO"},
    {"init-cont", "QXNEGO_INT_Mechs_Init_Contexts: Continue needed for mechanism to establish context"},
    {"init-est", "QXNEGO_INT_Mechs_Init_Contexts: Mechanism established context"},
    {"init-fail", "QXNEGO_INT_Mechs_Init_Contexts: init_sec_context failed for mechanism"},
    {"acc-cont", "QXNEGO_INT_Mechs_Accept_Contexts: Continue needed for mechanism to establish context"},
    {"acc-est", "QXNEGO_INT_Mechs_Accept_Contexts: Mechanism established context"},
    {"acc-fail", "QXNEGO_INT_Mechs_Accept_Contexts: accept_sec_context failed for mechanism"},
    {"peer", "QXNEGO_INT_ProcessNegMech: Peer reporting Mech state"},
    {"adopt", "QXNEGO_INT_ProcessNegMech: Local Mech state changing due to Peer Mech state"},
    {"unknown", "QXNEGO_INT_ProcessNegMech: Peer reports a mechanism not known locally"},
    {"refuse", "QXNEGO_INT_ProcessNegMech: Reject peer mechanism because not available on local system"},
    {"init-state", "QXNEGO_INT_DecodeNegTokenInit: Peer has changed Negotiation State"},
    {"peer-state", "QXNEGO_INT_DecodeNegTokenResp: Peer has changed Negotiation State"},
    {"policy-told", "QXNEGO_INT_DecodeNegTokenResp: Mechanism Policy has been applied at the Server"},
    {"policy-nouser", "QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (no user name)"},
    {"policy-empty", "QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (empty policy)"},
    {"policy-set", "QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (non-empty policy)"},
    {"policy-no", "QXNEGO_INT_Apply_Policy_Info: Mechanism disallowed due to policy"},
    {"authz", "QXNEGO_INT_Apply_Authorization_Rules: Authorization required but not supported by mechanism"},
    {"select", "QXNEGO_INT_SelectMechanism: A mechanism has been selected"},
    {"complete", "QXNEGO_INT_SelectMechanism: Negotiation State set to Completed"},
};

std::string word_of(const char *text) {
    for (const Word &word : kWords)
        if (text != nullptr && std::strcmp(word.text, text) == 0)
            return word.word;
    return text == nullptr ? "(null)" : text;
}

constexpr std::string_view kNoText = "(display_status function not available)";

// Entries and log records have the same fields.
template <typename T> std::string verdict(const qxgss_OID_desc &oid, const T &record) {
    const std::string text = text_of(record.GssMinorStatusText);
    std::string statuses = hex(record.GssMajorStatus) + "/" + hex(record.GssMinorStatus);
    if (!text.empty())
        statuses += text == kNoText ? " -" : text == scripted::Behaviour().text ? " !" : " " + text;
    return std::string(1, oid.length == 10 ? letter_of(oid) : '?') + std::to_string(record.MechState) +
           std::to_string(record.MechReason) + (record.IsCtxEstablished != 0 ? "+" : "") +
           (statuses == "00000000/00000000"     ? ""
            : statuses == "00070000/C5000007 !" ? "!"
                                                : "(" + statuses + ")");
}

char sentinel;

// What configuration left: every peer starts from it and puts it back.
std::vector<qxgss_ftn_table_desc> loaded_tables;
NegMechList_desc loaded_list;

void restore_loaded() {
    for (OM_uint32 i = 0; i < MechCount; ++i)
        pMechInfo[i].MechFtnTable = loaded_tables[i];
    QxnegoMechList = loaded_list;
}

} // namespace

void release_module_state() {
    for (qxgss_OID_set *set : {&pQxnegoMechOidSet, &pQxnegoPreferredCredNameTypes, &pQxnegoSupportedCredNameTypes,
                               &pQxnegoSupportedAllNameTypes})
        gssp_release_oid_set(nullptr, set);
    std::free(QxnegoMechList.pNegMech);
    QxnegoMechList = {};
}

std::string configuration(const std::vector<Mechanism> &mechanisms) {
    const auto flag = [](bool value) { return value ? "true" : "false"; };
    std::string list, sections, users;
    for (const Mechanism &mechanism : mechanisms) {
        const std::string letter(1, mechanism.letter), user(1, static_cast<char>(mechanism.letter - 'A' + 'a'));
        const std::string oid = "\"1.3.6.1.4.1.32473.2." + std::to_string(mechanism.letter - 'A' + 1) + "\"";
        list += "{ oid = " + oid + " }, ";
        sections += "[[mechanism]]\nname = \"" + letter + "\"\noid = " + oid + "\nprefix = \"MECH_" + letter +
                    "\"\nproperties = { authentication = " + flag(mechanism.authentication) +
                    ", authorization = " + flag(mechanism.authorization) +
                    ", single_sign_on = " + flag(mechanism.single_sign_on) +
                    ", rank = " + std::to_string(mechanism.rank) + " }\n";
        users += "only" + user + " = [\"" + letter + "\"]\n";
    }
    return "[[mechanism]]\nname = \"QXNEGO\"\noid = \"1.3.6.1.4.1.32473.1.1\"\nprefix = \"QXNEGO\"\nnegotiates = [ " +
           list + "]\n" + sections + "[policy.users]\nfree = []\nnobody = \"none\"\n" + users;
}

std::string configure(OM_uint32 *pMajor, const std::string &configuration) {
    const std::string path =
        std::filesystem::temp_directory_path() / ("qxnego-test-" + std::to_string(getpid()) + ".toml");
    std::ofstream(path) << configuration;
    qxgss_shutdown(nullptr);
    qxgss_buffer_desc message{0, nullptr};
    *pMajor = qxgss_configure(nullptr, QXGSS_SERVER, path.c_str(), &message);
    loaded_tables.clear();
    for (OM_uint32 i = 0; i < MechCount; ++i)
        loaded_tables.push_back(pMechInfo[i].MechFtnTable);
    loaded_list = QxnegoMechList;
    std::remove(path.c_str());
    return support::taken(message);
}

char letter_of(const qxgss_OID_desc &oid) {
    return static_cast<char>('A' - 1 + static_cast<const char *>(oid.elements)[9]);
}

qxgss_OID_desc oid_of(char mechanism) {
    return *registered(std::string(1, mechanism)).pMechOid;
}

bool is_known(OM_uint32 minor) {
    return std::strcmp(qxnegoerrtostr(minor), "?") != 0 || std::strcmp(qxgsserrtostr(minor), "?") != 0 ||
           minor == scripted::Behaviour().minor || minor == scripted::kBadToken;
}

std::string hex(OM_uint32 value) {
    char text[9];
    std::snprintf(text, sizeof text, "%08X", value);
    return text;
}

std::string hex(std::string_view bytes) {
    std::string out;
    for (const char byte : bytes)
        out += hex(OM_uint32{static_cast<unsigned char>(byte)}).substr(6);
    return out;
}

Peer::Peer(Side side, std::string_view mechanisms) : side_(side) {
    MechInfo_t &self = registered("QXNEGO");
    for (OM_uint32 i = 0; i < self.NegotiatedMechCount; ++i) {
        const std::string_view oid = self.pNegMechInfo[i].pNegotiatedMech;
        const char letter = static_cast<char>('A' + (oid.back() - '1'));
        self.pNegMechInfo[i].fEnabled = mechanisms.find(letter) != std::string_view::npos;
    }
    QXNEGO_INT_InitNegMechList(nullptr, &template_);
    for (OM_uint32 i = 0; i < MechCount; ++i) {
        tables_.push_back(loaded_tables[i]);
        const std::string_view name = pMechInfo[i].pszMechName;
        if (name.size() == 1)
            if (const auto alter = scripted::script().at(name[0], side).alter)
                alter(tables_.back());
    }
}

Peer::~Peer() {
    end();
    if (credential != nullptr)
        QXNEGO_release_cred(nullptr, &credential);
    gssp_release_name(nullptr, &source);
    std::free(template_.pNegMech);
    if (!tables_.empty())
        restore_loaded();
}

std::string Peer::log_on(const char *logon) {
    qxgss_buffer_desc text{std::strlen(logon), const_cast<char *>(logon)};
    qxgss_name_t name = nullptr;
    std::string said = outcome(qxgss_import_name, &text, GSS_C_NT_QXAT_MECHDATA_UTF8, &name);
    if (name != nullptr)
        said = outcome(QXNEGO_acquire_cred, name, 600, pQxnegoMechOidSet,
                       side_ == kClient ? GSS_C_INITIATE : GSS_C_ACCEPT, &credential, nullptr, nullptr);
    gssp_release_name(nullptr, &name);
    return said;
}

void Peer::act() {
    scripted::script().acting = side_;
    if (tables_.empty())
        return;
    QxnegoMechList = template_;
    for (OM_uint32 i = 0; i < MechCount; ++i)
        pMechInfo[i].MechFtnTable = tables_[i];
}

Outcome Peer::call(std::string_view token, Side role) {
    act();
    std::string copy(token);
    qxgss_buffer_desc input{copy.size(), copy.empty() ? nullptr : copy.data()};
    qxgss_buffer_desc output{77, &sentinel};
    Outcome out{};
    gssp_release_name(nullptr, &source);
    support::around_call(true);
    if (role == kClient)
        out.major = QXNEGO_init_sec_context(&out.minor, credential, &context, target, nullptr, GSS_C_MUTUAL_FLAG, 300,
                                            bindings, &input, ask ? &mech_type : nullptr, &output,
                                            ask ? &flags : nullptr, ask ? &lifetime : nullptr);
    else
        out.major = QXNEGO_accept_sec_context(
            &out.minor, &context, credential, &input, bindings, ask ? &source : nullptr, ask ? &mech_type : nullptr,
            &output, ask ? &flags : nullptr, ask ? &lifetime : nullptr, ask ? &delegated : nullptr);
    support::around_call(false);
    if (output.value == &sentinel)
        return out;
    out.output = output.length == 0 && output.value == nullptr ? Output::kEmpty : Output::kToken;
    out.token = support::taken(output);
    return out;
}

Lines use(qxgss_ctx_id_t context, bool given) {
    char text[] = "\x01", mic[] = {'A', 3, '\xC2'}; // a message, and its protection by mechanism A
    qxgss_buffer_desc nothing{0, text}, message{1, text}, protection{3, mic};
    qxgss_buffer_desc wrapped{9, text}, opened{9, text}, check{9, text}, properties{9, text};
    int confidential = 7, was_confidential = 7, local = 7, open = 7;
    qxgss_qop_t qop = 7, check_qop = 7;
    OM_uint32 limit = 7, lifetime = 7, flags = 7;
    qxgss_name_t source = nullptr, target = nullptr;
    qxgss_OID type = nullptr;
    qxgss_negotiated_mech_desc mechanism{};
    qxgss_negotiation_desc negotiation{};
    negotiation.MechCount = 7;
    const auto place = [given](auto &output) { return given ? &output : nullptr; };
    Lines seen{
        outcome(QXNEGO_wrap, context, 6, 3, &nothing, place(confidential), place(wrapped)),
        outcome(QXNEGO_unwrap, context, &protection, place(opened), place(was_confidential), place(qop)),
        outcome(QXNEGO_get_mic, context, 3, &message, place(check)),
        outcome(QXNEGO_verify_mic, context, &message, &protection, place(check_qop)),
        outcome(QXNEGO_wrap_size_limit, context, 1, 3, 100, place(limit)),
        outcome(QXNEGO_inquire_context, context, place(source), place(target), place(lifetime), place(type),
                place(flags), place(local), place(open)),
        outcome(QXNEGO_inquire_properties_for_user, context, place(properties)),
        outcome(QXNEGO_inquire_negotiated_mech, context, 0, place(mechanism)),
        outcome(QXNEGO_inquire_negotiation, context, place(negotiation)),
    };
    if (!given)
        return seen;
    const auto text_in = [&](qxgss_buffer_desc &buffer) -> std::string {
        if (buffer.value == text)
            return " kept ";
        return buffer.value == nullptr && buffer.length == 0 ? " empty " : " [" + hex(support::taken(buffer)) + "] ";
    };
    seen[0] += text_in(wrapped) + std::to_string(confidential);
    seen[1] += text_in(opened) + std::to_string(was_confidential) + std::to_string(qop);
    seen[2] += text_in(check);
    seen[3] += " " + std::to_string(check_qop);
    seen[4] += " " + std::to_string(limit);
    seen[5] += " " + hex(lifetime) + " " + hex(flags) + " " + std::to_string(open) + " " +
               (type == nullptr          ? "none"
                : type == pQxnegoMechOid ? "own"
                                         : "its");
    seen[6] += properties.value == text ? " kept" : properties.value == nullptr ? " empty" : " [...]";
    if (properties.value != text)
        gssp_release_buffer(nullptr, &properties);
    seen[7] += mechanism.pMechOid == nullptr ? " none" : " first";
    seen[8] += " " + std::to_string(negotiation.MechCount);
    return seen;
}

std::string Peer::end() {
    if (context == nullptr)
        return kDone;
    act();
    return outcome(QXNEGO_delete_sec_context, &context, nullptr);
}

std::string Peer::entries() const {
    std::string out;
    qxgss_negotiated_mech_desc entry;
    for (OM_uint32 i = 0; QXNEGO_inquire_negotiated_mech(nullptr, context, i, &entry) == GSS_S_COMPLETE; ++i)
        out += (i == 0 ? "" : " ") + verdict(*entry.pMechOid, entry) + (entry.IsStateFromPeer != 0 ? "<" : "");
    return out;
}

std::string Peer::word_for(const NegLogRecord &record) const {
    OM_sint32 index = -1; // of a mechanism that this side has
    for (OM_uint32 own = 0; own < template_.Count; ++own)
        if (support::bytes_of(*template_.pNegMech[own].pMechOid) == support::bytes_of(record.MechOid))
            index = template_.pNegMech[own].MechIndex;
    const bool right =
        record.IsInitiator == (side_ == kClient) && (record.MechOid.length == 0 || record.MechIndex == index);
    return right ? word_of(record.pszLogString) : "wrong side or mechanism";
}

std::string Peer::log() const {
    std::string out, mark, last, said;
    for (const NegLogRecord &record : std::span(negotiation().NegLog.pRecords, negotiation().NegLog.Count)) {
        const std::string now = "[" + std::to_string(record.TokenNum) + (record.IsPolicyApplied != 0 ? "p" : "") + "]";
        const bool of_mechanism = record.MechOid.length != 0;
        const std::string word = word_for(record), before = std::exchange(said, verdict(record.MechOid, record));
        if (word == "adopt" && last == "peer" && before == said && now == mark) {
            out += '=';
            continue;
        }
        const bool again = of_mechanism && now == mark && word == last;
        if (now != mark)
            out += (out.empty() ? "" : " ") + now;
        out += again ? "," : " " + word + (of_mechanism ? ":" : "");
        out += of_mechanism ? said : "";
        mark = now;
        last = of_mechanism ? word : "";
    }
    out += negotiation().NegState == NEG_STATE_REJECT ? " end" : "";
    return out;
}

std::string Session::run() {
    std::string out, token = "not looked at by the first call";
    bool done[2] = {false, false};
    for (int turn = 0; turn < 12 && !(done[0] && done[1]); ++turn) {
        const Side who = turn % 2 == 0 ? kClient : kServer;
        const Outcome outcome = side(who).call(token);
        const std::string said = outcome.statuses();
        out += out.empty() ? "" : ", ";
        out += who == kClient ? "C " : "S ";
        out += said == kDone ? "done" : said == kGoesOn ? "cont" : said;
        out += outcome.output == Output::kKept ? " kept" : outcome.output == Output::kEmpty ? " empty" : " token";
        done[who] = outcome.major == GSS_S_COMPLETE;
        if (GSS_ERROR(outcome.major) != 0 || (outcome.token.empty() && !(done[0] && done[1])))
            break;
        if (!outcome.token.empty())
            tokens.push_back(outcome.token);
        token = outcome.token;
    }
    return out;
}

} // namespace harness
