// What the later revisions of a PDF changed: the objects that each revision's cross-reference section
// (a table or a stream) adds or replaces, compared with the revision before, sorted into a DSS update, form
// filling, annotations or other changes. Objects inside object streams are judged like any other.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_REVISIONS_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_REVISIONS_H

#include <string>
#include <vector>

#include "host_crypto.h"

constexpr const char* kChangeDss = "DSS update";
constexpr const char* kChangeForm = "form filling";
constexpr const char* kChangeAnnotations = "annotations";
constexpr const char* kChangeOther = "other changes";

// The kind of each revision from `first` on: kinds[i] for the revision that ends at ends[i] (i >= first,
// first >= 1), judged against the file up to ends[i - 1]; entries before first are empty. A revision that
// cannot be read, or one past the bound of revisions examined, is "other changes".
std::vector<std::string> revisionKinds(const Bytes& file, const std::vector<long long>& ends, size_t first);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_REVISIONS_H
