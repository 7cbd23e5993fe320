#include "tools/connection/story.h"

namespace tools {

std::vector<MechanismView> own_views(const Story &story) {
    std::vector<MechanismView> views;
    for (const Verdict &verdict : story.verdicts)
        if (const View &own = story.is_client ? verdict.client : verdict.server; own.state != 0)
            views.push_back({verdict.mechanism, own});
    return views;
}

} // namespace tools
