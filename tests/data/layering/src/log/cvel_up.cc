#include "base/cvel_file.h"
#include "api/p72_container.h"
