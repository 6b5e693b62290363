#pragma once

// The gateway's plug-in framework entry point. The discovery tool needs only
// the type: the client core keeps one default-constructed instance.
class PluginInterface
{
public:
    PluginInterface();
    virtual ~PluginInterface();

    PluginInterface(const PluginInterface&) = delete;
    PluginInterface& operator=(const PluginInterface&) = delete;
};
