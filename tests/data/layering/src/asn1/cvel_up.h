#include "asn1/cvel_string.h"
#include "x509/cvel_certificate.h"
