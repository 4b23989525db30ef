#include "MimeProperties.h"
