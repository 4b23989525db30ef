#include "FlagMapping.h"
