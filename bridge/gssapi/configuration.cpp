#include "bridge/gssapi/configuration.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <system_error>

#include <dlfcn.h>

#include "bridge/gssapi/qxnego_gssapi.h"
#include "common/text.h"
#include "qxgss/codes.h"
#include "session/negotiation.h"

namespace bridge {

namespace {

// What is known once it is done. Never deleted: a program may call the module as long as it lives.
struct Configured {
    std::string file;    // empty: the program has configured by itself
    std::string notices; // of the framework
};

std::mutex configuring;
std::atomic<const Configured *> configured{nullptr};

[[noreturn]] void fail(const std::string &line, OM_uint32 minor) {
    throw Failure(QXGSS_SESSION_FAILURE_RESOURCES, line, GSS_S_FAILURE, minor);
}

// Seen from the module, so that an installed tree can be moved; that of one under /usr is in /etc.
std::string installed_file() {
    Dl_info module{};
    if (dladdr(reinterpret_cast<const void *>(&installed_file), &module) == 0 || module.dli_fname == nullptr)
        fail("the module's own file is not known", GSSP_E_NO_PROPERTY);
    const auto folder = std::filesystem::path(module.dli_fname).parent_path();
    std::error_code unresolved;
    const std::string file = std::filesystem::weakly_canonical(folder / QXNEGO_INSTALLED_CONFIGURATION, unresolved);
    return file.starts_with("/usr/etc/") ? file.substr(std::strlen("/usr")) : file;
}

std::string chosen(std::string_view file) {
    const char *const environment = secure_getenv("QXGSS_CONF");
    return !file.empty() ? std::string(file) : environment != nullptr ? environment : installed_file();
}

std::span<const MechInfo_t> registry() {
    return {pMechInfo, MechCount};
}

bool is_in_use(const MechInfo_t &mechanism) {
    return mechanism.fUseMech != GSSP_MECH_UNUSED;
}

std::ptrdiff_t count_in_use() {
    return std::ranges::count_if(registry(), is_in_use);
}

// Whether a mechanism was loaded and then refused to be configured.
bool is_lacking() {
    return std::ranges::any_of(registry(), [](const MechInfo_t &mechanism) {
        return !is_in_use(mechanism) && mechanism.MechFtnTable.ftn_gssp_configure != nullptr;
    });
}

// Whether it was done here; what the framework says.
bool run(OM_uint32 role, const std::string &file, std::string &said) {
    OM_uint32 minor = 0;
    common::Buffer message;
    const OM_uint32 major = qxgss_configure(&minor, role, file.c_str(), message.out());
    said = message.bytes();
    if (common::failed(major) && minor != QXGSS_E_ALREADY_CONFIGURED)
        fail("the configuration: " + (said.empty() ? "there is not enough memory" : common::printable(said)), minor);
    return !common::failed(major);
}

void take_role(OM_uint32 role, Configured &made) {
    qxgss_shutdown(nullptr);
    run(role, made.file, made.notices);
}

void choose_role(bool accepts, Configured &made) {
    const std::ptrdiff_t of_server = count_in_use();
    if (accepts || !is_lacking())
        return;
    take_role(QXGSS_CLIENT, made);
    if (count_in_use() <= of_server)
        take_role(QXGSS_SERVER, made);
}

// QXNEGO is negotiated under the OID by which the host's library knows it, so that nothing underneath can be that.
void check_negotiator(const std::string &said) {
    const auto qxnego = std::ranges::find(registry(), std::string_view("QXNEGO"), &MechInfo_t::pszMechName);
    if (qxnego == registry().end() || !is_in_use(*qxnego))
        fail("QXNEGO is not in use: " + common::printable(said), GSSP_E_MECHANISM_DISABLED);
    if (common::bytes_of(qxnego->pMechOid) != QXNEGO_GSS_MECH)
        fail("the configuration gives QXNEGO another OID than 1.3.6.1.4.1.32473.1.1", GSSP_E_MECHANISM_DISABLED);
}

void configure_now(bool accepts, std::string_view wanted) {
    auto made = std::make_unique<Configured>(Configured{chosen(wanted), {}});
    const bool is_ours = run(QXGSS_SERVER, made->file, made->notices);
    try {
        if (is_ours)
            choose_role(accepts, *made);
        else
            made->file.clear();
        check_negotiator(made->notices);
    } catch (...) {
        if (is_ours)
            qxgss_shutdown(nullptr);
        throw;
    }
    configured = made.release();
}

struct Word {
    std::string_view text;
    Confirmation meaning;
};
constexpr Word kWords[] = {{"if-offered", Confirmation::kIfOffered},
                           {"if-possible", Confirmation::kIfPossible},
                           {"required", Confirmation::kRequired}};

Confirmation meaning_of(std::string_view text) {
    const auto word = std::ranges::find(kWords, text, &Word::text);
    if (word == std::end(kWords))
        refuse(GSS_S_FAILURE, "confirmation must be \"if-offered\", \"if-possible\" or \"required\"");
    return word->meaning;
}

} // namespace

void configure(bool accepts, std::string_view file) {
    if (!is_configured()) {
        const std::lock_guard lock(configuring);
        if (!is_configured())
            configure_now(accepts, file);
    }
    if (const std::string &used = configured.load()->file; !file.empty() && file != used)
        refuse(GSS_S_FAILURE, "the process has another configuration: " + common::quoted(used));
}

bool is_configured() {
    return configured != nullptr;
}

std::string_view notices() {
    return is_configured() ? std::string_view(configured.load()->notices) : std::string_view();
}

std::vector<const MechInfo_t *> negotiable_mechanisms() {
    const auto qxnego = std::ranges::find(registry(), std::string_view("QXNEGO"), &MechInfo_t::pszMechName);
    std::vector<const MechInfo_t *> found;
    if (qxnego == registry().end())
        return found;
    for (const NegMechInfo_t &wanted : std::span(qxnego->pNegMechInfo, qxnego->NegotiatedMechCount))
        for (const MechInfo_t &mechanism : registry())
            if (wanted.fEnabled != 0 && is_in_use(mechanism) &&
                wanted.pNegotiatedMech == std::string_view(mechanism.pszMechOid))
                found.push_back(&mechanism);
    return found;
}

Confirmation wanted_confirmation(std::string_view application) {
    const char *setting = nullptr;
    const char *const environment = secure_getenv("QXNEGO_CONFIRMATION");
    Confirmation strictest = Confirmation::kIfPossible;
    if (!common::failed(gssp_inquire_mech_setting(nullptr, "QXNEGO", "confirmation", &setting)))
        strictest = meaning_of(setting);
    if (environment != nullptr)
        strictest = std::max(strictest, meaning_of(environment));
    return application.empty() ? strictest : std::max(strictest, meaning_of(application));
}

} // namespace bridge
