// The library's calls: arguments are checked, and nothing but a status leaves them.
#include "session/qxgss_session.h"

#include <memory>

#include "session/failure.h"
#include "session/session.h"

struct qxgss_session_struct : session::Session {
    using Session::Session;
};

namespace {

using session::Failure;
using session::OutOfOrder;

constexpr OM_uint32 kInaccessibleRead = GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE;
constexpr OM_uint32 kInaccessibleWrite = GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE;

constexpr qxgss_session_options_desc kDefaults = QXGSS_SESSION_DEFAULTS;

OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor) {
    if (pMinorStatus != nullptr)
        *pMinorStatus = minor;
    return major;
}

// Runs an operation that gives a major status.
template <typename Operation> OM_uint32 guarded(OM_uint32 *pMinorStatus, Operation operation) {
    try {
        return report(pMinorStatus, operation(), GSSP_E_SUCCESS);
    } catch (const OutOfOrder &refusal) {
        return report(pMinorStatus, refusal.major, refusal.minor);
    } catch (const Failure &failure) {
        return report(pMinorStatus, failure.major, failure.minor);
    } catch (...) {
        return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_NO_MEMORY);
    }
}

template <typename T> T &required(T *pointer, OM_uint32 major = kInaccessibleRead) {
    if (pointer == nullptr)
        throw OutOfOrder{major, GSSP_E_INVALID_ARGUMENT};
    return *pointer;
}

session::Session &session_of(qxgss_session_t pSession) {
    if (pSession == nullptr)
        throw OutOfOrder{};
    return *pSession;
}

bool is_within(OM_uint32 value, OM_uint32 least, OM_uint32 most) {
    return least <= value && value <= most;
}

const qxgss_session_options_desc &checked(const qxgss_session_options_desc *pOptions) {
    if (pOptions == nullptr)
        return kDefaults;
    if (!is_within(pOptions->MaxMessage, 1U << 10, 1U << 24) || !is_within(pOptions->MaxRounds, 1, 1000) ||
        pOptions->LogonTime == 0)
        throw OutOfOrder{GSS_S_FAILURE, GSSP_E_INVALID_ARGUMENT};
    return *pOptions;
}

template <typename SetUp>
OM_uint32 make(OM_uint32 *pMinorStatus, const qxgss_session_options_desc *pOptions, qxgss_session_t *ppSession,
               SetUp set_up) {
    return guarded(pMinorStatus, [&] {
        required(ppSession, kInaccessibleWrite) = nullptr;
        auto made = std::make_unique<qxgss_session_struct>(checked(pOptions));
        set_up(made->negotiation());
        *ppSession = made.release();
        return GSS_S_COMPLETE;
    });
}

// A call that fills a buffer, which is empty whenever it fails.
template <typename Operation> OM_uint32 fill(OM_uint32 *pMinorStatus, qxgss_buffer_t pOutput, Operation operation) {
    return guarded(pMinorStatus, [&] {
        required(pOutput, kInaccessibleWrite) = {};
        *pOutput = operation().release();
        return GSS_S_COMPLETE;
    });
}

} // namespace

OM_uint32 qxgss_session_initiate(OM_uint32 *pMinorStatus, const qxgss_buffer_desc *pLogon, const char *pszService,
                                 OM_uint32 ReqFlags, const qxgss_session_options_desc *pOptions,
                                 qxgss_session_t *ppSession) {
    return make(pMinorStatus, pOptions, ppSession, [&](session::Negotiation &negotiation) {
        const std::string_view logon = common::bytes_of(pLogon);
        common::Name service =
            session::imported(&required(pszService), GSS_C_NT_HOSTBASED_SERVICE, "the name of the service");
        common::Name name;
        if (!logon.empty())
            name = session::imported(logon, GSS_C_NT_QXAT_MECHDATA_UTF8, "the logon string");
        negotiation.set_up_client(name.get(), std::move(service), ReqFlags);
    });
}

OM_uint32 qxgss_session_accept(OM_uint32 *pMinorStatus, const qxgss_session_options_desc *pOptions,
                               qxgss_session_t *ppSession) {
    return make(pMinorStatus, pOptions, ppSession,
                [](session::Negotiation &negotiation) { negotiation.set_up_server(); });
}

