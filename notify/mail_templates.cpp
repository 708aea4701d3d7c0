#include "notify/mail_templates.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "base/html_to_text.h"
#include "base/language_tag.h"
#include "base/text.h"
#include "config/editions.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

constexpr int kMostPolicies = 15;

// In the order of MailKind.
constexpr std::string_view kStems[kMailKinds] = {
    config::kWarningTemplates, config::kExpiredTemplates, config::kManagerTemplates};
constexpr std::string_view kHtmlEnd = ".html";
constexpr std::string_view kTextEnd = ".txt";
constexpr std::string_view kSubjectLine = "Subject:";

struct NameParts {
  MailKind kind;
  int slot = kEveryPolicy;
  std::string language;
  bool html = false;
};

int slotOf(std::string_view part) {
  for (int slot = 0; slot < kMostPolicies; ++slot) {
    if (base::equalsNoCase(part, config::policySlotName(slot))) return slot;
  }
  return kEveryPolicy;
}

std::optional<NameParts> partsOf(std::string_view name) {
  NameParts parts;
  const auto stem = std::find_if(std::begin(kStems), std::end(kStems), [name](std::string_view s) {
    return base::beginsWithNoCase(name, s);
  });
  if (stem == std::end(kStems)) return std::nullopt;
  parts.kind = static_cast<MailKind>(stem - std::begin(kStems));
  name.remove_prefix(stem->size());
  const std::size_t end = name.rfind('.');
  if (end == std::string_view::npos) return std::nullopt;
  parts.html = base::equalsNoCase(name.substr(end), kHtmlEnd);
  if (!parts.html && !base::equalsNoCase(name.substr(end), kTextEnd)) return std::nullopt;
  std::string_view middle = name.substr(0, end);  // ".Policy1.de", or part of it
  if (!middle.empty() && middle.front() != '.') return std::nullopt;
  middle.remove_prefix(std::min<std::size_t>(1, middle.size()));
  const std::size_t dot = std::min(middle.find('.'), middle.size());
  parts.slot = slotOf(middle.substr(0, dot));
  if (parts.slot != kEveryPolicy) middle.remove_prefix(std::min(dot + 1, middle.size()));
  if (!middle.empty() && !base::isLanguageTag(middle)) return std::nullopt;
  parts.language = base::lowered(middle);
  return parts;
}

// The value of a first line "Subject:", which is taken off with a blank line behind it.
std::optional<std::string> takeSubject(std::string& text) {
  if (!base::beginsWithNoCase(text, kSubjectLine)) return std::nullopt;
  std::string_view rest = text;
  std::string subject(base::trimmed(base::takeLine(rest).substr(kSubjectLine.size())));
  if (rest.starts_with('\n')) rest.remove_prefix(1);
  text = std::string(rest);
  return subject;
}

}  // namespace

std::string MessageTemplate::files() const {
  if (!html) return textFile;
  return htmlFile + (text && !textFile.empty() ? " and " + textFile : "");
}

MailTemplates::MailTemplates(const config::ExpirationSettings& settings)
    : settings_(settings),
      subject_(platform::ansiToUtf8(settings.emailSubject)),
      languages_(base::languageRanges(settings.emailLanguage)) {
  // The plain names do not depend on whether the folder can be listed.
  const Place plain{MailKind::Warning, kEveryPolicy, ""};
  read({plain, true, config::kHtmlTemplateFile});
  read({plain, false, config::kTextTemplateFile});
  for (const std::string& name : platform::namesInFolder(".")) {
    const std::optional<NameParts> parts = partsOf(name);
    if (!parts) continue;
    const Place place{parts->kind, parts->slot, parts->language};
    if (place != plain) read({place, parts->html, name});
  }
  for (auto& [place, found] : templates_) finish(place, found);
}

void MailTemplates::read(const FoundFile& file) {
  const TemplateFile content = readTemplate(file.name);
  if (!content.problem.empty()) {
    problems_.push_back(content.problem);
    lost_[static_cast<std::size_t>(std::get<MailKind>(file.place))] = true;
  }
  if (!content.text) return;
  MessageTemplate& found = templates_[file.place];
  std::string& name = file.html ? found.htmlFile : found.textFile;
  if (!name.empty()) return;  // in another spelling
  name = file.name;
  std::string text = *content.text;
  for (const UnknownToken& token : findUnknownTokens(text)) {
    unknownTokens_.push_back({file.name, token});
  }
  // The subject of the plain warning is emailSubject.
  if (file.place != Place{MailKind::Warning, kEveryPolicy, ""}) {
    std::optional<std::string> subject = takeSubject(text);
    if (!subject && file.html) subject = base::htmlTitle(text);
    if (subject && !subject->empty() && !found.subject) found.subject.emplace(*subject);
  }
  (file.html ? found.html : found.text).emplace(std::move(text));
}

