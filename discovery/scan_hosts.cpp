#include "discovery/scan_hosts.h"
