#include "tools/connection/story_folder.h"

#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>

#include "tools/show/codes.h"
#include "tools/show/page.h"
#include "tools/show/story.h"

namespace tools {

namespace {

PageFacts facts_of(const Story &story) {
    PageFacts facts{{{"with", story.peer},
                     {"ended", time_text()},
                     {"outcome", story.failure.empty() ? "success" : story.failure},
                     {"mechanism", story.mechanism},
                     {"user", story.user},
                     {"claimed to be", story.claimed},
                     {"flags", story.is_established ? flag_names(story.flags) : ""},
                     {"confirmation", story.confirmation}},
                    {}};
    for (const Call &call : story.calls)
        if (call.name.ends_with("_sec_context"))
            facts.token_sizes.push_back(call.token.size());
    return facts;
}

bool write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

StoryFolder::StoryFolder(const std::string &path) {
    if (path.empty())
        return;
    folder_ = Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!is_open())
        throw system_failure(path, kExitUsage);
}

std::string StoryFolder::next_name() {
    const std::string number = std::to_string(10'000 + count_).substr(1);
    count_ = (count_ + 1) % kMostPages;
    return "connection-" + number + ".html";
}

bool StoryFolder::write(const std::string &name, const Story &story) const {
    const std::optional<SavedLog> log = SavedLog::read(story.properties);
    if (!is_open() || !log)
        return false;
    std::ostringstream page;
    print_page(page, *log, facts_of(story));
    if (page.view().size() > kLargestPage)
        return false;
    unlinkat(folder_.get(), name.c_str(), 0);
    const Descriptor file(openat(folder_.get(), name.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, S_IRUSR | S_IWUSR));
    if (file.get() < 0)
        return false;
    if (write_all(file.get(), page.view()))
        return true;
    unlinkat(folder_.get(), name.c_str(), 0);
    return false;
}

} // namespace tools
