// Reads the configuration file into a Configuration, without touching anything else. The file is TOML; whatever is
// wrong in it becomes one line that names file, line and key.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string_view>
#include <utility>

#include <sys/stat.h>

// Without exceptions the parser passes a lack of memory on as std::bad_alloc; with them it would end the process there.
// It asserts, or tells the compiler to assume, what a malformed header breaks and what it then handles well: neither is
// wanted, whatever the kind of build.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(condition) static_assert(true)
#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#define TOML_MAX_NESTED_VALUES 16
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

#include "qxgss/internal.h"

namespace qxgss {

namespace {

constexpr std::size_t kMaxFile = 1U << 20;
constexpr std::size_t kMaxDotsInLine = 256;

std::string printable(std::string text) {
    for (char &c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return text;
}

[[noreturn]] void wrong(const std::string &file, std::size_t line, const std::string &key, const std::string &what,
                        OM_uint32 minor = QXGSS_E_CONFIG_MECHANISMS) {
    throw WrongFile(printable(file + ":" + std::to_string(line) + ": " + key + ": " + what), minor);
}

[[noreturn]] void unreadable(const std::string &file, const char *why) {
    throw WrongFile(printable(file + ": cannot be read: " + why), QXGSS_E_CONFIG_MECHANISMS);
}

// ---- Typed access, which knows where it is -------------------------------------------------------------------------

// A table of the file and its place: every look-up checks what it finds.
class Section {
  public:
    Section(const std::string &file, std::string path, const toml::table &table)
        : file_(file), path_(std::move(path)), table_(table) {}

    // Refuses every other key.
    void only(std::initializer_list<std::string_view> keys) const {
        for (const auto &[key, node] : table_)
            if (std::find(keys.begin(), keys.end(), key.str()) == keys.end())
                qxgss::wrong(file_, key.source().begin.line, name(key.str()), "unknown key");
    }

    std::optional<bool> flag(std::string_view key) const { return value<bool>(key, "true or false"); }

    std::optional<OM_sint32> number(std::string_view key) const {
        const std::optional<std::int64_t> given = value<std::int64_t>(key, "an integer");
        if (given && (*given < INT32_MIN || *given > INT32_MAX))
            wrong(key, "does not fit in 32 bits");
        return given ? std::optional(static_cast<OM_sint32>(*given)) : std::nullopt;
    }

    std::optional<std::string> text(std::string_view key) const {
        std::optional<std::string> given = value<std::string>(key, "a string");
        if (given)
            check(*given, key, *table_.get(key));
        return given;
    }

    std::string required(std::string_view key) const {
        std::optional<std::string> given = text(key);
        if (!given)
            wrong(key, "is missing");
        return std::move(*given);
    }

    bool has(std::string_view key) const { return table_.contains(key); }

    // Whether the key is there, with a value of that type.
    template <typename T> bool holds(std::string_view key) const {
        const toml::node *node = table_.get(key);
        return node != nullptr && node->as<T>() != nullptr;
    }

    // Calls visit(element, node) for each string of an array; an absent array has none.
    template <typename Visit>
    bool texts(std::string_view key, Visit visit, const char *type = "an array of strings") const {
        return each<std::string>(key, type, [&](const auto &element) {
            check(element.get(), key, element);
            visit(element.get(), element);
        });
    }

    // Calls visit(section) for each table of an array.
    template <typename Visit> bool sections(std::string_view key, Visit visit) const {
        return each<toml::table>(key, "an array of tables",
                                 [&](const toml::table &element) { visit(Section(file_, name(key), element)); });
    }

    // Calls visit(section) when the key is there.
    template <typename Visit> void section(std::string_view key, Visit visit) const {
        if (const toml::table *table = typed<toml::table>(table_.get(key), key, "a table"))
            visit(Section(file_, name(key), *table));
    }

    template <typename Visit> void keys(Visit visit) const {
        for (const auto &[key, node] : table_) {
            check(std::string(key.str()), key.str(), key);
            visit(std::string(key.str()));
        }
    }

    // The key's line is that of its value, or of the table when it is not there.
    [[noreturn]] void wrong(std::string_view key, const std::string &what) const {
        const toml::node *node = table_.get(key);
        wrong_at(node == nullptr ? table_ : *node, key, what);
    }

    template <typename Place>
    [[noreturn]] void wrong_at(const Place &place, std::string_view key, const std::string &what) const {
        qxgss::wrong(file_, place.source().begin.line, name(key), what);
    }

  private:
    std::string name(std::string_view key) const { return path_ + (path_.empty() ? "" : ".") + std::string(key); }

    template <typename T, typename Node>
    auto typed(const Node *node, std::string_view key, const char *type) const -> decltype(node->template as<T>()) {
        if (node != nullptr && node->template as<T>() == nullptr)
            wrong_at(*node, key, std::string("must be ") + type);
        return node == nullptr ? nullptr : node->template as<T>();
    }

    template <typename T> std::optional<T> value(std::string_view key, const char *type) const {
        const auto *given = typed<T>(table_.get(key), key, type);
        return given == nullptr ? std::nullopt : std::optional<T>(given->get());
    }

    template <typename T, typename Visit> bool each(std::string_view key, const char *type, Visit visit) const {
        const toml::array *array = typed<toml::array>(table_.get(key), key, type);
        if (array == nullptr)
            return false;
        for (const toml::node &element : *array)
            visit(*typed<T>(&element, key, type));
        return true;
    }

    template <typename Place> void check(const std::string &text, std::string_view key, const Place &place) const {
        if (text.empty())
            wrong_at(place, key, "must not be empty");
        if (printable(text) != text)
            wrong_at(place, key, "must not hold control characters");
    }

    const std::string &file_;
    std::string path_;
    const toml::table &table_;
};

// ---- What the sections mean ----------------------------------------------------------------------------------------

struct BooleanProperty {
    const char *key;
    OM_uint32 number;
};
constexpr BooleanProperty kBooleanProperties[] = {
    {"authentication", GSSP_PROPERTY_AUTHENTICATION_SUPPORTED},
    {"authorization", GSSP_PROPERTY_AUTHORIZATION_SUPPORTED},
    {"single_sign_on", GSSP_PROPERTY_SINGLE_SIGN_ON},
};

std::string folder_of(const std::string &file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : file.substr(0, slash + 1);
}

std::string resolved(const std::string &folder, const std::string &name) {
    if (name.front() == '/')
        return name;
    return folder + (folder.back() == '/' ? "" : "/") + name;
}

std::string checked_der(const Section &section, const std::string &oid) {
    std::optional<std::string> der = der_of(oid.c_str());
    if (!der)
        section.wrong("oid", "'" + oid + "' is no OID");
    return std::move(*der);
}

void read_properties(const Section &section, Mechanism &mechanism) {
    section.only({"authentication", "authorization", "single_sign_on", "rank"});
    for (const BooleanProperty &property : kBooleanProperties)
        if (const std::optional<bool> given = section.flag(property.key))
            mechanism.booleans[property.number] = *given ? 1 : 0;
    if (const std::optional<OM_sint32> rank = section.number("rank"))
        mechanism.integers[GSSP_PROPERTY_RANK] = *rank;
}

bool names_file(std::string_view setting) {
    return setting.ends_with("_file");
}

void read_settings(const Section &section, const std::string &folder, Mechanism &mechanism) {
    section.keys([&](const std::string &key) {
        const std::string value = section.required(key);
        mechanism.settings[key] = names_file(key) ? resolved(folder, value) : value;
    });
}

void read_negotiates(const Section &section, std::set<std::string> &seen, Mechanism &mechanism) {
    section.only({"oid", "enabled"});
    const std::string oid = section.required("oid");
    if (!seen.insert(checked_der(section, oid)).second)
        section.wrong("oid", "'" + oid + "' is listed twice");
    mechanism.negotiates.push_back({oid, section.flag("enabled").value_or(true)});
}

void check_unique(const Section &section, const std::vector<Mechanism> &others, const Mechanism &mechanism) {
    for (const Mechanism &other : others) {
        if (other.name == mechanism.name)
            section.wrong("name", "'" + mechanism.name + "' is already the name of another mechanism");
        if (other.der == mechanism.der)
            section.wrong("oid", "'" + mechanism.oid + "' is already the OID of " + other.name);
    }
}

Mechanism read_mechanism(const Section &section, const std::string &folder, const std::string &library_path) {
    section.only({"name", "oid", "library", "prefix", "enabled", "negotiates", "properties", "settings"});
    Mechanism mechanism;
    mechanism.name = section.required("name");
    mechanism.oid = section.required("oid");
    mechanism.der = checked_der(section, mechanism.oid);
    mechanism.prefix = section.required("prefix");
    if (const std::optional<std::string> library = section.text("library"))
        mechanism.library = resolved(library_path, *library);
    mechanism.enabled = section.flag("enabled").value_or(true);
    std::set<std::string> seen;
    section.sections("negotiates", [&](const Section &entry) { read_negotiates(entry, seen, mechanism); });
    section.section("properties", [&](const Section &properties) { read_properties(properties, mechanism); });
    section.section("settings", [&](const Section &settings) { read_settings(settings, folder, mechanism); });
    return mechanism;
}

// The number of the mechanism of that name or OID.
std::optional<std::size_t> find_mechanism(const std::vector<Mechanism> &mechanisms, const std::string &wanted) {
    const std::optional<std::string> der = der_of(wanted.c_str());
    for (std::size_t i = 0; i < mechanisms.size(); ++i)
        if (mechanisms[i].name == wanted || (der && mechanisms[i].der == *der))
            return i;
    return std::nullopt;
}

constexpr char kAllowed[] = "\"any\", \"none\" or an array of strings";
constexpr char kAccount[] = "\"any\", \"none\", an array of strings or a table";

// An array of mechanisms, of which an empty one allows any, or a word. An absent key allows any.
Allowed read_allowed(const Section &section, const std::string &key, const std::vector<Mechanism> &mechanisms,
                     const char *type = kAllowed) {
    if (section.holds<std::string>(key)) {
        const std::string word = section.required(key);
        if (word != "any" && word != "none")
            section.wrong(key, std::string("must be ") + type);
        return word == "none" ? Allowed(MechanismNumbers()) : Allowed();
    }
    MechanismNumbers numbers;
    const auto add = [&](const std::string &wanted, const auto &place) {
        const std::optional<std::size_t> number = find_mechanism(mechanisms, wanted);
        if (!number)
            section.wrong_at(place, key, "'" + wanted + "' is no mechanism of this file");
        numbers.push_back(*number);
    };
    section.texts(key, add, type);
    return numbers.empty() ? Allowed() : Allowed(std::move(numbers));
}

void read_account(const Section &users, const std::string &key, Configuration &result) {
    const auto taken = [](const std::string &name, const Account &by) {
        return "'" + name + "' is already a name of " + by.names.front();
    };
    result.accounts.emplace_back();
    if (const Account *other = add_name(result, key))
        users.wrong(key, taken(key, *other));
    Allowed &allowed = result.accounts.back().allowed;
    if (!users.holds<toml::table>(key)) {
        allowed = read_allowed(users, key, result.mechanisms, kAccount);
        return;
    }
    users.section(key, [&](const Section &account) {
        account.only({"mechanisms", "names"});
        if (!account.has("mechanisms"))
            account.wrong("mechanisms", "is missing");
        allowed = read_allowed(account, "mechanisms", result.mechanisms);
        account.texts("names", [&](const std::string &name, const auto &place) {
            if (const Account *other = add_name(result, name))
                account.wrong_at(place, "names", taken(name, *other));
        });
    });
}

void read_policy(const Section &section, Configuration &result) {
    section.only({"users", "default"});
    result.default_policy = read_allowed(section, "default", result.mechanisms);
    section.section("users", [&](const Section &users) {
        users.keys([&](const std::string &key) { read_account(users, key, result); });
    });
}

// ---- Who else can write --------------------------------------------------------------------------------------------

// The owner's own group, which has the owner's number, is no other. A folder in which nobody can replace what others
// have put there, like /tmp, does no harm.
bool is_open_to_others(const std::string &path) {
    struct stat found {};
    if (stat(path.c_str(), &found) != 0)
        return false;
    const bool by_group = (found.st_mode & S_IWGRP) != 0 && found.st_gid != found.st_uid;
    const bool harmless = S_ISDIR(found.st_mode) ? (found.st_mode & S_ISVTX) != 0 : !S_ISREG(found.st_mode);
    return (by_group || (found.st_mode & S_IWOTH) != 0) && !harmless;
}

void warn_of_writers(Configuration &result, const std::string &file) {
    std::vector<std::string> paths = {file, folder_of(file)};
    for (const Mechanism &mechanism : result.mechanisms)
        for (const auto &[key, value] : mechanism.settings)
            if (mechanism.enabled && names_file(key) && std::find(paths.begin(), paths.end(), value) == paths.end())
                paths.push_back(value);
    for (const std::string &path : paths)
        if (is_open_to_others(path))
            result.warnings.push_back(printable(path + ": others than its owner can write it"));
}

// ---- The file ------------------------------------------------------------------------------------------------------

struct Close {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};

std::string content_of(const std::string &file) {
    const std::unique_ptr<std::FILE, Close> stream(std::fopen(file.c_str(), "rbe"));
    if (stream == nullptr)
        unreadable(file, std::strerror(errno));
    std::string content(kMaxFile + 1, '\0');
    content.resize(std::fread(content.data(), 1, content.size(), stream.get()));
    if (std::ferror(stream.get()) != 0)
        unreadable(file, std::strerror(errno));
    if (content.size() > kMaxFile)
        unreadable(file, "it is larger than 1 MiB");
    return content;
}

// What the parser is not to see: it takes down by recursion what many dots nest, and its tables of characters beyond
// ASCII have gaps, so these may stand only where it does not classify them: in comments and in strings of one line.
void check_line(const std::string &file, std::size_t line, std::string_view text) {
    char quote = '\0';
    std::size_t dots = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote != '\0') {
            i += quote == '"' && c == '\\' ? 1 : 0;
            quote = c == quote ? '\0' : quote;
        } else if (c == '#') {
            break;
        } else if (c == '"' || c == '\'') {
            if (text.substr(i, 3) == std::string(3, c))
                wrong(file, line, "syntax", "strings of several lines are not supported");
            if (i != 0 && std::string_view(" \t=,.[{").find(text[i - 1]) == std::string_view::npos)
                wrong(file, line, "syntax", "a quotation mark inside a word");
            quote = c;
        } else if (static_cast<unsigned char>(c) >= 0x80) {
            wrong(file, line, "syntax", "a character beyond ASCII outside strings and comments");
        } else {
            dots += c == '.' ? 1 : 0;
        }
    }
    if (dots > kMaxDotsInLine)
        wrong(file, line, "syntax", "more than 256 dots outside strings");
}

void check_lines(const std::string &file, std::string_view content) {
    for (std::size_t line = 1; !content.empty(); ++line) {
        const std::string_view text = content.substr(0, content.find('\n'));
        check_line(file, line, text);
        content.remove_prefix(std::min(text.size() + 1, content.size()));
    }
}

toml::table parsed(const std::string &file) {
    const std::string content = content_of(file);
    check_lines(file, content);
    toml::parse_result result = toml::parse(std::string_view(content));
    if (!result)
        wrong(file, result.error().source().begin.line, "syntax", std::string(result.error().description()));
    return std::move(result).table();
}

} // namespace

Configuration read_configuration(const std::string &file) {
    const toml::table table = parsed(file);
    const Section root(file, "", table);
    root.only({"library_path", "mechanism", "policy"});
    const std::string folder = folder_of(file);
    Configuration result;
    result.library_path = resolved(folder, root.text("library_path").value_or("."));
    root.sections("mechanism", [&](const Section &section) {
        Mechanism mechanism = read_mechanism(section, folder, result.library_path);
        check_unique(section, result.mechanisms, mechanism);
        result.mechanisms.push_back(std::move(mechanism));
    });
    if (result.mechanisms.empty())
        wrong(file, 1, "mechanism", "is missing", QXGSS_E_NO_MECHANISMS);
    root.section("policy", [&](const Section &section) { read_policy(section, result); });
    warn_of_writers(result, file);
    return result;
}

} // namespace qxgss
