// `pwlapse preview`: the mail that a user would get, or the administrator's report, before anybody
// gets it.
#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "console/answer.h"
#include "console/commands.h"
#include "console/mail_preview.h"
#include "directory/user_directory_data.h"
#include "notify/mail_transport.h"
#include "notify/manager_email.h"
#include "notify/warning_email.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"
#include "service/dry_run.h"

namespace console {
namespace {

// A mail as it is shown. Texts are UTF-8.
struct ShownMail {
  std::vector<std::pair<std::string, std::string>> headers;
  std::string text;
  std::string html;  // one of the two is empty
  std::string mime;
};

std::string textOf(const char* text) {
  return text == nullptr ? "" : text;
}

ShownMail show(kelvado::KvEmail& email) {
  email.put_Utf8(true);
  ShownMail mail;
  for (const char* name : {"From", "To", "Subject"}) {
    mail.headers.emplace_back(name, textOf(email.GetHeaderField(name)));
  }
  mail.html = textOf(email.GetHtmlBody());
  if (mail.html.empty()) mail.text = textOf(email.GetPlainTextBody());
  mail.mime = textOf(email.GetMime());
  return mail;
}

// Keeps the last mail of a dry run: the report, which comes at its end.
class LastMail : public notify::MailTransport {
 public:
  explicit LastMail(std::optional<ShownMail>& mail) : mail_(mail) {}
  bool send(kelvado::KvEmail& email) override {
    mail_ = show(email);
    return true;
  }
  kelvado::SmtpFailure failure() override { return {}; }
  std::string errorXml() override { return {}; }

 private:
  std::optional<ShownMail>& mail_;
};

std::optional<ShownMail> reportOf(const platform::Host& host, std::string& error) {
  std::optional<ShownMail> mail;
  service::DryRunOptions options;
  options.transport = [&mail](const config::ExpirationSettings&) {
    return std::make_unique<LastMail>(mail);
  };
  const service::PassRecord record = service::makeDryRun(host, nullptr, options);
  if (!mail) error = "the report could not be made";
  return mail;
}

std::optional<ShownMail> warningOf(const platform::Host& host, const PreviewOptions& options,
                                   Answer& answer, std::string& error) {
  std::optional<PreviewedUser> user = findPreviewedUser(host, options.user, error);
  if (!user) return std::nullopt;
  notify::UserRecord& record = user->record;
  if (options.days) setDaysLeft(record, *options.days);
  kelvado::KvEmail email;
  const config::ExpirationSettings settings = mailSettings(host.registry);
  const notify::MailTemplates templates(settings);
  if (options.manager) {
    if (record.data.manager.empty()) {
      error = record.username + " has no manager in the directory";
      return std::nullopt;
    }
    notify::composeManagerMail(email, settings, templates, {record}, host.clock);
    return show(email);
  }
  if (!composePreview(email, settings, templates, record, host.clock, error)) return std::nullopt;
  const std::string source = notify::warningSource(templates, settings, record);
  answer.members["today"] = jsonText(user->today);
  answer.members["template"] = jsonText(source);
  answer.above = outputStyle().paragraph("Today:    ", 10, user->today) +
                 outputStyle().paragraph("Template: ", 10, source);
  if (record.data.email == directory::kNoEmail) {
    answer.above += outputStyle().paragraph(
        "Address:  ", 10, "none in the directory, so no mail can be sent to this user");
  }
  return show(email);
}

void addMail(const ShownMail& mail, Answer& answer) {
  answer.table.columns = {{"name", ""}, {"value", ""}};
  std::string text;
  for (const auto& [name, value] : mail.headers) {
    if (value.empty()) continue;
    const std::string ansi = platform::utf8ToAnsi(value);
    answer.table.rows.push_back({name, ansi});
    text += outputStyle().paragraph(name + ":", 10, platform::loggableAnsiLine(ansi));
  }
  const bool isHtml = !mail.html.empty();
  std::string body = isHtml ? mail.html : mail.text;
  base::replaceAll(body, "\r\n", "\n");
  answer.table.rows.push_back({isHtml ? "HTML" : "Text", platform::utf8ToAnsi(body)});
  text += std::string("Body:     ") + (isHtml ? "HTML" : "text") + "\n\n";
  // Control characters would steer the terminal.
  for (std::string_view rest = body; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    text += platform::loggableAnsiLine(platform::utf8ToAnsi(rest.substr(0, end))) + '\n';
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  answer.above += text;
}

// Where a file was asked for, and what is in it.
struct Output {
  std::string file;
  const std::string& content;
};

}  // namespace

int previewCommand(const PreviewOptions& options) {
  std::string error;
  const bool report = options.report;
  if (report != options.user.empty()) return refuse("preview: either USER or --report is needed");
  SiteOptions site = options.question.site;
  if (report) {  // it is asked for
    site.settings.emplace_back("emailAdminReports=1");
    site.settings.emplace_back("adminReportWhen=always");
  }
  if (options.manager) {
    site.settings.emplace_back("managerDays=10000");  // so that managers are read
  }
  const auto named = [](const std::string& file) {
    return file.empty() ? file : platform::absolutePath(file);
  };
  const std::string emlFile = named(options.emlFile), htmlFile = named(options.htmlFile);
  const std::unique_ptr<platform::SystemHost> system = openSite(site, error);
  if (!system) return refuse(error);
  Answer answer;
  answer.command = "preview";
  answer.rowsKey = "fields";
  answer.peopleSeeTable = false;
  const std::optional<ShownMail> mail =
      report ? reportOf(system->host(), error) : warningOf(system->host(), options, answer, error);
  if (!mail) return refuse(error);
  if (!htmlFile.empty() && mail->html.empty()) return refuse("--html: this mail has no HTML");
  addMail(*mail, answer);
  for (const Output& output : {Output{emlFile, mail->mime}, Output{htmlFile, mail->html}}) {
    if (output.file.empty()) continue;
    if (!platform::replaceFileAtomically(output.file, output.content,
                                         platform::FileReaders::AsUsual)) {
      return refuse(output.file + ": " + platform::fileErrorText());
    }
    answer.below += "written: " + output.file + '\n';
  }
  if (!answer.below.empty()) answer.above.clear();
  printAnswer(answer, options.question.format);
  return kExitDone;
}

}  // namespace console
