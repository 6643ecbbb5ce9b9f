#include "verify/verify_report.h"

#include "inspect/json_output.h"

Check& SignatureReport::add(const std::string& name, Outcome outcome, const std::string& reason,
                            const std::string& sub) {
  checks.push_back(Check{name, outcome, sub, reason});
  return checks.back();
}

Outcome SignatureReport::outcomeOf(const std::string& name) const {
  for (const Check& c : checks) {
    if (c.name == name) return c.outcome;
  }
  return Outcome::kSkipped;
}

namespace {

// The check names start in this column of the text report, after the outcome.
constexpr size_t kOutcomeColumn = 14;

const Check* decidingCheck(const std::vector<Check>& checks) {
  for (const Check& c : checks) {
    if (c.outcome == Outcome::kFailed || c.outcome == Outcome::kIndeterminate) return &c;
  }
  return nullptr;
}

Json textOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

}  // namespace

Indication SignatureReport::indication() const {
  const Check* c = decidingCheck(checks);
  if (c == nullptr) return Indication::kTotalPassed;
  return c->outcome == Outcome::kFailed ? Indication::kTotalFailed : Indication::kIndeterminate;
}

std::string SignatureReport::subIndication() const {
  const Check* c = decidingCheck(checks);
  return c == nullptr ? std::string() : c->subIndication;
}

const char* indicationName(Indication indication) {
  switch (indication) {
    case Indication::kTotalPassed: return "TOTAL_PASSED";
    case Indication::kTotalFailed: return "TOTAL_FAILED";
    default: return "INDETERMINATE";
  }
}

const char* outcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed: return "passed";
    case Outcome::kFailed: return "failed";
    case Outcome::kIndeterminate: return "indeterminate";
    default: return "skipped";
  }
}

std::string reportText(const std::vector<SignatureReport>& signatures) {
  std::string out;
  for (size_t i = 0; i < signatures.size(); ++i) {
    const SignatureReport& s = signatures[i];
    const std::string sub = s.subIndication();
    out += (i == 0 ? "" : "\n") + std::string(s.kind) + " " + std::to_string(i + 1) +
           (s.field.empty() ? "" : " (field " + s.field + ")") + ": " + indicationName(s.indication()) +
           (sub.empty() ? "" : " / " + sub) + "\n";
    out += "  signer:       " + (s.signer.empty() ? std::string("(not found)") : s.signer) + "\n";
    if (!s.signingTime.empty()) out += "  signing time: " + s.signingTime + "\n";
    if (!s.timestamp.empty()) out += "  time-stamp:   " + s.timestamp + "\n";
    if (s.coversWholeFile) out += std::string("  covers whole file: ") + (*s.coversWholeFile ? "yes" : "no") + "\n";
    for (const Check& c : s.checks) {
      const std::string outcome = outcomeName(c.outcome);
      out += "  " + outcome + std::string(kOutcomeColumn - outcome.size(), ' ') + c.name + ": " + c.reason + "\n";
    }
    for (const LaterRevision& r : s.laterRevisions) {
      out += "  changed later: " + r.kind + " (revision ending at " + std::to_string(r.end) + ")\n";
    }
  }
  return out;
}

namespace {

Json signaturesJson(const std::vector<SignatureReport>& signatures) {
  Json list = Json::array();
  for (const SignatureReport& s : signatures) {
    Json one;
    one["kind"] = s.kind;
    if (!s.field.empty()) one["field"] = s.field;
    one["indication"] = indicationName(s.indication());
    one["subIndication"] = textOrNull(s.subIndication());
    one["signer"] = textOrNull(s.signer);
    one["signingTime"] = textOrNull(s.signingTime);
    one["timestamp"] = textOrNull(s.timestamp);
    if (s.coversWholeFile) {
      one["coversWholeFile"] = *s.coversWholeFile;
      Json later = Json::array();
      for (const LaterRevision& r : s.laterRevisions) later.push_back(Json{{"end", r.end}, {"kind", r.kind}});
      one["laterRevisions"] = std::move(later);
    }
    Json checks = Json::array();
    for (const Check& c : s.checks) {
      checks.push_back(Json{{"name", c.name},
                            {"outcome", outcomeName(c.outcome)},
                            {"subIndication", textOrNull(c.outcome == Outcome::kPassed ? std::string() : c.subIndication)},
                            {"reason", c.reason}});
    }
    one["checks"] = std::move(checks);
    list.push_back(std::move(one));
  }
  return list;
}

}  // namespace

std::string reportJson(const std::vector<SignatureReport>& signatures) {
  return jsonDocument(Json{{"signatures", signaturesJson(signatures)}});
}

std::string reportText(const FileReport& file) {
  std::string out = "file " + file.file + ":\n";
  if (!file.error.empty()) return out + "not judged: " + file.error + "\n";
  if (file.signatures.empty()) return out + "no signatures\n";
  return out + reportText(file.signatures);
}

std::string reportJson(const std::vector<FileReport>& files) {
  Json list = Json::array();
  for (const FileReport& f : files) {
    Json one{{"file", f.file}};
    if (!f.error.empty()) one["error"] = f.error;
    one["signatures"] = signaturesJson(f.signatures);
    list.push_back(std::move(one));
  }
  return jsonDocument(Json{{"files", std::move(list)}});
}
