// User properties or a log as the library reads them.
#ifndef QXNEGO_TOOLS_SHOW_SAVED_STORY_H
#define QXNEGO_TOOLS_SHOW_SAVED_STORY_H

#include <new>
#include <vector>

#include "common/owned.h"
#include "session/qxgss_story.h"
#include "tools/bytes.h"

namespace tools {

class SavedStory {
  public:
    // There is nothing in it when the bytes begin as neither.
    explicit SavedStory(ByteView bytes) {
        const qxgss_buffer_desc view = common::view(as_text(bytes));
        if (qxgss_story_read(nullptr, &view, story_.out()) == GSS_S_FAILURE)
            throw std::bad_alloc();
        qxgss_story_inquire(nullptr, story_.get(), &facts_); // which a null story leaves as they are
    }

    std::string_view log() const { return common::bytes_of(&facts_.Log); }
    std::size_t end() const { return facts_.Read; } // of what was read

    std::vector<qxgss_story_property_desc> properties() const {
        return all<qxgss_story_property_desc>(qxgss_story_inquire_property, facts_.PropertyCount);
    }
    std::vector<qxgss_story_record_desc> records() const {
        return all<qxgss_story_record_desc>(qxgss_story_inquire_record, facts_.RecordCount);
    }

  private:
    template <typename Item, typename Inquire> std::vector<Item> all(Inquire inquire, OM_uint32 count) const {
        std::vector<Item> items(count);
        for (OM_uint32 i = 0; i != count; ++i)
            inquire(nullptr, story_.get(), i, &items[i]);
        return items;
    }

    common::Owned<qxgss_story_t, qxgss_story_delete> story_;
    qxgss_story_facts_desc facts_{};
};

} // namespace tools

#endif
