#include "mail/core/error_log.h"

#include "base/html.h"

namespace kelvado {
namespace {

constexpr std::string_view kCdataStart = "<![CDATA[";
constexpr std::string_view kCdataEnd = "]]>";

void appendProtected(std::string_view text, std::string& out) {
  const bool wrapped = text.find(kCdataStart) != std::string_view::npos &&
                       text.find(kCdataEnd) != std::string_view::npos;
  if (wrapped || text.find_first_of("\n\t&><") == std::string_view::npos) {
    out.append(text);
  } else {
    out.append(kCdataStart).append(text).append(kCdataEnd);
  }
}

void appendElement(std::string_view tag, std::string_view text, std::string& out) {
  out.append("<").append(tag).append(">");
  appendProtected(text, out);
  out.append("</").append(tag).append(">\r\n");
}

void appendXml(const LogEntry2& entry, std::string& out) {
  switch (entry.kind) {
    case LogEntry2::kError:
      appendElement("error", entry.text, out);
      return;
    case LogEntry2::kInfo:
      appendElement("info", entry.text, out);
      return;
    case LogEntry2::kTagged:
      appendElement(entry.tag, entry.text, out);
      return;
    case LogEntry2::kRaw:
      out.append(entry.text);
      return;
    default:
      out.append("<").append(entry.tag).append(">\r\n");
      for (const auto& child : entry.children) appendXml(*child, out);
      out.append("</").append(entry.tag).append(">\r\n");
  }
}

void appendHtmlLine(std::string_view tag, std::string_view text, std::string& out) {
  if (!tag.empty()) {
    out.append(base::escapeHtml(tag)).append(": ");
  }
  out.append(base::escapeHtml(text)).append("<br>\r\n");
}

void appendHtml(const LogEntry2& entry, std::string& out) {
  switch (entry.kind) {
    case LogEntry2::kError:
    case LogEntry2::kInfo:
    case LogEntry2::kRaw:
      appendHtmlLine("", entry.text, out);
      return;
    case LogEntry2::kTagged:
      appendHtmlLine(entry.tag, entry.text, out);
      return;
    default:
      out.append(base::escapeHtml(entry.tag)).append(":<blockquote>\r\n");
      for (const auto& child : entry.children) appendHtml(*child, out);
      out.append("</blockquote>\r\n");
  }
}

}  // namespace

ErrorLog::ErrorLog() {
  root_.tag = "KelvadoLog";
  open_.push_back(&root_);
}

ErrorLog::~ErrorLog() = default;

LogEntry2& ErrorLog::add(char kind, std::string_view tag, std::string_view text) {
  validity_.check();
  auto entry = std::make_unique<LogEntry2>();
  entry->kind = kind;
  entry->tag = tag;
  entry->text = text;
  open_.back()->children.push_back(std::move(entry));
  return *open_.back()->children.back();
}

void ErrorLog::LogError(std::string_view text) {
  add(LogEntry2::kError, "", text);
}

void ErrorLog::Clear() {
  validity_.check();
  root_.children.clear();
  open_.assign(1, &root_);
}

void ErrorLog::EnterContext(std::string_view name, bool publicMethod) {
  LogEntry2& context = add(LogEntry2::kContext, name, "");
  context.publicMethod = publicMethod;
  open_.push_back(&context);
}

void ErrorLog::LeaveContext() {
  validity_.check();
  if (open_.size() > 1) open_.pop_back();
}

void ErrorLog::LogData(std::string_view tag, std::string_view value) {
  add(LogEntry2::kTagged, tag, value);
}

void ErrorLog::LogInfo(std::string_view text) {
  add(LogEntry2::kInfo, "", text);
}

void ErrorLog::LogRaw(std::string_view text) {
  add(LogEntry2::kRaw, "", text);
}

std::string ErrorLog::text() const {
  validity_.check();
  std::string out;
  appendXml(root_, out);
  return out;
}

std::string ErrorLog::html() const {
  validity_.check();
  std::string out;
  appendHtml(root_, out);
  return out;
}

}  // namespace kelvado
