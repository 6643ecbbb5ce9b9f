#include "asn1/cvel_der.h"
#include "x509/cvel_dname.h"
  #  include "cms/cvel_p7_signer_info.h"
