#include "discovery/endpoint_selection.h"
