#include "framework/plugin_interface.h"

PluginInterface::PluginInterface() = default;
PluginInterface::~PluginInterface() = default;
