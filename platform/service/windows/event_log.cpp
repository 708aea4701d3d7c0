#include "platform/service/windows/event_log.h"

#include <windows.h>

#include "platform/service/windows/events.h"

namespace platform {
namespace {

constexpr const char* kSource = "NRVPasswordExpiration";
constexpr const char* kSourcesKey = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\";
// Of one text of an event the system takes 31,839 characters.
constexpr std::size_t kLongestText = 31000;

struct EventRow {
  Event event;
  DWORD id;  // of its text, in the program's resources
  WORD type;
};

constexpr EventRow kRows[] = {
    {Event::ServiceStarted, EVENT_SERVICE_STARTED, EVENTLOG_INFORMATION_TYPE},
    {Event::ServiceStopped, EVENT_SERVICE_STOPPED, EVENTLOG_INFORMATION_TYPE},
    {Event::ServiceFailed, EVENT_SERVICE_FAILED, EVENTLOG_ERROR_TYPE},
    {Event::PassWell, EVENT_PASS_WELL, EVENTLOG_INFORMATION_TYPE},
    {Event::PassWithProblems, EVENT_PASS_WITH_PROBLEMS, EVENTLOG_WARNING_TYPE},
    {Event::PassLeftOut, EVENT_PASS_LEFT_OUT, EVENTLOG_ERROR_TYPE},
    {Event::SettingsWrong, EVENT_SETTINGS_WRONG, EVENTLOG_ERROR_TYPE},
    {Event::DirectoryFailed, EVENT_DIRECTORY_FAILED, EVENTLOG_ERROR_TYPE},
    {Event::MailServerFailed, EVENT_MAIL_SERVER_FAILED, EVENTLOG_ERROR_TYPE},
};

constexpr bool numbersAgree() {
  for (const EventRow& row : kRows) {
    if (row.id != static_cast<DWORD>(row.event)) return false;
  }
  return true;
}
static_assert(numbersAgree());

// The event viewer takes a per cent sign before a digit for the place of another text.
std::string withoutPlaces(std::string text) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  for (std::size_t at = 0; (at = text.find('%', at)) != std::string::npos; ++at) {
    if (at + 1 < text.size() && isDigit(text[at + 1])) text.insert(at + 1, 1, ' ');
  }
  return text;
}

}  // namespace

void enterEvent(Event event, const std::string& text) {
  const HANDLE log = RegisterEventSourceA(nullptr, kSource);
  if (log == nullptr) return;
  const std::string shown = withoutPlaces(text.substr(0, kLongestText));
  const char* const texts[] = {shown.c_str()};
  for (const EventRow& row : kRows) {
    if (row.event != event) continue;
    ReportEventA(log, row.type, 0, row.id, nullptr, 1, 0, const_cast<const char**>(texts), nullptr);
  }
  DeregisterEventSource(log);
}

WinError addEventSourceKey(const std::string& name, const std::string& imagePath) {
  HKEY key = nullptr;
  LSTATUS status = RegCreateKeyExA(HKEY_LOCAL_MACHINE, (kSourcesKey + name).c_str(), 0, nullptr, 0,
                                   KEY_SET_VALUE, nullptr, &key, nullptr);
  if (status != ERROR_SUCCESS) return static_cast<WinError>(status);
  status = RegSetValueExA(key, "EventMessageFile", 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(imagePath.c_str()),
                          static_cast<DWORD>(imagePath.size() + 1));
  constexpr DWORD kTypes = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
  if (status == ERROR_SUCCESS) {
    status = RegSetValueExA(key, "TypesSupported", 0, REG_DWORD,
                            reinterpret_cast<const BYTE*>(&kTypes), sizeof kTypes);
  }
  RegCloseKey(key);
  return static_cast<WinError>(status);
}

WinError removeEventSourceKey(const std::string& name) {
  const LSTATUS status = RegDeleteKeyA(HKEY_LOCAL_MACHINE, (kSourcesKey + name).c_str());
  return status == ERROR_FILE_NOT_FOUND ? kErrorSuccess : static_cast<WinError>(status);
}

}  // namespace platform
