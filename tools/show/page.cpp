#include "tools/show/page.h"

#include <algorithm>
#include <map>
#include <span>

#include <openssl/evp.h>

#include "gssp2qxnego/words.h"
#include "tools/show/codes.h"
#include "tools/show/remedies.h"
#include "tools/show/user_properties.h"

namespace tools {

namespace {

// ---- Markup --------------------------------------------------------------------------------------------------------

// Of this file alone: everything else that is written is text.
struct Markup {
    std::string_view text;
};
consteval Markup operator""_html(const char *text, std::size_t length) {
    return {{text, length}};
}

class Html {
  public:
    explicit Html(std::ostream &out) : out_(out) {}

    template <typename... Parts> void write(const Parts &...parts) { (put(parts), ...); }

  private:
    void put(Markup markup) { out_ << markup.text; }
    void put(std::size_t number) { out_ << number; }
    void put(std::string_view text) {
        for (const char c : printable(text, common::kMostOfLine)) {
            const std::size_t at = std::string_view("&<>\"'").find(c);
            constexpr const char *kEntities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
            at == std::string_view::npos ? out_ << c : out_ << kEntities[at];
        }
    }

    std::ostream &out_;
};

constexpr Markup kStyle = R"(
:root{color-scheme:light dark;--line:#8886;--soft:#8882;--bad:#c33;--good:#284;--quiet:#777}
body{font:15px/1.45 system-ui,sans-serif;max-width:70rem;margin:0 auto;padding:1rem;overflow-wrap:anywhere}
h1{font-size:1.4rem;margin:.2rem 0}h2{font-size:1.1rem;margin:1.6rem 0 .5rem}p{margin:.4rem 0}
dl{display:grid;grid-template-columns:max-content 1fr;gap:.1rem .8rem;margin:.5rem 0}dd{margin:0}
.quiet,dt,.at{color:var(--quiet)}.at{font-variant-numeric:tabular-nums;white-space:nowrap}
.band{margin:.5rem 0}.band div{display:flex;flex-wrap:wrap;gap:2px}
.band span{flex:1 1 9rem;padding:.2rem .5rem;background:var(--soft);border-top:4px solid var(--line)}
.band .selected{border-color:var(--good)}.band .rejected{border-color:var(--bad)}
.note{border-left:4px solid var(--bad);background:var(--soft);padding:.4rem .7rem;margin:.5rem 0}
.flow{display:grid;grid-template-columns:1fr 1fr;gap:.4rem 1.2rem}
.flow h3{margin:0;font-size:1rem;border-bottom:2px solid var(--line)}
.flow ul{list-style:none;margin:0;padding:.4rem .6rem;border:1px solid var(--line);border-radius:6px;align-self:start}
.flow li{padding:.15rem 0}.client{grid-column:1}.server{grid-column:2}
.arrow{grid-column:1/3;display:flex;align-items:center;gap:.5rem}.arrow:before,.arrow:after{content:"";flex:1;border-top:2px solid}
.right b:after{content:"\a0\25B6\FE0E"}.left b:before{content:"\25C0\FE0E\a0"}
.state{font-style:normal;font-weight:600}.state.selected{color:var(--good)}.state.rejected{color:var(--bad)}
.scroll{overflow-x:auto}table{border-collapse:collapse}td,th{text-align:left;vertical-align:top;padding:.2rem .7rem .2rem 0;border-bottom:1px solid var(--line)}
th{white-space:nowrap}.flow .arrow{margin:.2rem 0}
@media(max-width:42rem){.flow{display:block}.flow h3{display:none}.flow ul{margin:.4rem 0}.flow ul:before{font-weight:600}
.flow .client{margin-right:12%}.flow .server{margin-left:12%}.flow .client:before{content:"Client"}.flow .server:before{content:"Server"}}
)"_html;

// For the policy that lets no other style in.
std::string hash_of(std::string_view text) {
    unsigned char hash[EVP_MAX_MD_SIZE], base64[2 * EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), hash, &length, EVP_sha256(), nullptr) != 1)
        return "";
    const int written = EVP_EncodeBlock(base64, hash, static_cast<int>(length));
    return {reinterpret_cast<const char *>(base64), static_cast<std::size_t>(written)};
}

