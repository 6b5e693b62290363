#include "discovery/scan_engine.h"
