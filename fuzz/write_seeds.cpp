// Writes the inputs that the corpora began with: the scenarios, their tokens, and texts and records of every kind.
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/input.h"
#include "qxgss/qxgss_records.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace std::string_literals;

std::filesystem::path folder;

void write(const std::string &target, const std::string &bytes) {
    static int number = 0;
    std::filesystem::create_directories(folder / target);
    std::ofstream(folder / target / ("seed-" + std::to_string(++number)), std::ios::binary) << bytes;
}

// A conversation as it is, one with every call in between, and its tokens where no peer sends them.
void write_scenario(char index, const harness::Scenario &scenario) {
    harness::prepare(scenario);
    harness::Session session(scenario.client, scenario.server);
    harness::log_on(scenario, session);
    session.run();
    const std::string unchanged{index, 0};
    write("negotiation", unchanged);
    write("negotiation", unchanged + std::string(8, 32));
    for (const std::string &token : session.tokens) {
        write("asn", token);
        if (token.size() > 0xFF)
            continue;
        const std::string literal = "\3"s + static_cast<char>(token.size()) + token;
        write("negotiation", unchanged + literal);
        write("negotiation", unchanged + "\0"s + literal);
    }
}

std::string record(qxgss_data_id_t id, const std::string &data) {
    std::string bytes(qxgss_record_length(id, data.size()), 0);
    qxgss_put_record(reinterpret_cast<unsigned char *>(bytes.data()), id, bytes.size(), data.data(), data.size());
    return bytes;
}

void write_records() {
    std::string attributes(sizeof(qxgss_data_attributes_t), 0);
    qxgss_put_attributes(reinterpret_cast<unsigned char *>(attributes.data()), 2);
    std::string all = record(QXGSS_DATA_ID_USERNAME, "anna") + attributes +
                      record(QXGSS_DATA_ID_MECHOIDDER, "\x2b\x06") + record(QXGSS_DATA_ID_QXNEGOLOG, "log\n");
    write("records", "\0\0"s + all);
    write("records", "\1\0\1\0"s + static_cast<char>(attributes.size()) + attributes + "Record 1\n");
    write("records", "\2\0\1\0\0"s + all);
    for (const char kind : {'\0', '\1', '\2', '\3', '\10', '\20'})
        write("records", "\3\0\0"s + kind +
                             "\0\2night\nday\1only\2anna\nextuser\nsvc\nfqdn\ndb\nanna\nreal\nanna\nonly\n"s +
                             "ldap://host");
}

constexpr const char *kLogons[] = {
    "authcid=anna password=secret realm=R authzid=z mech=M user=u profile=p userproperties=x",
    "anna@R@@secret",
    "anna@R@@secret user='a \"b'",
    "AUTHCID='it''s' PASSWORD=\"a \"\"b\"\"\", rest",
    "authcid=a authcid=b",
    "user=a user=b",
    "profile=a profile=b",
    "anna\\@x@R,bert@@p,carl@",
    "encuserprops=1 nonsense=2",
    "user= ",
    "=",
};

} // namespace

int main(int argc, char **argv) {
    fuzz::require(argc == 2, "one argument: the folder");
    folder = argv[1];
    OM_uint32 major = 0;
    harness::configure(&major, harness::configuration());
    fuzz::require(major == GSS_S_COMPLETE, "the mechanisms are configured");
    char index = 0;
    for (const harness::Scenario &scenario : harness::scenarios())
        write_scenario(index++, scenario);
    for (const char *text : kLogons)
        for (const char flags : {'\0', '\2', '\7'})
            write("logon", flags + "\0\0"s + text);
    write_records();
}
