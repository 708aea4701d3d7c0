// Sends a mail from a file again and again with libcurl, each with a handle and a connection of its
// own. Run by bench.py against a sink, beside kelvado_mails.
//   curl_mails PORT COUNT FILE   sends to 127.0.0.1 and prints the seconds that it took
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

bool sendOne(const std::string& url, std::string_view mail) {
  CURL* curl = curl_easy_init();
  if (curl == nullptr) return false;
  curl_slist* recipients = curl_slist_append(nullptr, "<user@bench.example>");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_MAIL_FROM, "<helpdesk@bench.example>");
  curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
  curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(curl, CURLOPT_READFUNCTION, readMail);
  curl_easy_setopt(curl, CURLOPT_READDATA, &mail);
  const CURLcode result = curl_easy_perform(curl);
  if (result != CURLE_OK) std::fprintf(stderr, "%s\n", curl_easy_strerror(result));
  curl_slist_free_all(recipients);
  curl_easy_cleanup(curl);
  return result == CURLE_OK;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: curl_mails PORT COUNT FILE\n");
    return 2;
  }
  std::ifstream file(argv[3], std::ios::binary);
  const std::string mail{std::istreambuf_iterator<char>(file), {}};
  const std::string url = std::string("smtp://127.0.0.1:") + argv[1] + "/bench.example";
  const int count = std::atoi(argv[2]);
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < count; ++i) {
    if (!sendOne(url, mail)) return 1;
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%.6f\n", seconds.count());
  curl_global_cleanup();
  return 0;
}
