#include "discovery/posix_net.h"
