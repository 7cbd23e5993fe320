// A folder in which each connection leaves its story as a page: in new files of names of our own, and in so many only.
#ifndef QXNEGO_TOOLS_CONNECTION_STORY_FOLDER_H
#define QXNEGO_TOOLS_CONNECTION_STORY_FOLDER_H

#include <optional>
#include <string>

#include "tools/descriptor.h"

namespace tools {

class StoryFolder {
  public:
    // Files that are there already count too. Throws Failure (usage) when it is no folder that can be read.
    StoryFolder(const std::string &path, unsigned most_files);

    // Nothing once there are enough.
    std::optional<std::string> next_name();

    // Makes the file, which only this user can read; whatever fails leaves none behind.
    void write(const std::string &name, std::string_view page) const;

  private:
    Descriptor folder_;
    unsigned left_ = 0;
    unsigned number_ = 0;
};

} // namespace tools

#endif
