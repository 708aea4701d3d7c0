#include "service/metrics.h"

#include "base/format_text.h"
#include "base/text.h"

namespace service {
namespace {

using base::formatText;

// All are gauges: each speaks of the last pass only.
std::string heading(const std::string& name, const char* help) {
  return "# HELP " + name + ' ' + help + "\n# TYPE " + name + " gauge\n";
}

std::string metric(const std::string& name, const char* help, double value) {
  return heading(name, help) + name + formatText(" %.15g\n", value);
}

std::string labelValue(std::string text) {
  base::replaceAll(text, "\\", "\\\\");
  base::replaceAll(text, "\"", "\\\"");
  base::replaceAll(text, "\n", "\\n");
  return text;
}

std::string sample(const std::string& name, const char* label, const std::string& value,
                   std::uint64_t count) {
  return name + '{' + label + "=\"" + labelValue(value) + "\"} " + std::to_string(count) + '\n';
}

std::string timeMetric(const char* name, const char* help,
                       const std::optional<std::int64_t>& time) {
  return time ? metric(name, help, static_cast<double>(*time)) : "";
}

std::string mailMetric(const std::string& name, const char* help, const MailCounts& mails) {
  return heading(name, help) + sample(name, "result", "sent", mails.sent) +
         sample(name, "result", "failed", mails.failed);
}

}  // namespace

std::string metricsText(const LastRun& run) {
  const std::string users = "pwlapse_last_pass_users";
  std::string text =
      timeMetric("pwlapse_last_pass_timestamp_seconds", "When the last pass ended.", run.ended) +
      timeMetric("pwlapse_last_success_timestamp_seconds",
                 "When the last pass without problems ended.", run.lastSuccess) +
      timeMetric("pwlapse_next_pass_timestamp_seconds", "When the service makes its next pass.",
                 run.next) +
      metric("pwlapse_last_pass_duration_seconds", "How long the last pass took.",
             run.durationSeconds) +
      metric("pwlapse_last_pass_report_only", "1 when the last pass only reported.",
             run.reportOnly ? 1 : 0) +
      heading(users, "Lines of the user lists by what became of them in the last pass.");
  for (int i = 0; i < kOutcomes; ++i) {
    text += sample(users, "outcome", outcomeLabel(static_cast<Outcome>(i)), run.counts[i]);
  }
  text += mailMetric("pwlapse_last_pass_mails", "Warnings of the last pass by what became of them.",
                     run.mails);
  if (run.managers) {
    text += mailMetric("pwlapse_last_pass_manager_mails",
                       "Mails to managers of the last pass by what became of them.", *run.managers);
  }
  text += metric("pwlapse_last_pass_problems", "Problems of the last pass.",
                 static_cast<double>(run.problems.count));
  text += metric("pwlapse_last_pass_notes", "Notes of the last pass: what may be a mistake.",
                 static_cast<double>(run.notes.count));
  return text;
}

}  // namespace service
