// CvelA1File: a DER file opened for element reading. It holds the file's name and the file as a source for
// CvelA1StreamCursor, which walks it exactly as it walks a CvelA1InputString over the same bytes.
#ifndef KOLVARI_ASN1_CVEL_A1_FILE_H
#define KOLVARI_ASN1_CVEL_A1_FILE_H

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelA1File : public CvelNonCopyObject {
 public:
  // Opens path for reading, closing any file opened before. kCvelErrIncomplete when it cannot be opened.
  CvelResult open(const char* path);
  void close() { input_.attach(nullptr, nullptr, false); }
  bool isOpen() const { return input_.attached(); }

  const CvelString& name() const { return name_; }
  // The file as a source of elements.
  CvelA1Input& input() { return input_; }

 private:
  CvelString name_;
  CvelA1InputFile input_;
};

#endif  // KOLVARI_ASN1_CVEL_A1_FILE_H
