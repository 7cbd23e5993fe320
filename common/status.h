// The one way to report. Operations with the framework's signatures write a minor status through a pointer that may be
// null and return the major one; between them a Status travels by value.
#ifndef COMMON_STATUS_H
#define COMMON_STATUS_H

#include <type_traits>

#include "qxgss/qxgss.h"

namespace common {

inline constexpr OM_uint32 kInaccessibleRead = GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE;
inline constexpr OM_uint32 kInaccessibleWrite = GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE;

inline bool failed(OM_uint32 major) {
    return GSS_ERROR(major) != 0;
}

struct [[nodiscard]] Status {
    OM_uint32 major = GSS_S_COMPLETE;
    OM_uint32 minor = 0;
    bool failed() const { return common::failed(major); }
};

inline Status failure(OM_uint32 minor) {
    return {GSS_S_FAILURE, minor};
}

inline OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor) {
    if (pMinorStatus != nullptr)
        *pMinorStatus = minor;
    return major;
}

inline OM_uint32 report(OM_uint32 *pMinorStatus, Status status) {
    return report(pMinorStatus, status.major, status.minor);
}

// What a call gives, whose minor status is `Before` until the call says otherwise.
template <OM_uint32 Before, typename... Parameters, typename... Arguments>
Status ask(OM_uint32 (*operation)(OM_uint32 *, Parameters...), Arguments &&...arguments) {
    Status status{GSS_S_COMPLETE, Before};
    status.major = operation(&status.minor, static_cast<Arguments &&>(arguments)...);
    return status;
}

template <typename T> void set_if_given(T *pOutput, std::type_identity_t<T> value) {
    if (pOutput != nullptr)
        *pOutput = value;
}

// The result of a release that goes on after a failing step: the last failure, or success.
class LastFailure {
  public:
    explicit LastFailure(OM_uint32 success) : last_{GSS_S_COMPLETE, success} {}
    void note(Status status) {
        if (status.failed())
            last_ = status;
    }
    Status get() const { return last_; }

  private:
    Status last_;
};

} // namespace common

#endif
