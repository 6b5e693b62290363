#pragma once

#include "client_core/node_data_source.h"

#include <vector>

// The single-node requests both sources send, and how one answer is judged.

// The attributes a variable item needs, in request order: DataType, AccessLevel, ValueRank.
extern const std::vector<UA_AttributeId> variableAttributeIds;

// One Browse of one node and its continuation chains, one BrowseNext per continuation point.
NodeBrowse browseNodeAlone(UA_Client* client, const UA_NodeId& node);

// Follows the chain that starts with `first` by BrowseNext calls of one continuation point each.
BrowseChain followChainAlone(UA_Client* client, Ua::BrowseResultHolder first);

// Continues a chain whose last page names a continuation point the same way, `guard` having
// seen every page of it so far.
void continueChainAlone(UA_Client* client, BrowseChain* chain, ContinuationGuard* guard);

// Appends the next page of a chain, the Browse result first. When the guard ends the chain
// with it, its continuation counts as failed with chainEndedStatus. True while the chain goes
// on: the page is good and names a continuation point to follow.
bool appendChainPage(BrowseChain* chain, ContinuationGuard* guard, Ua::BrowseResultHolder page);

// One Read of the three attributes of one variable.
VariableAttributes readAttributesAlone(UA_Client* client, const UA_NodeId& node);

// The three attributes of one variable from its three results of a Read whose service result
// and result count are already known to be good.
VariableAttributes attributesFromResults(const UA_DataValue* results);
