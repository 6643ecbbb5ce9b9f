// One file of a `kolvari verify` run: read within bounds, recognised as a PDF or as a CMS SignedData (DER,
// PEM or base64), and judged under the run's context. Every file of a batch shares that context's trust
// store, certificate cache and path cache, from any number of threads: the checks only read the context
// (the caches lock themselves), and a PDF, whose checks keep the DSS and the proofs of existence in a
// context, gets a context of its own.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_FILE_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_FILE_H

#include <string>

#include "verify/verify_context.h"
#include "verify/verify_report.h"

// A context for one file: the run's options, time, trust store and caches, nothing of a PDF's.
VerifyContext fileContext(const VerifyContext& run);

// Judges the bytes of the file called name. content feeds the signed file of a detached CMS (null: none).
FileReport verifyFileBytes(const std::string& name, const Bytes& raw, const ContentFeed* content,
                           const VerifyContext& run);

// Reads path and judges it; a file that cannot be read is a report with its error.
FileReport verifyFile(const std::string& path, const ContentFeed* content, const VerifyContext& run);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_FILE_H
