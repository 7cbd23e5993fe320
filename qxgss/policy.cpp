// The mechanisms that a user may log on with. The configuration file lists accounts with their names; a name that it
// does not list gets the default, within what the accounts allow that it may belong to.
#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "qxgss/internal.h"

namespace qxgss {
namespace {

// ---- Names ---------------------------------------------------------------------------------------------------------

// How a mechanism gives the name of a user.
enum Form { kBare, kRealm, kDomain };
constexpr std::size_t kForms = 3;

struct Name {
    std::string_view text;
    Form form;
    std::string_view user; // without realm or domain
};

// The last '@' that no backslash stands before, as the name of a realm may have one.
std::size_t find_realm(std::string_view text) {
    std::size_t found = std::string_view::npos;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '@')
            found = i;
        i += text[i] == '\\' ? 1 : 0;
    }
    return found;
}

Name parsed(std::string_view text) {
    if (const std::size_t realm = find_realm(text); realm != std::string_view::npos)
        return {text, kRealm, text.substr(0, realm)};
    if (const std::size_t domain = text.rfind('\\'); domain != std::string_view::npos)
        return {text, kDomain, text.substr(domain + 1)};
    return {text, kBare, text};
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Letters beyond ASCII of which another case is in ASCII, by full case folding and by the simple mappings.
constexpr std::pair<std::string_view, std::string_view> kAsciiInAnotherCase[] = {
    {"\u00df", "ss"}, {"\u0130", "i"},   {"\u0131", "i"},   {"\u0149", "n"},  {"\u017f", "s"},
    {"\u01f0", "j"},  {"\u1e96", "h"},   {"\u1e97", "t"},   {"\u1e98", "w"},  {"\u1e99", "y"},
    {"\u1e9a", "a"},  {"\u1e9e", "ss"},  {"\u212a", "k"},   {"\ufb00", "ff"}, {"\ufb01", "fi"},
    {"\ufb02", "fl"}, {"\ufb03", "ffi"}, {"\ufb04", "ffl"}, {"\ufb05", "st"}, {"\ufb06", "st"},
};

// Texts that may differ in case alone have this in common. The case of other letters beyond ASCII is not known here:
// they are left out, so that a text is taken for too many others rather than for too few.
std::string without_case(std::string_view text) {
    std::string common;
    for (; !text.empty(); text.remove_prefix(1)) {
        if (static_cast<unsigned char>(text.front()) < 0x80) {
            common += lower(text.front());
            continue;
        }
        for (const auto &[letter, ascii] : kAsciiInAnotherCase)
            if (text.starts_with(letter))
                common += ascii;
    }
    return common;
}

// A name as it is compared with the listed ones: those with a domain have no case, as far as ASCII goes.
std::string compared_name(std::string_view name) {
    std::string text(name);
    if (parsed(name).form == kDomain)
        std::transform(text.begin(), text.end(), text.begin(), lower);
    return text;
}

// ---- Accounts ------------------------------------------------------------------------------------------------------

bool has_name_of(const Account &account, Form form) {
    return std::any_of(account.names.begin(), account.names.end(),
                       [form](const std::string &name) { return parsed(name).form == form; });
}

// What both allow.
Allowed both(const Allowed &one, const Allowed &other) {
    if (!one || !other)
        return one ? one : other;
    MechanismNumbers common;
    for (const std::size_t number : *one)
        if (std::find(other->begin(), other->end(), number) != other->end())
            common.push_back(number);
    return common;
}

template <typename Visit> void for_similar(std::string_view name, Visit visit) {
    const auto [first, last] = configuration->similar.equal_range(without_case(name));
    for (auto each = first; each != last; ++each)
        visit(configuration->accounts[each->second]);
}

// A name that is not listed may belong to an account all the same: as a name of that user in any realm or domain, when
// the account does not say which; or as its name with a domain, in another case.
Allowed allowed_by_default(const Name &name) {
    Allowed result = configuration->default_policy;
    for_similar(name.user, [&](const Account &account) {
        if (!has_name_of(account, name.form))
            result = both(result, account.allowed);
    });
    if (name.form == kDomain)
        for_similar(name.text, [&](const Account &account) { result = both(result, account.allowed); });
    return result;
}

Allowed allowed(std::string_view user) {
    if (configuration->accounts.empty())
        return configuration->default_policy;
    const auto listed = configuration->listed.find(compared_name(user));
    return listed != configuration->listed.end() ? configuration->accounts[listed->second].allowed
                                                 : allowed_by_default(parsed(user));
}

OM_uint32 add_all(OM_uint32 *pMinorStatus, const MechanismNumbers &numbers, qxgss_OID_set *ppMechs) {
    if (numbers.empty())
        return gssp_add_oid_set_member(pMinorStatus, GSSP_C_NO_MECHANISM, ppMechs);
    for (const std::size_t number : numbers) {
        const OM_uint32 major = gssp_add_oid_set_member(pMinorStatus, pMechInfo[number].pMechOid, ppMechs);
        if (GSS_ERROR(major) != 0)
            return major;
    }
    return succeed(pMinorStatus);
}

// ---- Forms that are missing ----------------------------------------------------------------------------------------

constexpr std::array<const char *, kForms> kFormTexts = {"user", "user@REALM", "DOMAIN\\user"};

Form form_of(const Mechanism &mechanism) {
    if (mechanism.oid == "1.2.840.113554.1.2.2") // Kerberos
        return kRealm;
    return mechanism.oid == "1.3.6.1.4.1.311.2.2.10" ? kDomain : kBare; // NTLM
}

// For each form the mechanisms that give it and can be negotiated, as a text.
std::array<std::string, kForms> mechanisms_by_form(const Configuration &made) {
    std::set<std::string> negotiable;
    for (std::size_t i = 0; i < made.mechanisms.size(); ++i)
        for (const Negotiable &each : made.mechanisms[i].negotiates)
            if (made.registry[i].fUseMech != GSSP_MECH_UNUSED && each.enabled)
                negotiable.insert(each.oid);
    std::array<std::string, kForms> names;
    for (std::size_t i = 0; i < made.mechanisms.size(); ++i) {
        const Mechanism &mechanism = made.mechanisms[i];
        std::string &list = names[form_of(mechanism)];
        if (made.registry[i].fUseMech != GSSP_MECH_UNUSED && negotiable.count(mechanism.oid) != 0)
            list += (list.empty() ? "" : ", ") + mechanism.name;
    }
    return names;
}

} // namespace