OM_uint32 qxgss_session_step(OM_uint32 *pMinorStatus, qxgss_session_t pSession, const qxgss_buffer_desc *pInput,
                             qxgss_buffer_t pOutput) {
    common::Buffer output;
    const OM_uint32 major = guarded(pMinorStatus, [&] {
        required(pOutput, kInaccessibleWrite) = {};
        const bool is_open = session_of(pSession).step(common::bytes_of(pInput), output);
        *pOutput = output.release();
        return is_open ? GSS_S_COMPLETE : GSS_S_CONTINUE_NEEDED;
    });
    if (GSS_ERROR(major) != 0 && pOutput != nullptr && pSession != nullptr)
        fill(nullptr, pOutput, [&] { return pSession->parting_message(); });
    return major;
}

OM_uint32 qxgss_session_delay(qxgss_session_t pSession) {
    return pSession == nullptr ? 0 : pSession->delay();
}

OM_uint32 qxgss_session_time_left(qxgss_session_t pSession) {
    return pSession == nullptr ? GSS_C_INDEFINITE : pSession->time_left();
}

OM_uint32 qxgss_session_abandon(OM_uint32 *pMinorStatus, qxgss_session_t pSession, qxgss_session_failure_et Failure,
                                const char *pszFailure) {
    return guarded(pMinorStatus, [&] {
        session_of(pSession).abandon(Failure, pszFailure == nullptr ? "" : pszFailure);
        return GSS_S_COMPLETE;
    });
}

OM_uint32 qxgss_session_wrap(OM_uint32 *pMinorStatus, qxgss_session_t pSession, const qxgss_buffer_desc *pText,
                             qxgss_buffer_t pMessage) {
    return fill(pMinorStatus, pMessage, [&] { return session_of(pSession).wrap(common::bytes_of(pText)); });
}

OM_uint32 qxgss_session_unwrap(OM_uint32 *pMinorStatus, qxgss_session_t pSession, const qxgss_buffer_desc *pMessage,
                               qxgss_buffer_t pText) {
    return fill(pMinorStatus, pText, [&] { return session_of(pSession).unwrap(common::bytes_of(pMessage)); });
}

OM_uint32 qxgss_session_end(OM_uint32 *pMinorStatus, qxgss_session_t pSession, qxgss_buffer_t pMessage) {
    return fill(pMinorStatus, pMessage, [&] { return session_of(pSession).end(); });
}

OM_uint32 qxgss_session_inquire(OM_uint32 *pMinorStatus, qxgss_session_t pSession, qxgss_session_facts_desc *pFacts) {
    return guarded(pMinorStatus, [&] {
        required(pSession).describe(required(pFacts, kInaccessibleWrite));
        return GSS_S_COMPLETE;
    });
}

OM_uint32 qxgss_session_inquire_verdict(OM_uint32 *pMinorStatus, qxgss_session_t pSession, OM_uint32 Number,
                                        qxgss_session_verdict_desc *pVerdict) {
    return guarded(pMinorStatus, [&] {
        const session::Verdict *verdict = required(pSession).verdict(Number);
        required(pVerdict, kInaccessibleWrite) = {};
        if (verdict == nullptr)
            throw OutOfOrder{GSS_S_UNAVAILABLE, GSSP_E_NO_MECH_INDEX};
        const qxgss_buffer_desc oid = common::view(verdict->oid);
        pVerdict->Mech = {static_cast<OM_uint32>(oid.length), oid.value};
        pVerdict->MechIndex = verdict->index;
        pVerdict->Client = session::described(verdict->client);
        pVerdict->Server = session::described(verdict->server);
        qxgss_session_judge(pVerdict);
        return GSS_S_COMPLETE;
    });
}

OM_uint32 qxgss_session_properties(OM_uint32 *pMinorStatus, qxgss_session_t pSession, qxgss_buffer_t pProperties) {
    return fill(pMinorStatus, pProperties, [&] { return required(pSession).properties(); });
}

OM_uint32 qxgss_session_delete(OM_uint32 *pMinorStatus, qxgss_session_t *ppSession) {
    return guarded(pMinorStatus, [&] {
        delete std::exchange(required(ppSession, kInaccessibleWrite), nullptr);
        return GSS_S_COMPLETE;
    });
}
