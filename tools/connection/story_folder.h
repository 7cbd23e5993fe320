// Where a server leaves a page for each negotiation. Names are its own, and so many pages and bytes are the most: a
// stranger can fill no disk with them, but can have them replaced sooner by coming often.
#ifndef QXNEGO_TOOLS_CONNECTION_STORY_FOLDER_H
#define QXNEGO_TOOLS_CONNECTION_STORY_FOLDER_H

#include <string>

#include "tools/connection/story.h"
#include "tools/descriptor.h"

namespace tools {

inline constexpr unsigned kMostPages = 1000;
inline constexpr std::size_t kLargestPage = std::size_t{2} << 20; // bytes; a larger one is not written

class StoryFolder {
  public:
    // The folder, which must be there; none for an empty path. Throws Failure (usage).
    explicit StoryFolder(const std::string &path);

    bool is_open() const { return folder_.get() >= 0; }

    // The name of the next page: that of the oldest again after kMostPages.
    std::string next_name();

    // Writes the story's page as a new file that only this user can read, in the place of one of that name. Whether it
    // was written: a story without a log has none, and a failure costs the page and nothing else.
    bool write(const std::string &name, const Story &story) const;

  private:
    Descriptor folder_;
    unsigned count_ = 0;
};

} // namespace tools

#endif
