#include "framework/device_instance_plugin.h"

DeviceInstancePlugin::DeviceInstancePlugin() = default;
DeviceInstancePlugin::~DeviceInstancePlugin() = default;
