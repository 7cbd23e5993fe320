// Opens the mechanisms of the configuration file, fills their function tables and configures them. A mechanism that
// fails is taken out of use and says why; the others go on.
#include <cstdio>
#include <string_view>

#include <dlfcn.h>
#include <link.h>

#include "qxgss/internal.h"
#include "qxgss/operations.h"
#include "qxgss/qxgss.h"

namespace {

using namespace qxgss;

void take_out_of_use(Mechanism &mechanism, MechInfo_t &info, const std::string &why) {
    mechanism.message = why;
    info.pszMessage = mechanism.message.data();
    info.fUseMech = GSSP_MECH_UNUSED;
}

// ---- Function tables -----------------------------------------------------------------------------------------------

// A symbol of a library may be a variable of that name; one for each thread is in no object. A symbol without a type,
// as assembler makes them, is taken for code, and so is what has none of its own, as the choice of an indirect
// function.
bool is_code(const void *address) {
    Dl_info object;
    void *entry = nullptr;
    if (dladdr1(address, &object, &entry, RTLD_DL_SYMENT) == 0)
        return false;
    const auto *symbol = static_cast<const ElfW(Sym) *>(entry);
    return symbol == nullptr || ELF64_ST_TYPE(symbol->st_info) != STT_OBJECT; // the same for 32 bits
}

// The mechanism's operations in its library, or in the program.
class Symbols {
  public:
    Symbols(void *handle, const std::string &prefix) : handle_(handle), prefix_(prefix + "_") {}

    template <typename Function> void fill(const char *operation, Function *&slot) {
        const std::string name = prefix_ + operation;
        void *const address = dlsym(handle_, name.c_str());
        const bool wrong = address != nullptr && !is_code(address);
        if (wrong)
            data_ = name;
        slot = wrong ? nullptr : reinterpret_cast<Function *>(address);
        found_ = found_ || slot != nullptr;
    }
    bool found() const { return found_; }
    const std::string &data() const { return data_; } // the name of a symbol that is no function; empty: none

