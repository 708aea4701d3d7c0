// Sends a mail from a file again and again with libcurl. Run by bench.py against a sink, beside
// kelvado_mails.
//   curl_mails PORT COUNT MODE FILE   sends to 127.0.0.1 and prints the seconds that it took; MODE:
//       each, kept           a handle and a connection for each mail, or one for all
//       starttls-each, starttls-kept    with the authorities of the file in SSL_CERT_FILE
//       starttls-oauth-kept             the same, logging in by an access token
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <curl/curl.h>

namespace {

std::size_t readMail(char* buffer, std::size_t size, std::size_t count, void* rest) {
  auto& text = *static_cast<std::string_view*>(rest);
  const std::size_t length = std::min(size * count, text.size());
  std::memcpy(buffer, text.data(), length);
  text.remove_prefix(length);
  return length;
}

bool sendOne(CURL* curl, const std::string& url, std::string_view mode, std::string_view mail) {
  curl_slist* recipients = curl_slist_append(nullptr, "<user@bench.example>");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_MAIL_FROM, "<helpdesk@bench.example>");
  curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
  curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(curl, CURLOPT_READFUNCTION, readMail);
  curl_easy_setopt(curl, CURLOPT_READDATA, &mail);
  if (mode.starts_with("starttls")) {
    curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    curl_easy_setopt(curl, CURLOPT_CAINFO, std::getenv("SSL_CERT_FILE"));
  }
  if (mode.find("oauth") != std::string_view::npos) {
    curl_easy_setopt(curl, CURLOPT_USERNAME, "bench");
    curl_easy_setopt(curl, CURLOPT_XOAUTH2_BEARER, "bench");
    curl_easy_setopt(curl, CURLOPT_LOGIN_OPTIONS, "AUTH=XOAUTH2");
  }
  const CURLcode result = curl_easy_perform(curl);
  if (result != CURLE_OK) std::fprintf(stderr, "%s\n", curl_easy_strerror(result));
  curl_slist_free_all(recipients);
  return result == CURLE_OK;
}

bool sendAll(const std::string& url, std::string_view mode, int count, std::string_view mail) {
  const bool kept = mode.ends_with("kept");
  CURL* curl = curl_easy_init();
  bool sent = true;
  for (int i = 0; i < count && sent; ++i) {
    if (!kept && i > 0) {
      curl_easy_cleanup(curl);
      curl = curl_easy_init();
    }
    sent = sendOne(curl, url, mode, mail);
  }
  curl_easy_cleanup(curl);
  return sent;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: curl_mails PORT COUNT MODE FILE\n");
    return 2;
  }
  std::ifstream file(argv[4], std::ios::binary);
  const std::string mail{std::istreambuf_iterator<char>(file), {}};
  const std::string url = std::string("smtp://127.0.0.1:") + argv[1] + "/bench.example";
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const auto start = std::chrono::steady_clock::now();
  if (!sendAll(url, argv[3], std::atoi(argv[2]), mail)) return 1;
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%.6f\n", seconds.count());
  curl_global_cleanup();
  return 0;
}