Markup class_of(OM_uint32 state) {
    constexpr Markup kClasses[] = {""_html, ""_html, "selected"_html, "rejected"_html};
    return kClasses[state < std::size(kClasses) ? state : 0];
}

// ---- Parts of the page ---------------------------------------------------------------------------------------------

std::string state_and_reason(const LogRecord &record) {
    const bool has_reason = record.MechReason > QXGSS_MECH_REASON_AVAILABLE;
    return state_word(record) + (has_reason ? ", " + reason_word(record) : "");
}

std::string milliseconds(OM_uint64 time) {
    return std::to_string(time) + " ms";
}

void write_head(Html &html, const SavedLog &log, const PageFacts &facts) {
    html.write(
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src &#39;none&#39;; style-src &#39;sha256-"_html,
        hash_of(kStyle.text),
        "&#39;; base-uri &#39;none&#39;; form-action &#39;none&#39;\">\n"
        "<meta name=\"viewport\" content=\"width=device-width\"><meta name=\"referrer\" content=\"no-referrer\">\n"
        "<title>A negotiation of QXNEGO</title><style>"_html,
        kStyle, "</style></head>\n<body><h1>A negotiation, as the "_html,
        !log.records().empty() && log.records().front().IsInitiator != 0 ? "client" : "server",
        " tells it</h1>\n<dl>"_html);
    const auto row = [&](std::string_view label, std::string_view value) {
        if (!value.empty())
            html.write("<dt>"_html, label, "</dt><dd>"_html, value, "</dd>\n"_html);
    };
    for (const auto &[label, value] : facts.rows)
        row(label, value);
    row("written at", common::bytes_of(&log.facts().Host));
    row("written", common::bytes_of(&log.facts().Time));
    html.write(
        "</dl>\n<p class=\"quiet\">Texts of the other side stand in the log as they came, and it can have written "
        "whole records with them. What is certain is in the program that negotiated, not here.</p>\n"_html);
}

// A band for each mechanism: what it was in this side's eyes, from when on, and why.
void write_bands(Html &html, const SavedLog &log) {
    std::map<std::string, std::vector<const LogRecord *>> bands;
    for (const LogRecord &record : std::span(log.records()).first(std::min(log.records().size(), kMostOnPage))) {
        const std::string mechanism = record.IsPeerView != 0 ? "" : mechanism_of(record);
        std::vector<const LogRecord *> &band = bands[mechanism];
        if (!mechanism.empty() && (band.empty() || band.back()->MechState != record.MechState ||
                                   band.back()->MechReason != record.MechReason))
            band.push_back(&record);
    }
    html.write("<h2>What became of each mechanism</h2>\n"_html);
    for (const LogRecord *last : last_records(log)) {
        const std::string mechanism = mechanism_of(*last);
        if (bands[mechanism].empty())
            continue;
        html.write("<section class=\"band\"><b>"_html, mechanism, "</b><div>"_html);
        for (const LogRecord *record : bands[mechanism])
            html.write("<span class=\""_html, class_of(record->MechState), "\"><small class=\"at\">"_html,
                       milliseconds(record->ElapsedTime), "</small> "_html, state_and_reason(*record), "</span>"_html);
        html.write("</div></section>\n"_html);
    }
    for (const std::string &sentence : advice_of(log))
        html.write("<p class=\"note\">"_html, sentence, "</p>\n"_html);
}

// What the operation that wrote it is called stands before the first colon.
std::string_view event_of(const LogRecord &record) {
    const std::string_view event = common::bytes_of(&record.Event);
    const std::size_t colon = event.find(": ");
    return event.starts_with("QXNEGO_INT_") && colon != event.npos ? event.substr(colon + 2) : event;
}

void write_event(Html &html, const LogRecord &record) {
    html.write("<li><small class=\"at\">"_html, milliseconds(record.ElapsedTime), "</small> "_html);
    const std::string mechanism = mechanism_of(record);
    if (!mechanism.empty())
        html.write("<b>"_html, mechanism, "</b> "_html);
    html.write(event_of(record));
    if (!mechanism.empty())
        html.write(" <em class=\"state "_html, class_of(record.MechState), "\">"_html, state_and_reason(record),
                   "</em>"_html);
    if (record.MechReason == QXGSS_MECH_REASON_GSSAPI_ERROR)
        html.write(" <span class=\"quiet\">"_html, major_name(record.MajorStatus), ", ", code_text(record.MinorStatus),
                   " ", common::bytes_of(&record.StatusText), "</span>"_html);
    html.write("</li>\n"_html);
}