  private:
    void *handle_;
    std::string prefix_;
    std::string data_;
    bool found_ = false;
};

#define ONE_MORE(SIZE, operation) +SIZE
static_assert(QXGSS_OPERATIONS(ONE_MORE, sizeof(void (*)())) == sizeof(qxgss_ftn_table_desc),
              "an operation has no row");
#undef ONE_MORE

void fill_table(Symbols &symbols, qxgss_ftn_table_desc &table) {
#define FILL(TABLE, operation) symbols.fill(#operation, TABLE.ftn_gssp_##operation);
    QXGSS_OPERATIONS(FILL, table)
#undef FILL
}

// Why what was found cannot be used; empty when it can.
std::string why_unusable(Symbols &symbols, const std::string &prefix) {
    OM_uint32 (*version)() = nullptr;
    const bool has_operations = symbols.found();
    symbols.fill("interface_version", version);
    if (!symbols.data().empty())
        return symbols.data() + " is data, not a function";
    if (!has_operations)
        return "no operation of it has the prefix " + prefix + "_";
    const OM_uint32 made_for = version != nullptr ? version() : QXGSS_INTERFACE_VERSION;
    if (made_for == QXGSS_INTERFACE_VERSION)
        return {};
    return "it is made for version " + std::to_string(made_for) + " of the framework's interface, which is " +
           std::to_string(QXGSS_INTERFACE_VERSION);
}

void open_mechanism(Mechanism &mechanism, MechInfo_t &info) {
    if (!mechanism.enabled)
        return take_out_of_use(mechanism, info, "it is disabled in the configuration file");
    // The handle is never closed: code of the library may still be running, or be called at the end of the process.
    void *handle = dlopen(mechanism.library.empty() ? nullptr : mechanism.library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        return take_out_of_use(mechanism, info, dlerror());
    Symbols symbols(handle, mechanism.prefix);
    fill_table(symbols, info.MechFtnTable);
    const std::string why = why_unusable(symbols, mechanism.prefix);
    if (why.empty())
        return;
    info.MechFtnTable = {};
    take_out_of_use(mechanism, info, why);
}

// ---- Registry ------------------------------------------------------------------------------------------------------

MechInfo_t describe(Mechanism &mechanism) {
    mechanism.oid_desc = {static_cast<OM_uint32>(mechanism.der.size()), mechanism.der.data()};
    for (Negotiable &negotiable : mechanism.negotiates)
        mechanism.negotiable_info.push_back({negotiable.enabled ? 1U : 0U, negotiable.oid.data()});
    MechInfo_t info{};
    info.pszMechName = mechanism.name.data();
    info.pMechOid = &mechanism.oid_desc;
    info.pszMechOid = mechanism.oid.data();
    info.NegotiatedMechCount = static_cast<OM_uint32>(mechanism.negotiable_info.size());
    info.pNegMechInfo = mechanism.negotiable_info.data();
    info.fUseMech = GSSP_MECH_IN_USE;
    info.pszLibrary = mechanism.library.empty() ? nullptr : mechanism.library.data();
    return info;
}

void publish(Configuration &made) {
    for (Mechanism &mechanism : made.mechanisms)
        made.registry.push_back(describe(mechanism));
    pMechInfo = made.registry.data();
    MechCount = static_cast<OM_uint32>(made.registry.size());
}

// ---- Configure operations ------------------------------------------------------------------------------------------

// The buffer into which a mechanism writes its messages.
class Messages {
  public:
    Messages() = default;
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;
    ~Messages() { gssp_release_buffer(nullptr, &buffer_); }

    qxgss_buffer_t get() { return &buffer_; }
    std::string text() const {
        return present(buffer_) ? std::string(static_cast<const char *>(buffer_.value), buffer_.length) : "";
    }

  private:
    qxgss_buffer_desc buffer_{};
};

std::string status_text(OM_uint32 major, OM_uint32 minor) {
    char text[128];
    std::snprintf(text, sizeof text, "its configure operation failed with major status 0x%08X, minor status 0x%08X",
                  major, minor);
    return text;
}

// What an operation throws is its own failure, and not ours.
OM_uint32 call_configure(const MechInfo_t &info, OM_uint32 *pMinor, OM_uint32 ClientServer, qxgss_buffer_t pPath,
                         qxgss_buffer_t pMessages, std::string &thrown) {
    try {
        return info.MechFtnTable.ftn_gssp_configure(pMinor, ClientServer, pPath, pMessages);
    } catch (const std::exception &exception) {
        thrown = std::string("its configure operation threw an exception: ") + exception.what();
    } catch (...) {
        thrown = "its configure operation threw an exception";
    }
    return GSS_S_FAILURE;
}

// Returns what the mechanism has to say.
std::string configure_mechanism(Mechanism &mechanism, MechInfo_t &info, OM_uint32 ClientServer,
                                std::string library_path) {
    if (info.fUseMech == GSSP_MECH_UNUSED || info.MechFtnTable.ftn_gssp_configure == nullptr)
        return mechanism.enabled ? mechanism.message : "";
    Messages messages;
    qxgss_buffer_desc path{library_path.size(), library_path.data()};
    OM_uint32 minor = GSSP_E_SUCCESS;
    std::string thrown;
    info.fUseMech = GSSP_MECH_BEING_CONFIGURED;
    const OM_uint32 major = call_configure(info, &minor, ClientServer, &path, messages.get(), thrown);
    info.fUseMech = GSSP_MECH_IN_USE;
    const std::string text = thrown.empty() ? messages.text() : thrown;
    if (GSS_ERROR(major) != 0)
        take_out_of_use(mechanism, info, text.empty() ? status_text(major, minor) : text);
    return GSS_ERROR(major) != 0 ? mechanism.message : text;
}

void add_line(std::string &text, const std::string &line) {
    text += (text.empty() ? "" : "\n") + line;
}

// Returns the mechanisms' messages, a line each. A negotiating mechanism asks the registry which others are in use, so
// those come first.
std::string configure_all(Configuration &made, OM_uint32 ClientServer) {
    std::string all;
    for (const bool negotiating : {false, true})
        for (std::size_t i = 0; i < made.mechanisms.size(); ++i) {
            Mechanism &mechanism = made.mechanisms[i];
            if (mechanism.negotiates.empty() == negotiating)
                continue;
            const std::string said = configure_mechanism(mechanism, made.registry[i], ClientServer, made.library_path);
            if (!said.empty())
                add_line(all, mechanism.name + ": " + said);
        }
    return all;
}

OM_uint32 hand_out(OM_uint32 *pMinorStatus, std::string_view text, qxgss_buffer_t pMessage) {
    if (pMessage == nullptr)
        return succeed(pMinorStatus);
    qxgss_buffer_desc source{text.size(), const_cast<char *>(text.data())};
    return gssp_duplicate_buffer(pMinorStatus, &source, pMessage);
}

OM_uint32 load(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, const char *pszConfigFile, qxgss_buffer_t pMessage) {
    configuration = new Configuration(read_configuration(pszConfigFile));
    publish(*configuration);
    for (std::size_t i = 0; i < configuration->mechanisms.size(); ++i)
        open_mechanism(configuration->mechanisms[i], configuration->registry[i]);
    std::string message = configure_all(*configuration, ClientServer);
    for (const std::string &warning : configuration->warnings)
        add_line(message, warning);
    for (const std::string &line : missing_names(*configuration))
        add_line(message, line);
    const OM_uint32 major = hand_out(pMinorStatus, message, pMessage);
    if (GSS_ERROR(major) != 0)
        qxgss_shutdown(nullptr);
    return major;
}

} // namespace

OM_uint32 qxgss_configure(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, const char *pszConfigFile,
                          qxgss_buffer_t pMessage) {
    if (pMessage != nullptr)
        *pMessage = {};
    if (configuration != nullptr)
        return fail(pMinorStatus, QXGSS_E_ALREADY_CONFIGURED);
    if (ClientServer != QXGSS_CLIENT && ClientServer != QXGSS_SERVER)
        return fail(pMinorStatus, QXGSS_E_BAD_CLIENT_SERVER);
    if (pszConfigFile == nullptr || *pszConfigFile == '\0')
        return fail(pMinorStatus, QXGSS_E_NO_FILE_NAME);
    try {
        return load(pMinorStatus, ClientServer, pszConfigFile, pMessage);
    } catch (const WrongFile &file) {
        hand_out(nullptr, file.what(), pMessage);
        return fail(pMinorStatus, file.minor);
    } catch (...) {
        qxgss_shutdown(nullptr);
        return fail(pMinorStatus, GSSP_E_NO_MEMORY);
    }
}

OM_uint32 qxgss_shutdown(OM_uint32 *pMinorStatus) {
    pMechInfo = nullptr;
    MechCount = 0;
    delete configuration;
    configuration = nullptr;
    forget_unregistered_oids();
    return succeed(pMinorStatus);
}
