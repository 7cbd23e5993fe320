// Markup is constants alone; everything else goes through Page::text, which escapes it, or is a number.
#include "tools/show/page.h"

#include <algorithm>
#include <span>
#include <utility>

#include "tools/show/codes.h"
#include "tools/show/log.h"
#include "tools/show/remedies.h"

namespace tools {

namespace {

using common::bytes_of;
using Record = LogRecord;

constexpr std::size_t kMostRecords = 5'000; // that are looked at
constexpr std::size_t kMostMechanisms = 32; // with these three a page stays within its size
constexpr std::size_t kMostSegments = 16;   // of a band
constexpr std::size_t kRoomForEnd = 4096;   // what stands behind the records, and the rest of one

class Markup {
  public:
    template <std::size_t Size> consteval Markup(const char (&text)[Size]) : text_(text, Size - 1) {}
    std::string_view get() const { return text_; }

  private:
    std::string_view text_;
};

class Page {
  public:
    Page &operator<<(Markup markup) {
        out_ += markup.get();
        return *this;
    }
    Page &operator<<(std::uint64_t number) {
        out_ += std::to_string(number);
        return *this;
    }
    Page &text(std::string_view text, std::size_t most = common::kMostOfText) {
        for (const char c : printable(text, most)) {
            const std::size_t at = kSpecial.find(c);
            at == kSpecial.npos ? out_ += c : out_ += kEntities[at];
        }
        return *this;
    }
    std::size_t size() const { return out_.size(); }
    std::string take() { return std::move(out_); }

