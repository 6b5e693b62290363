#include "discovery/device_record.h"
