#include "log/cvel_log.h"
#include "base/cvel_file.h"
#include "kolvari/zarv.h"
