#include "tools/connection/story_folder.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/failure.h"
#include "tools/show/story.h"

namespace tools {

StoryFolder::StoryFolder(const std::string &path, unsigned most_files)
    : folder_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (folder_.get() < 0)
        throw system_failure(path, kExitUsage);
    const std::filesystem::directory_iterator files(path);
    const auto there = std::distance(begin(files), end(files));
    left_ = there < most_files ? most_files - static_cast<unsigned>(there) : 0;
}

std::optional<std::string> StoryFolder::next_name() {
    if (left_ == 0)
        return std::nullopt;
    --left_;
    std::string time = time_text();
    std::erase(time, ':');
    return "story-" + time + '-' + std::to_string(++number_) + ".html";
}

void StoryFolder::write(const std::string &name, std::string_view page) const {
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const Descriptor file(openat(folder_.get(), name.c_str(), flags, S_IRUSR | S_IWUSR));
    while (file.get() >= 0 && !page.empty()) {
        const ssize_t done = ::write(file.get(), page.data(), page.size());
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0) {
            unlinkat(folder_.get(), name.c_str(), 0);
            return;
        }
        page.remove_prefix(static_cast<std::size_t>(done));
    }
}

} // namespace tools
