#include "client_core/continuation_guard.h"

#include <functional>
#include <string_view>

namespace {

bool sameReferences(const UA_BrowseResult& page, const UA_BrowseResult& previous)
{
    if (page.referencesSize != previous.referencesSize)
        return false;
    for (size_t i = 0; i < page.referencesSize; ++i) {
        if (!UA_equal(&page.references[i], &previous.references[i], &UA_TYPES[UA_TYPES_REFERENCEDESCRIPTION]))
            return false;
    }
    return true;
}

size_t pointDigest(const UA_ByteString& point)
{
    return std::hash<std::string_view>()(
        std::string_view(reinterpret_cast<const char*>(point.data), point.length));
}

} // namespace

ContinuationGuard::ContinuationGuard(size_t pageLimit, size_t referenceLimit)
    : pageLimit_(pageLimit)
    , referenceLimit_(referenceLimit)
{
}

bool ContinuationGuard::admit(const UA_BrowseResult& page, const UA_BrowseResult* previous)
{
    ++pages_;
    references_ += page.referencesSize;
    if (UA_StatusCode_isBad(page.statusCode) || page.continuationPoint.length == 0)
        return true;
    if (previous) {
        if (UA_ByteString_equal(&page.continuationPoint, &previous->continuationPoint)) {
            if (sameReferences(page, *previous))
                return false;
        } else {
            if (previous->continuationPoint.length > 0)
                leftPoints_.insert(pointDigest(previous->continuationPoint));
            if (leftPoints_.count(pointDigest(page.continuationPoint)) > 0)
                return false;
        }
    }
    return pages_ < pageLimit_ && references_ < referenceLimit_;
}
