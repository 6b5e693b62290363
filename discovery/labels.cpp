#include "discovery/labels.h"
