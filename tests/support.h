// What several test programs need: the framework's values as C++ strings, the statuses of a call as one text, records
// as a text, a mechanism of the registry, a folder of the test's own.
#ifndef QXNEGO_SUPPORT_H
#define QXNEGO_SUPPORT_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qxgss/gssp.h"
#include "qxgss/qxgss_records.h"

namespace support {

// The text must outlive what is made of it.
inline qxgss_buffer_desc view(const std::string &text) {
    return {text.size(), const_cast<char *>(text.data())};
}
inline qxgss_OID_desc oid_view(const std::string &bytes) {
    return {static_cast<OM_uint32>(bytes.size()), const_cast<char *>(bytes.data())};
}

inline std::string text_of(const qxgss_buffer_desc &buffer) {
    return {static_cast<char *>(buffer.value), buffer.length};
}
inline std::string bytes_of(const qxgss_OID_desc &oid) {
    return {static_cast<char *>(oid.elements), oid.length};
}
inline std::string text_of(qxgss_name_t name) {
    return name == nullptr ? "(none)" : text_of(name->pElements[0].Name);
}

// The text of a buffer or a name, which is released.
inline std::string taken(qxgss_buffer_desc &buffer) {
    const std::string text = text_of(buffer);
    gssp_release_buffer(nullptr, &buffer);
    return text;
}
inline std::string taken(qxgss_name_t &name) {
    const std::string text = text_of(name);
    gssp_release_name(nullptr, &name);
    return text;
}

// A name to be released.
inline qxgss_name_t imported(const std::string &text, qxgss_OID type = GSS_C_NT_QXAT_MECHDATA_UTF8) {
    qxgss_buffer_desc buffer = view(text);
    qxgss_name_t name = nullptr;
    qxgss_import_name(nullptr, &buffer, type, &name);
    return name;
}

// For a program that does something before and after each call.
inline void (*around_call)(bool before) = [](bool) {};

// The statuses of a call, as "MAJOR/MINOR"; the call must overwrite the minor one.
template <typename... Parameters>
std::string outcome(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    OM_uint32 minor = 1;
    around_call(true);
    const OM_uint32 major = call(&minor, arguments...);
    around_call(false);
    char text[18];
    std::snprintf(text, sizeof text, "%08X/%08X", major, minor);
    return text;
}

// The outcomes of the call with each of its pointers null in turn; one, when all are the same.
template <typename... Parameters>
std::string without_each(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    std::vector<std::string> outcomes;
    const auto without = [&]<typename T>(T &argument) {
        if constexpr (std::is_pointer_v<T>) {
            const T given = std::exchange(argument, nullptr);
            outcomes.push_back(outcome(call, arguments...));
            argument = given;
        }
    };
    (without(arguments), ...);
    if (std::ranges::count(outcomes, outcomes[0]) == std::ssize(outcomes))
        return outcomes[0];
    std::string all;
    for (const std::string &each : outcomes)
        all += (all.empty() ? "" : " ") + each;
    return all;
}

inline void expect_all(const std::string &expected, const std::vector<std::string> &outcomes) {
    for (std::size_t i = 0; i < outcomes.size(); ++i)
        EXPECT_EQ(outcomes[i], expected) << "number " << i;
}

// "ID:LENGTH[data]" of each record, "8:LENGTH(count authorized authenticated policy)" of an attributes record; what
// does not belong to a record comes last.
inline std::string described(const std::string &buffer) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(buffer.data());
    std::string text;
    std::size_t at = 0;
    qxat_data_header_t header;
    for (; qxgss_record_at(bytes, buffer.size(), at, &header) != 0; at += header.qxgss_Length) {
        text += (at == 0 ? "" : " ") + std::to_string(header.qxgss_DataId) + ":" + std::to_string(header.qxgss_Length);
        std::size_t length = 0, end = 9;
        const unsigned char *data = qxgss_record_data(bytes + at, &header, &length);
        if (header.qxgss_DataId == QXGSS_DATA_ID_ATTRIBUTES)
            for (std::size_t i = 4; i < 9; i += i == 4 ? 2 : 1)
                text += (i == 4 ? "(" : " ") + std::to_string(bytes[at + i]) + (i == 8 ? ")" : "");
        else
            text += "[" + std::string(data, data + length) + "]", end = QXGSS_RECORD_DATA_OFFSET + length;
        for (std::size_t i = end; i < header.qxgss_Length; ++i)
            text += bytes[at + i] == 0 ? "" : " not filled up with zeros";
    }
    return text + buffer.substr(at);
}

inline MechInfo_t &registered(std::string_view name) {
    for (OM_uint32 i = 0; i < MechCount; ++i)
        if (name == pMechInfo[i].pszMechName)
            return pMechInfo[i];
    throw std::runtime_error("no mechanism " + std::string(name));
}

struct Folder {
    Folder() {
        char name[] = "/tmp/qxnego_test.XXXXXX";
        path = mkdtemp(name);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    ~Folder() { std::filesystem::remove_all(path); }
    std::string file(const std::string &name, const std::string &content) const {
        std::ofstream(path + "/" + name, std::ios::binary) << content;
        return path + "/" + name;
    }
    std::string path;
};

} // namespace support

#endif