void MailTemplates::finish(const Place& place, MessageTemplate& found) const {
  std::tie(found.kind, found.slot, found.tag) = place;
  found.language = found.tag.empty() ? language() : found.tag;
  if (!found.html) return;
  if (!settings_.emailTextAlternative) {
    found.text.reset();
  } else if (!found.text && !found.html->uses(Token::Users)) {
    found.text.emplace(base::htmlToText(found.html->source()));
  }
}

const MessageTemplate* MailTemplates::find(const Place& place) const {
  const auto found = templates_.find(place);
  return found == templates_.end() ? nullptr : &found->second;
}

TemplateChoice MailTemplates::choose(MailKind kind, int slot,
                                     std::string_view preferredLanguage) const {
  using enum TemplateChoice::Language;
  const std::vector<std::string> preferred = base::languageRanges(preferredLanguage);
  for (const int policy : {slot, kEveryPolicy}) {
    for (const auto& [ranges, source] :
         {std::pair(&preferred, Users), std::pair(&languages_, Settings)}) {
      for (const std::string& range : *ranges) {
        for (const std::string& tag : base::matchingTags(range)) {
          if (const MessageTemplate* found = find({kind, policy, tag})) {
            return {found, source};
          }
        }
      }
    }
    if (const MessageTemplate* found = find({kind, policy, ""})) {
      return {found, None};
    }
  }
  return {};
}

void MailTemplates::fill(kelvado::KvEmail& email, const MessageTemplate& chosen,
                         const TokenValues& values) const {
  const PreparedText& subject = chosen.subject ? *chosen.subject : subject_;
  email.put_Subject(settings_.subjectTokens ? subject.filled(values, TextFormat::Plain).c_str()
                                            : subject.source().c_str());
  std::string text = chosen.text ? chosen.text->filled(values, TextFormat::Plain) : "";
  if (!chosen.html) {
    email.put_Body(text.c_str());
    return;
  }
  const std::string html = chosen.html->filled(values, TextFormat::Html);
  if (!settings_.emailTextAlternative) {
    email.SetHtmlBody(html.c_str());
    return;
  }
  // The rows of a table and the numbers of a list are known only when they are filled in.
  if (!chosen.text) text = base::htmlToText(html);
  email.AddPlainTextAlternativeBody(text.c_str());
  email.AddHtmlAlternativeBody(html.c_str());
}

bool MailTemplates::needDetails() const {
  const auto needs = [](const PreparedText& text) {
    using enum Token;
    return text.uses(DisplayName) || text.uses(Domain) || text.uses(ManagerName);
  };
  return std::any_of(templates_.begin(), templates_.end(),
                     [&needs](const auto& row) {
                       const MessageTemplate& found = row.second;
                       return !found.tag.empty() || (found.html && needs(*found.html)) ||
                              (found.text && needs(*found.text)) ||
                              (found.subject && needs(*found.subject));
                     }) ||
         needs(subject_);
}

std::vector<const MessageTemplate*> MailTemplates::all() const {
  std::vector<const MessageTemplate*> found;
  for (const auto& [place, entry] : templates_) found.push_back(&entry);
  return found;
}

bool isTemplateName(std::string_view fileName) {
  return partsOf(fileName).has_value();
}

std::string choiceText(const TemplateChoice& choice, MailKind kind,
                       std::string_view preferredLanguage) {
  const std::string_view stem = kStems[static_cast<std::size_t>(kind)];
  if (choice.found == nullptr) return "no template " + std::string(stem) + " is there";
  const MessageTemplate& found = *choice.found;
  std::string text = found.files() + ": for ";
  text += found.slot == kEveryPolicy ? "every policy" : config::policySlotName(found.slot);
  using enum TemplateChoice::Language;
  if (choice.language == Users) {
    text += ", in " + found.tag + " (the user's preferredLanguage is " +
            std::string(preferredLanguage) + ")";
  } else if (choice.language == Settings) {
    text += ", in " + found.tag + " (emailLanguage)";
  }
  return text;
}

}  // namespace notify
