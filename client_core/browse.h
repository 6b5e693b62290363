#pragma once

#include <QString>

class BrowseItems;

// The address-space walk of ClientCore::browseNodes (browse.cpp): depth-first from the Objects
// folder, one item per readable or writable variable of a supported type.

// One browsed variable that the connector can read or write, every text spelled out; a walk
// holds its items compactly (BrowseItems) and gives this form on request.
struct BrowseItem
{
    QString nodeId;
    QString browsePath;
    QString description;
    QString dataType;
    bool readable = true;
    bool writable = false;
    bool isArray = false;
};

// How the walk asks the server: one request per question, each for one node, as the walk asks
// (the reference), or requests of many nodes fetched ahead of the walk. The items and warnings
// are the same.
enum class BrowseFetch { OneByOne, Batched };
