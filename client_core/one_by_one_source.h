#pragma once

#include "client_core/node_data_source.h"

#include <memory>

// One request per question, each for one node, as the walk asks: the reference.
std::unique_ptr<NodeDataSource> newOneByOneSource(UA_Client* client);
