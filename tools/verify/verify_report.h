// The verdict of `kolvari verify` as data: per signature the checks in the order they are made, each with its
// outcome and a one-line reason, and the indication and sub-indication in the vocabulary of ETSI EN 319 102-1.
// It is printed once, as text or as JSON, so that both always say the same.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_REPORT_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_REPORT_H

#include <optional>
#include <string>
#include <vector>

enum class Indication { kTotalPassed, kTotalFailed, kIndeterminate };

enum class Outcome { kPassed, kFailed, kIndeterminate, kSkipped };

// One check: its name ("format", "integrity", ...), its outcome, the sub-indication it gives when it does not
// pass, and the reason a person reads.
struct Check {
  std::string name;
  Outcome outcome = Outcome::kSkipped;
  std::string subIndication;
  std::string reason;
};

// A later revision of a PDF and what it changed.
struct LaterRevision {
  long long end = 0;  // offset just after its %%EOF line
  std::string kind;   // signature, document time-stamp, DSS, form filling, annotations, other
};

struct SignatureReport {
  std::string kind = "signature";  // signature, document time-stamp, time-stamp token
  std::string field;               // the PDF signature field, empty for a CMS file
  std::string signer;              // RFC 4514 subject, empty when no signer certificate was found
  std::string signingTime;         // YYYY-MM-DDThh:mm:ssZ, empty when the signature does not claim one
  std::string timestamp;           // the time of the signature time-stamp that passed, else empty
  std::optional<bool> coversWholeFile;  // PDF only
  std::vector<LaterRevision> laterRevisions;  // PDF only
  std::vector<Check> checks;

  // Appends a check and returns it for the caller to fill.
  Check& add(const std::string& name, Outcome outcome, const std::string& reason, const std::string& sub = "");
  // The outcome of the check of that name, kSkipped when there is none.
  Outcome outcomeOf(const std::string& name) const;
  // The first check that did not pass decides: failed gives TOTAL_FAILED, indeterminate INDETERMINATE.
  Indication indication() const;
  // The sub-indication of that deciding check; empty when passed.
  std::string subIndication() const;
};

const char* indicationName(Indication indication);
const char* outcomeName(Outcome outcome);

// What a run of `kolvari verify` says about one of its files: the reports of its signatures, or why the file
// cannot be read as a signature.
struct FileReport {
  std::string file;
  std::string error;  // one line naming the file; not empty when it was not judged
  std::vector<SignatureReport> signatures;
};

// One readable block per signature.
std::string reportText(const std::vector<SignatureReport>& signatures);
// {"signatures": [...]} (schema in README.md).
std::string reportJson(const std::vector<SignatureReport>& signatures);
// The blocks of one file of a batch under a heading with the file's name.
std::string reportText(const FileReport& file);
// {"files": [{"file": NAME, "signatures": [...]}, ...]}, with "error" beside an empty list for a file that
// was not judged (schema in README.md).
std::string reportJson(const std::vector<FileReport>& files);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_REPORT_H
