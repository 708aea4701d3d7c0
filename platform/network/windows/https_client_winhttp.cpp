// HTTPS by WinHTTP: with the certificates that Windows trusts, and the proxy that it finds.
#include <memory>
#include <type_traits>

#include <windows.h>
#include <winhttp.h>

#include "platform/network/https_client.h"
#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

struct HandleCloser {
  void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HINTERNET>, HandleCloser>;

std::wstring wide(const std::string& utf8) {
  return toWide(ansiToUtf16(utf8));
}

// In the words of WinHTTP itself, whose errors the system does not know by number alone.
std::string errorWords(DWORD error) {
  wchar_t* text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM |
          FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      GetModuleHandleA("winhttp.dll"), error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string words = length == 0 ? std::string() : utf16ToAnsi(fromWide(text));
  if (text != nullptr) LocalFree(text);
  while (!words.empty() && words.back() == ' ') words.pop_back();
  return words + (words.empty() ? "WinHTTP error " : " (WinHTTP error ") + std::to_string(error) +
         (words.empty() ? "" : ")");
}

bool isAboutTrust(DWORD error) {
  return error == ERROR_WINHTTP_SECURE_FAILURE || error == ERROR_WINHTTP_SECURE_INVALID_CA ||
         error == ERROR_WINHTTP_SECURE_CERT_CN_INVALID ||
         error == ERROR_WINHTTP_SECURE_CERT_DATE_INVALID;
}

struct Target {
  std::wstring host, path;
  INTERNET_PORT port = INTERNET_DEFAULT_HTTPS_PORT;
};

// False when it is no URL of HTTPS.
bool parseUrl(const std::string& url, Target& target) {
  const std::wstring text = wide(url);
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
  if (WinHttpCrackUrl(text.c_str(), static_cast<DWORD>(text.size()), 0, &parts) == FALSE ||
      parts.nScheme != INTERNET_SCHEME_HTTPS) {
    return false;
  }
  target.host.assign(parts.lpszHostName, parts.dwHostNameLength);
  target.path.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
  target.path.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  target.port = parts.nPort;
  return true;
}

Handle openSession(DWORD timeoutMs) {
  // The proxy that Windows finds by itself is known since Windows 8.1.
  for (const DWORD proxy :
       {DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}, DWORD{WINHTTP_ACCESS_TYPE_DEFAULT_PROXY}}) {
    Handle session(WinHttpOpen(nullptr, proxy, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    if (session == nullptr) continue;
    const int wait = static_cast<int>(timeoutMs);
    WinHttpSetTimeouts(session.get(), wait / 2, wait / 2, wait, wait);
    return session;
  }
  return nullptr;
}

bool send(HINTERNET request, const HttpsPost& post) {
  const std::wstring fields = L"Accept: application/json\r\nAuthorization: " +
                              wide(post.authorization) +
                              L"\r\nContent-Type: application/x-www-form-urlencoded\r\n";
  DWORD features =
      WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION;
  const auto size = static_cast<DWORD>(post.form.size());
  return WinHttpSetOption(request, WINHTTP_OPTION_DISABLE_FEATURE, &features, sizeof features) !=
             FALSE &&
         WinHttpSendRequest(request, fields.c_str(), static_cast<DWORD>(fields.size()),
                            const_cast<char*>(post.form.data()), size, size, 0) != FALSE &&
         WinHttpReceiveResponse(request, nullptr) != FALSE;
}

int statusOf(HINTERNET request) {
  DWORD status = 0;
  DWORD size = sizeof status;
  WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                      WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
  return static_cast<int>(status);
}

// Up to the end of the answer; false with the reason in `error`.
bool readBody(HINTERNET request, ULONGLONG deadline, std::string& body, std::string& error) {
  for (char piece[4096];;) {
    DWORD got = 0;
    if (WinHttpReadData(request, piece, sizeof piece, &got) == FALSE) {
      error = errorWords(GetLastError());
      return false;
    }
    if (got == 0) return true;
    body.append(piece, got);
    if (body.size() > kMaxHttpsBody) error = "its answer is too long";
    if (GetTickCount64() > deadline) error = "its answer did not come in time";
    if (!error.empty()) return false;
  }
}

class WinHttps final : public HttpsClient {
 public:
  HttpsAnswer post(const HttpsPost& post) override {
    const ULONGLONG deadline = GetTickCount64() + post.timeoutMs;
    HttpsAnswer answer;
    Target target;
    if (!parseUrl(post.url, target)) {
      answer.error = "not a URL that begins with https://";
      return answer;
    }
    const Handle session = openSession(post.timeoutMs);
    const Handle connection(
        session == nullptr ? nullptr
                           : WinHttpConnect(session.get(), target.host.c_str(), target.port, 0));
    const Handle request(connection == nullptr
                             ? nullptr
                             : WinHttpOpenRequest(connection.get(), L"POST", target.path.c_str(),
                                                  nullptr, WINHTTP_NO_REFERER,
                                                  WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                  WINHTTP_FLAG_SECURE));
    if (request == nullptr || !send(request.get(), post)) {
      const DWORD error = GetLastError();
      answer.error = errorWords(error);
      answer.untrusted = isAboutTrust(error);
      return answer;
    }
    if (readBody(request.get(), deadline, answer.body, answer.error)) {
      answer.status = statusOf(request.get());
    }
    return answer;
  }
};

}  // namespace

HttpsClient& systemHttps() {
  static auto* const client = new WinHttps;
  return *client;
}

}  // namespace platform
