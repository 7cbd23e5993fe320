// The log: recording 64 events, from its making to its release, and rendering logs of 1 to 4,096 records.
#include "bench/cases.h"
#include "bench/workload.h"
#include "gssp2qxnego/gssp2qxnegoint.h"

namespace {

struct Log {
    Log() {
        bench::expect(QXNEGO_INT_InitNegLog(nullptr, &context) == GSS_S_COMPLETE, "log");
        entry.pMechOid = &mechanism;
        entry.MechState = NEG_MECH_STATE_AVAILABLE;
        entry.MechReason = NEG_MECH_REASON_AVAILABLE;
        entry.MechIndex = 1;
    }
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;
    ~Log() { QXNEGO_INT_ReleaseNegLog(nullptr, &context); }

    void record() {
        QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_Mechs_Init_Contexts: Mechanism established context", &entry,
                               &context);
    }

    qxgss_buffer_desc render() {
        qxgss_buffer_desc text{};
        bench::expect(QXNEGO_INT_GetNegLog(nullptr, &context, 0, &text) == GSS_S_COMPLETE, "render");
        return text;
    }

    unsigned char oid[9] = {0x2B, 6, 1, 4, 1, 0x81, 0xFD, 0x59, 0};
    qxgss_OID_desc mechanism{sizeof oid, oid};
    NegMechEntry_desc entry{};
    NegContext_desc context{};
};

// As many as a log has room for at first.
void record(const bench::Repeat &repeat) {
    repeat(
        [] {
            Log log;
            for (int i = 0; i < 64; ++i)
                log.record();
        },
        0);
}

void render(int records, const bench::Repeat &repeat) {
    const bench::Framework framework(1, 1);
    Log log;
    for (int i = 0; i < records; ++i)
        log.record();
    qxgss_buffer_desc text = log.render();
    const std::size_t bytes = text.length;
    gssp_release_buffer(nullptr, &text);
    repeat(
        [&] {
            qxgss_buffer_desc again = log.render();
            gssp_release_buffer(nullptr, &again);
        },
        bytes);
}

} // namespace

int main(int argc, char **argv) {
    bench::add_case("record", record);
    for (const int records : {1, 16, 64, 512, 4096})
        bench::add_case("render/records:" + std::to_string(records),
                        [=](const bench::Repeat &repeat) { render(records, repeat); });
    return bench::run_cases(argc, argv);
}
