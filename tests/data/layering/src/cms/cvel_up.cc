#include "x509/cvel_certificate.h"
#include "../api/p72_container.h"
