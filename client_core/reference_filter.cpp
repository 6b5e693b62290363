#include "client_core/reference_filter.h"

#include "ua/text.h"

namespace {

const UA_UInt32 walkedNodeClasses = UA_NODECLASS_OBJECT | UA_NODECLASS_VARIABLE | UA_NODECLASS_VIEW;

} // namespace

const Ua::BrowseFilter walkBrowseFilter{UA_BROWSEDIRECTION_FORWARD, UA_NS0ID_HIERARCHICALREFERENCES, true,
                                        walkedNodeClasses};

bool isLocalTarget(const UA_ExpandedNodeId& target)
{
    return target.serverIndex == 0 && target.namespaceUri.length == 0;
}

ReferenceVerdict judgeReference(const UA_ReferenceDescription& reference, QString* target)
{
    if (!isLocalTarget(reference.nodeId))
        return ReferenceVerdict::NotLocal;
    *target = Ua::nodeIdToQString(reference.nodeId.nodeId);
    if (target->isEmpty())
        return ReferenceVerdict::UnnamedTarget;
    // One class exactly: a server may send a value that is no single class.
    if (reference.nodeClass != UA_NODECLASS_OBJECT && reference.nodeClass != UA_NODECLASS_VARIABLE
        && reference.nodeClass != UA_NODECLASS_VIEW)
        return ReferenceVerdict::NotWalkedClass;
    return ReferenceVerdict::Followed;
}