  private:
    static constexpr std::string_view kSpecial = "&<>\"'";
    static constexpr std::string_view kEntities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
    std::string out_;
};

constexpr Markup kHead = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="referrer" content="no-referrer"><meta name="viewport" content="width=device-width, initial-scale=1">
<style>
body{font:15px/1.4 system-ui,sans-serif;color:#1b1f24;background:#fff;max-width:1100px;margin:0 auto;padding:12px}
h1{font-size:1.5em;margin:.3em 0}h2{font-size:1.15em;margin:1.6em 0 .5em}h3{font-size:1em;margin:0 0 .2em}p{margin:.3em 0}
h1,h3,p,td,th,.e,.s{overflow-wrap:anywhere}small{color:#57606a}
.note{background:#fff1e5;border-left:4px solid #bc4c00;padding:6px 10px}
table{border-collapse:collapse}th,td{text-align:left;vertical-align:top;padding:2px 12px 2px 0}th{font-weight:600}
.band{display:flex;margin:2px 0 6px}.s{flex-basis:0;min-width:0;padding:3px 6px;border:1px solid #fff;background:#eaeef2}
.sel{background:#cdf1d3}.rej{background:#ffd8d3}
.card{border-left:4px solid #cf222e;padding:2px 10px;margin:0 0 12px}
.g{display:grid;grid-template-columns:1fr 1fr;gap:4px 24px;align-items:start}.g>h3{border-bottom:2px solid #57606a}
.c{grid-column:1}.v{grid-column:2}.e{background:#f6f8fa;border-left:3px solid #8c959f;padding:3px 8px}
.e.sel{border-color:#1a7f37;background:#eafbee}.e.rej{border-color:#cf222e;background:#fff0ee}.told{border-left-style:dashed}
.a{grid-column:1/3;display:flex;align-items:center;gap:8px;color:#0550ae;margin:8px 0}
.l{flex:1;border-top:2px solid #0550ae}
@media(max-width:600px){body{font-size:13px}.g{gap:4px 8px}.band{flex-direction:column}.s{flex:none}td,th{display:block}}
</style>
)";

Markup side_word(bool is_client) {
    return is_client ? Markup("client") : Markup("server");
}

Markup class_of(OM_uint32 state) {
    return state == QXGSS_MECH_STATE_SELECTED   ? Markup(" sel")
           : state == QXGSS_MECH_STATE_REJECTED ? Markup(" rej")
                                                : Markup("");
}

// "Rejected, Due to Policy"; of an available one only what it has come to.
void put_state(Page &page, const Record &record) {
    page.text(state_word(record));
    if (record.MechState != QXGSS_MECH_STATE_AVAILABLE && record.MechReason != 0)
        page << ", ";
    if (record.MechState != QXGSS_MECH_STATE_AVAILABLE)
        page.text(reason_word(record));
    if (record.IsCtxEstablished != 0)
        page << ", established";
}

// ---- Bands ---------------------------------------------------------------------------------------------------------

struct Segment {
    const Record *record;
    std::uint64_t end; // milliseconds
};

bool is_same(const Record &a, const Record &b) {
    return a.MechState == b.MechState && a.MechReason == b.MechReason && a.IsCtxEstablished == b.IsCtxEstablished;
}

// What a side says of a mechanism, from each change to the next.
std::vector<Segment> segments_of(const std::vector<Record> &records, const std::string &mechanism, bool is_peer_view) {
    std::vector<Segment> segments;
    for (const Record &record : records) {
        if ((record.IsPeerView != 0) != is_peer_view || record.MechState == 0 || mechanism_of(record) != mechanism)
            continue;
        if (segments.empty() || !is_same(*segments.back().record, record))
            segments.push_back({&record, record.ElapsedTime});
    }
    for (std::size_t i = 0; i != segments.size(); ++i)
        segments[i].end = i + 1 == segments.size() ? records.back().ElapsedTime : segments[i + 1].record->ElapsedTime;
    return segments;
}

// The width grows with the time, and the shortest can still be seen.
std::uint64_t width_of(const Segment &segment, std::uint64_t whole) {
    const std::uint64_t begin = segment.record->ElapsedTime;
    const std::uint64_t length = segment.end > begin ? segment.end - begin : 0;
    return 25 + (whole == 0 ? 0 : std::min<std::uint64_t>(100, length / (whole / 100 + 1)));
}

void put_band(Page &page, const std::vector<Record> &records, const std::string &mechanism, bool is_peer_view) {
    const std::vector<Segment> segments = segments_of(records, mechanism, is_peer_view);
    if (segments.empty())
        return;
    const bool is_client = (records.front().IsInitiator != 0) != is_peer_view;
    page << "<p><small>" << (is_peer_view ? Markup("as told by the ") : Markup("at the ")) << side_word(is_client)
         << "</small></p><div class=\"band\">";
    for (const Segment &segment : std::span(segments).first(std::min(segments.size(), kMostSegments))) {
        page << "<div class=\"s" << class_of(segment.record->MechState)
             << "\" style=\"flex-grow:" << width_of(segment, records.back().ElapsedTime) << "\">";
        put_state(page, *segment.record);
        page << "<br><small>from " << segment.record->ElapsedTime << " ms</small></div>";
    }
    page << "</div>";
}

std::vector<std::string> mechanisms_of(const std::vector<Record> &records) {
    std::vector<std::string> names;
    for (const Record &record : records)
        if (const std::string name = mechanism_of(record);
            !name.empty() && names.size() < kMostMechanisms && std::ranges::find(names, name) == names.end())
            names.push_back(name);
    return names;
}

void put_bands(Page &page, const std::vector<Record> &records) {
    page << "<h2>What became of each mechanism</h2>";
    for (const std::string &mechanism : mechanisms_of(records)) {
        page << "<h3>";
        page.text(mechanism) << "</h3>";
        put_band(page, records, mechanism, false);
        put_band(page, records, mechanism, true);
    }
}

// ---- Remedies ------------------------------------------------------------------------------------------------------

void put_remedy(Page &page, const char *what, OM_uint32 status, const Remedy *row) {
    page << "<p>";
    page.text(what) << " ";
    page.text(code_text(status));
    if (row != nullptr) {
        page << ": ";
        page.text(row->meaning) << "<br>Usual cause: ";
        page.text(row->cause) << "<br>What to do: ";
        page.text(row->remedy);
    }
    page << "</p>";
}

void put_card(Page &page, const Record &record) {
    const std::string mechanism = mechanism_of(record);
    page << "<div class=\"card\"><h3>";
    page.text(mechanism) << ": ";
    page.text(reason_word(record)) << "</h3>";
    if (const ReasonRemedy *reason = find_reason(record.MechReason); reason != nullptr) {
        page << "<p>";
        page.text(reason->meaning) << "<br>What to do: ";
        page.text(reason->remedy) << "</p>";
    }
    if (record.MechReason == QXGSS_MECH_REASON_GSSAPI_ERROR) {
        page << "<p>It says: &quot;";
        page.text(bytes_of(&record.StatusText), common::kMostOfLine) << "&quot;</p>";
        put_remedy(page, "Major status", record.MajorStatus, find_major_remedy(record.MajorStatus));
        put_remedy(page, "Minor status", record.MinorStatus, find_minor_remedy(record.MinorStatus, mechanism));
    }
    page << "</div>";
}

void put_remedies(Page &page, const std::vector<Record> &records) {
    bool is_first = true;
    for (const std::string &mechanism : mechanisms_of(records)) {
        const auto last = std::ranges::find_if(records.rbegin(), records.rend(), [&](const Record &record) {
            return record.IsPeerView == 0 && record.MechState != 0 && mechanism_of(record) == mechanism;
        });
        if (last == records.rend() || last->MechState != QXGSS_MECH_STATE_REJECTED)
            continue;
        if (std::exchange(is_first, false))
            page << "<h2>Why, and what to do</h2>";
        put_card(page, *last);
    }
}

// ---- How it went ---------------------------------------------------------------------------------------------------

void put_arrow(Page &page, bool is_from_client, std::uint64_t time, std::size_t size) {
    page << "<div class=\"a\">" << (is_from_client ? Markup("") : Markup("&#9664;"))
         << "<span class=\"l\"></span>token";
    if (size != 0)
        page << ", " << size << " bytes";
    page << ", " << time << " ms<span class=\"l\"></span>" << (is_from_client ? Markup("&#9654;") : Markup(""))
         << "</div>";
}

void put_event(Page &page, const Record &record) {
    const bool is_client = (record.IsInitiator != 0) != (record.IsPeerView != 0);
    page << "<div class=\"e" << (is_client ? Markup(" c") : Markup(" v"))
         << (record.IsPeerView != 0 ? Markup(" told") : Markup("")) << class_of(record.MechState) << "\">";
    if (record.MechState != 0) {
        page << "<b>";
        page.text(mechanism_of(record)) << "</b> ";
        put_state(page, record);
        page << "<br>";
    }
    page.text(bytes_of(&record.Event)) << " <small>" << record.ElapsedTime << " ms</small>";
    if (record.StatusText.length != 0) {
        page << "<br>&quot;";
        page.text(bytes_of(&record.StatusText)) << "&quot;";
    }
    page << "</div>\n";
}

// Bytes of this side's token of a call; 0 for one that is not known. A log may name any call.
std::size_t token_size(const PageFacts &facts, OM_uint32 call) {
    return call != 0 && call <= facts.tokens.size() ? facts.tokens[call - 1] : 0;
}

// `count` are all records, of which some may not be given.
void put_events(Page &page, std::span<const Record> records, std::size_t count, const PageFacts &facts) {
    const bool is_client = records.front().IsInitiator != 0;
    page << "<h2>How it went</h2><div class=\"g\"><h3 class=\"c\">Client</h3><h3 class=\"v\">Server</h3>";
    std::size_t i = 0;
    for (; i != records.size() && page.size() + kRoomForEnd < kMostOfPage; ++i) {
        const Record &record = records[i];
        const Record *const next = i + 1 == records.size() ? nullptr : &records[i + 1];
        const bool is_new_call = i == 0 || records[i - 1].Call != record.Call;
        if (is_new_call && !(is_client && record.Call == 1)) // which nothing precedes
            put_arrow(page, !is_client, record.ElapsedTime, 0);
        put_event(page, record);
        const std::size_t size = token_size(facts, record.Call);
        const bool is_last_of_call = next == nullptr || next->Call != record.Call;
        if (is_last_of_call && (size != 0 || next != nullptr)) // it has left, or another call would not have followed
            put_arrow(page, is_client, record.ElapsedTime, size);
    }
    page << "</div>";
    if (i != count)
        page << "<p>and " << count - i << " more records</p>";
}

void put_lines(Page &page, const PageFacts &facts) {
    if (facts.lines.empty())
        return;
    page << "<table>";
    for (const auto &[name, value] : facts.lines) {
        page << "<tr><th>";
        page.text(name) << "</th><td>";
        page.text(value, common::kMostOfLine) << "</td></tr>";
    }
    page << "</table>";
}

} // namespace

std::string page_of(const SavedLog *log, const PageFacts &facts) {
    std::vector<Record> records = log == nullptr ? std::vector<Record>() : log->records();
    const std::size_t count = records.size();
    records.resize(std::min(count, kMostRecords));
    Page page;
    page << kHead << "<title>";
    page.text(facts.title) << "</title></head><body><h1>";
    page.text(facts.title) << "</h1>";
    put_lines(page, facts);
    if (const std::string note = log == nullptr ? "" : settled_note(*log); !note.empty()) {
        page << "<p class=\"note\">";
        page.text(note, common::kMostOfLine) << "</p>";
    }
    if (records.empty()) {
        page << "<p>There is no negotiation log.</p>";
    } else {
        put_bands(page, records);
        put_remedies(page, records);
        put_events(page, records, count, facts);
    }
    page << "<p><small>Status texts come from the mechanisms, and perhaps from the other side, which can write whole "
            "records that look like those of this side.</small></p></body></html>\n";
    return page.take();
}

} // namespace tools
