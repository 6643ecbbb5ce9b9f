#include <vector>
#include "asn1/cvel_string.h"
#include "log/cvel_log.h"
