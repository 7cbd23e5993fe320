// State of the scripted mechanisms and what their operations share. Nothing here allocates by other means than the C
// heap, so that a failing allocation is an ordinary failure of the mechanism.
#include "tests/scripted_mechanism.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace scripted {
namespace {

// A credential or a context; all live ones form a list.
struct Object {
    char mechanism;
    Side side;
    bool is_context;
    bool established;
    int calls;
    Object *next;
};

// Each thread has a script and objects of its own.
thread_local Script current;
thread_local Object *objects = nullptr;
thread_local std::array<Call, 32> last_calls; // those without an operation are free

char oid_bytes[kMechanisms][11] = {"\x2B\6\1\4\1\x81\xFD\x59\2\1", "\x2B\6\1\4\1\x81\xFD\x59\2\2",
                                   "\x2B\6\1\4\1\x81\xFD\x59\2\3", "\x2B\6\1\4\1\x81\xFD\x59\2\4"};
qxgss_OID_desc oids[kMechanisms] = {{10, oid_bytes[0]}, {10, oid_bytes[1]}, {10, oid_bytes[2]}, {10, oid_bytes[3]}};

qxgss_OID own_oid(char mechanism) {
    return &oids[static_cast<std::size_t>(mechanism - 'A')];
}

template <typename T> void give(T *pPlace, std::type_identity_t<T> value) {
    if (pPlace != nullptr)
        *pPlace = value;
}
OM_uint32 answer(OM_uint32 *pMinor, OM_uint32 major, OM_uint32 minor) {
    give(pMinor, minor);
    return major;
}
OM_uint32 fail(OM_uint32 *pMinor, const Behaviour &how) {
    return answer(pMinor, how.major, how.minor);
}
OM_uint32 succeed(OM_uint32 *pMinor, const Behaviour &how) {
    return answer(pMinor, how.supplementary, kSuccess);
}

void note(const Call &call, const qxgss_buffer_desc *text = nullptr) {
    Call &last = last_call(call.operation, call.mechanism);
    last = call;
    if (text != nullptr && text->value != nullptr)
        std::memcpy(last.text.data(), text->value, std::min(text->length, call.text.size() - 1));
}

// How many results are asked for.
template <typename... Places> OM_uint32 asked(Places *...places) {
    return (OM_uint32{places != nullptr} + ... + 0U);
}

Object *make(char mechanism, Side side, bool is_context) {
    auto *object = static_cast<Object *>(std::calloc(1, sizeof(Object)));
    if (object == nullptr)
        return nullptr;
    *object = {mechanism, side, is_context, false, 0, objects};
    objects = object;
    return object;
}

// A handle that is not a live object of that mechanism is a fault of the caller: the test program ends there.
Object &object_of(void *handle, char mechanism, bool is_context) {
    for (Object *object = objects; object != nullptr; object = object->next)
        if (object == handle && object->mechanism == mechanism && object->is_context == is_context)
            return *object;
    std::fprintf(stderr, "mechanism %c was given a handle that it does not have\n", mechanism);
    std::abort();
}

// Does what a message or an inquiry is for, on an established context of a mechanism that does not fail at it:
// `use(context)` gives whether it could.
template <typename Use> OM_uint32 on_context(OM_uint32 *pMinor, void *handle, char mechanism, Use use) {
    const Object *context = handle == nullptr ? nullptr : &object_of(handle, mechanism, true);
    if (context == nullptr || !context->established)
        return answer(pMinor, GSS_S_NO_CONTEXT, kNoContext);
    const Behaviour &how = current.at(mechanism, context->side);
    return !how.messages_fail && use(*context) ? succeed(pMinor, how) : fail(pMinor, how);
}

void destroy(void **pHandle) {
    for (Object **place = &objects; *place != nullptr; place = &(*place)->next)
        if (*place == *pHandle) {
            Object *gone = *place;
            *place = gone->next;
            std::free(gone);
            break;
        }
    *pHandle = nullptr;
}

bool set_text(qxgss_buffer_t pBuffer, std::string_view text) {
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    *pBuffer = {0, nullptr};
    if (copy == nullptr)
        return false;
    text.copy(copy, text.size());
    copy[text.size()] = 0;
    *pBuffer = {text.size(), copy};
    return true;
}

// The token that is due has arrived; an initiator's first call must come without one.
bool is_due(const Object &context, int number, const qxgss_buffer_desc *pInput) {
    if (number == 0)
        return pInput == nullptr || pInput->length == 0;
    const char due[] = {context.mechanism, static_cast<char>('0' + number)};
    return pInput != nullptr && pInput->length == 2 && std::memcmp(pInput->value, due, 2) == 0;
}

// One call of either role.
OM_uint32 advance(OM_uint32 *pMinor, Object &context, qxgss_buffer_t pInput, qxgss_buffer_t pOutput) {
    const Behaviour &how = current.at(context.mechanism, context.side);
    const int legs = current.legs[static_cast<std::size_t>(context.mechanism - 'A')];
    ++context.calls;
    if (context.calls == how.failing_call) {
        const char error[] = {context.mechanism, '!'};
        if (how.error_token)
            set_text(pOutput, {error, 2});
        return fail(pMinor, how);
    }
    const int due = context.side == kClient ? 2 * (context.calls - 1) : 2 * context.calls - 1;
    if (!is_due(context, due, pInput) || context.established)
        return answer(pMinor, GSS_S_DEFECTIVE_TOKEN, kBadToken);
    const char token[] = {context.mechanism, static_cast<char>('1' + due)};
    if (due < legs && !set_text(pOutput, {token, 2}))
        return fail(pMinor, how);
    context.established = due + 1 >= legs;
    return answer(pMinor, how.supplementary | (context.established ? GSS_S_COMPLETE : GSS_S_CONTINUE_NEEDED), kSuccess);
}

OM_uint32 make_name(std::string_view text, qxgss_name_t *ppName) {
    qxgss_buffer_desc buffer{text.size(), const_cast<char *>(text.data())};
    return qxgss_import_name(nullptr, &buffer, GSS_C_NT_QXAT_MECHDATA_UTF8, ppName);
}

OM_uint32 name_of_credential(OM_uint32 *pMinor, const Behaviour &how, qxgss_name_t *ppName) {
    *ppName = nullptr;
    if (how.principal == Principal::kFailure)
        return fail(pMinor, how);
    if (how.principal == Principal::kNoName)
        return succeed(pMinor, how);
    if (GSS_ERROR(make_name(how.principal_text, ppName)))
        return fail(pMinor, how);
    qxgss_name_element_t element = (*ppName)->pElements;
    if (how.principal == Principal::kEmptyText)
        gssp_release_buffer(nullptr, &element->Name);
    if (how.principal == Principal::kNoElements) {
        gssp_release_name(nullptr, ppName);
        *ppName = static_cast<qxgss_name_t>(std::calloc(1, sizeof(qxgss_name_desc)));
    }
    return succeed(pMinor, how);
}

// A message's protection: the mechanism's letter, the quality of protection, then the bytes xored with `key`.
bool protect(char mechanism, qxgss_qop_t qop, unsigned char key, const qxgss_buffer_desc &input,
             qxgss_buffer_t pOutput) {
    const auto *in = static_cast<const char *>(input.value);
    auto *bytes = static_cast<char *>(std::malloc(input.length + 2));
    if (bytes == nullptr)
        return false;
    bytes[0] = mechanism;
    bytes[1] = static_cast<char>(qop);
    std::transform(in, in + input.length, bytes + 2, [key](char byte) { return static_cast<char>(byte ^ key); });
    *pOutput = {input.length + 2, bytes};
    return true;
}

// The message behind a protection, or what gets its check bytes compared.
bool unprotect(char mechanism, unsigned char key, const qxgss_buffer_desc &input, qxgss_buffer_t pOutput,
               qxgss_qop_t *pQop) {
    const auto *in = static_cast<const char *>(input.value);
    auto *bytes = input.length < 2 || in[0] != mechanism ? nullptr : static_cast<char *>(std::malloc(input.length));
    if (bytes == nullptr)
        return false;
    std::transform(in + 2, in + input.length, bytes, [key](char byte) { return static_cast<char>(byte ^ key); });
    *pOutput = {input.length - 2, bytes};
    give(pQop, static_cast<unsigned char>(in[1]));
    return true;
}

constexpr unsigned char kWrapKey = 0x5A;
constexpr unsigned char kMicKey = 0xC3;

} // namespace

Script &script() {
    return current;
}

Call &last_call(std::string_view operation, char mechanism) {
    for (Call &call : last_calls)
        if (call.operation == nullptr || (operation == call.operation && mechanism == call.mechanism)) {
            call.operation = operation.data();
            call.mechanism = mechanism;
            return call;
        }
    std::abort();
}

int live_objects() {
    int count = 0;
    for (const Object *object = objects; object != nullptr; object = object->next)
        ++count;
    return count;
}

void reset() {
    while (objects != nullptr) {
        void *handle = objects;
        destroy(&handle);
    }
    current = {};
    last_calls = {};
}

#define MECHANISM 'A'
#define OPERATION(name) MECH_A_##name
#include "tests/scripted_operations.inc"
#define MECHANISM 'B'
#define OPERATION(name) MECH_B_##name
#include "tests/scripted_operations.inc"
#define MECHANISM 'C'
#define OPERATION(name) MECH_C_##name
#include "tests/scripted_operations.inc"
#define MECHANISM 'D'
#define OPERATION(name) MECH_D_##name
#include "tests/scripted_operations.inc"

} // namespace scripted