using Records = std::span<const LogRecord>;

// Records of one call and of one point of view: the first of those that are left.
Records take_card(Records &left) {
    const LogRecord &first = left.front();
    const auto is_other = [&](const LogRecord &record) {
        return record.Call != first.Call || record.IsInitiator != first.IsInitiator ||
               record.IsPeerView != first.IsPeerView;
    };
    const auto end = std::ranges::find_if(left, is_other);
    const Records card = left.first(static_cast<std::size_t>(end - left.begin()));
    left = left.subspan(card.size());
    return card;
}

void write_arrow(Html &html, bool is_from_client, OM_uint64 time, std::size_t size) {
    html.write("<div class=\"arrow "_html, is_from_client ? "right"_html : "left"_html, "\"><span><b>"_html,
               is_from_client ? "client's" : "server's", " token</b> <small class=\"at\">"_html, milliseconds(time));
    if (size != 0)
        html.write(", ", size, " bytes");
    html.write("</small></span></div>\n"_html);
}

class Flow {
  public:
    Flow(Html &html, const PageFacts &facts, OM_uint32 last_call)
        : html_(html), sizes_(facts.token_sizes.size() == last_call ? Sizes(facts.token_sizes) : Sizes()) {}

    // The other side's answer lies between two calls.
    void write(Records left) {
        const LogRecord *before = nullptr;
        while (!left.empty()) {
            const LogRecord &first = left.front();
            if (before == nullptr ? first.IsInitiator == 0 : before->Call != first.Call)
                write_exchange(before, first);
            const Records card = take_card(left);
            write_card(card);
            before = &card.back();
        }
        if (before != nullptr && size_of(*before) != 0)
            write_arrow(html_, before->IsInitiator != 0, before->ElapsedTime, size_of(*before));
    }

  private:
    using Sizes = std::span<const std::size_t>;

    std::size_t size_of(const LogRecord &record) const {
        return record.Call - 1U < sizes_.size() ? sizes_[record.Call - 1] : 0;
    }

    void write_exchange(const LogRecord *before, const LogRecord &first) {
        if (before != nullptr)
            write_arrow(html_, before->IsInitiator != 0, before->ElapsedTime, size_of(*before));
        write_arrow(html_, first.IsInitiator == 0, first.ElapsedTime, 0);
    }

    void write_card(Records card) {
        const bool is_of_client = (card.front().IsInitiator != 0) != (card.front().IsPeerView != 0);
        html_.write("<ul class=\""_html, is_of_client ? "client"_html : "server"_html, "\">\n"_html);
        for (const LogRecord &record : card)
            write_event(html_, record);
        html_.write("</ul>\n"_html);
    }

    Html &html_;
    Sizes sizes_;
};

void write_rest(Html &html, std::size_t count) {
    if (count > kMostOnPage)
        html.write("<p>and "_html, count - kMostOnPage, " more</p>\n"_html);
}

void write_flow(Html &html, const SavedLog &log, const PageFacts &facts) {
    const Records records = std::span(log.records()).first(std::min(log.records().size(), kMostOnPage));
    html.write("<h2>Step by step</h2>\n<div class=\"flow\"><h3>Client</h3><h3>Server</h3>\n"_html);
    Flow(html, facts, records.empty() ? 0 : records.back().Call).write(records);
    html.write("</div>\n"_html);
    write_rest(html, log.records().size());
}

void write_properties(Html &html, const SavedLog &log) {
    if (log.properties().empty())
        return;
    html.write("<h2>The user's properties</h2>\n<div class=\"scroll\"><table>\n"_html);
    for (const Property &property : std::span(log.properties()).first(std::min(log.properties().size(), kMostOnPage)))
        html.write("<tr><th>"_html, name_of(property), "</th><td>"_html, value_of(property), "</td></tr>\n"_html);
    html.write("</table></div>\n"_html);
    write_rest(html, log.properties().size());
}

} // namespace

void print_page(std::ostream &out, const SavedLog &log, const PageFacts &facts) {
    Html html(out);
    write_head(html, log, facts);
    write_bands(html, log);
    write_flow(html, log, facts);
    write_properties(html, log);
    html.write("</body></html>\n"_html);
}

} // namespace tools
