#include "discovery/transport.h"
