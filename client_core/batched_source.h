#pragma once

#include "client_core/node_data_source.h"

#include <memory>

// Requests of many nodes, fetched ahead of the walk, sized to the server's operation limits and
// to the client's request time-out. The nodes it finds ahead enter the walk's node table `nodes`
// (which the walk would number them in anyway), so that it holds them by number alone.
std::unique_ptr<NodeDataSource> newBatchedSource(UA_Client* client, NodeTable* nodes);
