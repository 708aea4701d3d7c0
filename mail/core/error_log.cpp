#include "mail/core/error_log.h"

#include "base/html.h"

namespace kelvado {
namespace {

// Enough for the log of a mail over an open connection.
constexpr std::size_t kUsualEntries = 32;
constexpr std::size_t kUsualBytes = 1024;
constexpr std::string_view kRoot = "KelvadoLog";
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

struct Xml {
  static void open(std::string_view tag, std::string& out) {
    out.append("<").append(tag).append(">\r\n");
  }
  static void close(std::string_view tag, std::string& out) {
    out.append("</").append(tag).append(">\r\n");
  }
  static void entry(char kind, std::string_view tag, std::string_view text, std::string& out) {
    if (kind == LogEntry2::kRaw) {
      out.append(text);
      return;
    }
    const std::string_view element = kind == LogEntry2::kError  ? "error"
                                     : kind == LogEntry2::kInfo ? "info"
                                                                : tag;
    out.append("<").append(element).append(">");
    appendProtected(text, out);
    out.append("</").append(element).append(">\r\n");
  }
};

struct Html {
  static void open(std::string_view tag, std::string& out) {
    out.append(base::escapeHtml(tag)).append(":<blockquote>\r\n");
  }
  static void close(std::string_view /*tag*/, std::string& out) { out.append("</blockquote>\r\n"); }
  static void entry(char kind, std::string_view tag, std::string_view text, std::string& out) {
    if (kind == LogEntry2::kTagged && !tag.empty()) out.append(base::escapeHtml(tag)).append(": ");
    out.append(base::escapeHtml(text)).append("<br>\r\n");
  }
};

bool isContext(const LogEntry2& entry) {
  return entry.kind != LogEntry2::kError && entry.kind != LogEntry2::kInfo &&
         entry.kind != LogEntry2::kTagged && entry.kind != LogEntry2::kRaw;
}

}  // namespace

LogEntry2& ErrorLog::add(char kind, std::string_view tag, std::string_view text) {
  validity_.check();
  if (entries_.capacity() == 0) {
    entries_.reserve(kUsualEntries);
    bytes_.reserve(kUsualBytes);
  }
  LogEntry2& entry = entries_.emplace_back();
  entry.kind = kind;
  entry.depth = depth_;
  entry.tag = bytes_.size();
  entry.text = entry.tag + tag.size();
  entry.end = entry.text + text.size();
  bytes_.append(tag).append(text);
  return entry;
}

void ErrorLog::LogError(std::string_view text) {
  add(LogEntry2::kError, "", text);
}

void ErrorLog::Clear() {
  validity_.check();
  entries_.clear();
  bytes_.clear();
  depth_ = 0;
}

void ErrorLog::EnterContext(std::string_view name, bool publicMethod) {
  add(LogEntry2::kContext, name, "").publicMethod = publicMethod;
  ++depth_;
}

void ErrorLog::LeaveContext() {
  validity_.check();
  if (depth_ > 0) --depth_;
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

template <class Style>
std::string ErrorLog::rendered() const {
  validity_.check();
  const std::string_view bytes = bytes_;
  std::string out;
  std::vector<std::string_view> open{kRoot};
  Style::open(kRoot, out);
  const auto closeDownTo = [&](std::size_t count) {
    for (; open.size() > count; open.pop_back()) Style::close(open.back(), out);
  };
  for (const LogEntry2& entry : entries_) {
    closeDownTo(entry.depth + 1);
    const std::string_view tag = bytes.substr(entry.tag, entry.text - entry.tag);
    if (isContext(entry)) {
      Style::open(tag, out);
      open.push_back(tag);
    } else {
      Style::entry(entry.kind, tag, bytes.substr(entry.text, entry.end - entry.text), out);
    }
  }
  closeDownTo(0);
  return out;
}

std::string ErrorLog::text() const {
  return rendered<Xml>();
}

std::string ErrorLog::html() const {
  return rendered<Html>();
}

}  // namespace kelvado