const Account *add_name(Configuration &result, const std::string &name) {
    const std::size_t number = result.accounts.size() - 1;
    Account &account = result.accounts.back();
    const auto [place, is_new] = result.listed.try_emplace(compared_name(name), number);
    if (place->second != number)
        return &result.accounts[place->second];
    if (!is_new)
        return nullptr;
    const Form form = parsed(name).form;
    if (form == kDomain || (form == kBare && account.names.empty()))
        result.similar.emplace(without_case(name), number);
    account.names.push_back(name);
    return nullptr;
}

std::vector<std::string> missing_names(const Configuration &made) {
    const std::array<std::string, kForms> mechanisms = mechanisms_by_form(made);
    std::vector<std::string> lines;
    for (const Account &account : made.accounts) {
        std::string missing;
        for (const Form form : {kBare, kRealm, kDomain})
            if (!mechanisms[form].empty() && !has_name_of(account, form))
                missing +=
                    (missing.empty() ? "" : " or ") + std::string(kFormTexts[form]) + " (" + mechanisms[form] + ")";
        if (missing.empty())
            continue;
        const std::string &key = account.names.front();
        lines.push_back("policy.users." + key + ": no name of the form " + missing + ": " +
                        (parsed(key).form == kBare ? "the policy holds for every such name of that user"
                                                   : "such a name gets the default"));
    }
    return lines;
}

} // namespace qxgss

using namespace qxgss;

namespace {

unsigned char no_mechanism[] = {0x80}; // no subidentifier begins with it (X.690 8.19.2)
qxgss_OID_desc no_mechanism_oid = {sizeof no_mechanism, no_mechanism};

} // namespace

qxgss_OID GSSP_C_NO_MECHANISM = &no_mechanism_oid;

OM_uint32 gssp_inquire_mech_policy_for_user(OM_uint32 *pMinorStatus, const char *pszUser, qxgss_OID_set *ppMechs) try {
    if (ppMechs == nullptr)
        return fail(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    *ppMechs = nullptr;
    if (pszUser == nullptr || *pszUser == '\0')
        return fail(pMinorStatus, QXGSS_E_BAD_USER_NAME);
    // No policy is not the same as an unknown one: without a configuration nobody is let through.
    if (configuration == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_POLICY);
    const Allowed numbers = allowed(pszUser);
    if (!numbers)
        return succeed(pMinorStatus);
    OM_uint32 major = gssp_create_empty_oid_set(pMinorStatus, ppMechs);
    if (GSS_ERROR(major) == 0)
        major = add_all(pMinorStatus, *numbers, ppMechs);
    if (GSS_ERROR(major) != 0)
        gssp_release_oid_set(nullptr, ppMechs);
    return major;
} catch (...) {
    return fail(pMinorStatus, GSSP_E_NO_MEMORY);
}
