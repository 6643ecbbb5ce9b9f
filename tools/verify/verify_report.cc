#include "verify/verify_report.h"

#include "commands.h"

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

std::string jsonTextOrNull(const std::string& text) { return text.empty() ? "null" : jsonQuoted(text, true); }

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

std::string reportJson(const std::vector<SignatureReport>& signatures) {
  std::string out = "{\"signatures\": [";
  for (size_t i = 0; i < signatures.size(); ++i) {
    const SignatureReport& s = signatures[i];
    out += i == 0 ? "\n" : ",\n";
    out += "  {\"kind\": " + jsonQuoted(s.kind, true);
    if (!s.field.empty()) out += ", \"field\": " + jsonQuoted(s.field, true);
    out += ", \"indication\": \"" + std::string(indicationName(s.indication())) + "\"";
    out += ", \"subIndication\": " + jsonTextOrNull(s.subIndication());
    out += ", \"signer\": " + jsonTextOrNull(s.signer);
    out += ", \"signingTime\": " + jsonTextOrNull(s.signingTime);
    out += ", \"timestamp\": " + jsonTextOrNull(s.timestamp);
    if (s.coversWholeFile) {
      out += std::string(", \"coversWholeFile\": ") + (*s.coversWholeFile ? "true" : "false");
      out += ", \"laterRevisions\": [";
      for (size_t r = 0; r < s.laterRevisions.size(); ++r) {
        out += (r == 0 ? "" : ", ") + std::string("{\"end\": ") + std::to_string(s.laterRevisions[r].end) +
               ", \"kind\": " + jsonQuoted(s.laterRevisions[r].kind, true) + "}";
      }
      out += "]";
    }
    out += ",\n   \"checks\": [";
    for (size_t c = 0; c < s.checks.size(); ++c) {
      const Check& k = s.checks[c];
      out += (c == 0 ? "\n" : ",\n") + std::string("    {\"name\": ") + jsonQuoted(k.name, true) +
             ", \"outcome\": \"" + outcomeName(k.outcome) + "\", \"subIndication\": " +
             jsonTextOrNull(k.outcome == Outcome::kPassed ? std::string() : k.subIndication) +
             ", \"reason\": " + jsonQuoted(k.reason, true) + "}";
    }
    out += "]}";
  }
  out += signatures.empty() ? "]}\n" : "\n]}\n";
  return out;
}
