#pragma once

#include "ua/requests.h"

#include <QString>

#include <open62541/types.h>

// Which references the walk follows: forward hierarchical references to nodes of this server
// (local targets) of the classes it browses: Objects, Variables and Views. The walk and the
// batched source, which fetches ahead what the walk will follow, judge a reference here alike.

// The Browse filter of the walk: the server leaves out what the walk would not follow anyway.
extern const Ua::BrowseFilter walkBrowseFilter;

enum class ReferenceVerdict {
    Followed,         // the walk follows it
    NotLocal,         // its target lives on another server or in a namespace named by URI
    UnnamedTarget,    // its target's NodeId has no text the walk can keep
    NotWalkedClass,   // its target is of a class the walk does not browse
};

// Judges a reference in the order the walk reports them; `target` gets the target's text when
// the target is local.
ReferenceVerdict judgeReference(const UA_ReferenceDescription& reference, QString* target);

// A target on this server, not named by another server's index or a namespace URI.
bool isLocalTarget(const UA_ExpandedNodeId& target);
