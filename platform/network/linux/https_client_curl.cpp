// HTTPS by libcurl, over OpenSSL: with the authorities that its other TLS connections trust,
// SSL_CERT_FILE and SSL_CERT_DIR included.
#include <array>
#include <memory>

#include <curl/curl.h>
#include <openssl/ssl.h>

#include "platform/network/https_client.h"

namespace platform {
namespace {

struct HandleCloser {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListCloser {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Handle = std::unique_ptr<CURL, HandleCloser>;
using FieldList = std::unique_ptr<curl_slist, ListCloser>;

// A count other than that of the bytes ends the transfer with CURLE_WRITE_ERROR.
std::size_t takeBody(const char* bytes, std::size_t, std::size_t count, void* target) {
  auto& body = *static_cast<std::string*>(target);
  if (count > kMaxHttpsBody - body.size()) return 0;
  body.append(bytes, count);
  return count;
}

CURLcode trustTheSystem(CURL*, void* context, void*) {
  return SSL_CTX_set_default_verify_paths(static_cast<SSL_CTX*>(context)) == 1
             ? CURLE_OK
             : CURLE_SSL_CACERT_BADFILE;
}

// libcurl's own bundle of authorities counts only where it does not use OpenSSL.
void chooseAuthorities(CURL* handle) {
  if (curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, trustTheSystem) != CURLE_OK) return;
  curl_easy_setopt(handle, CURLOPT_CAINFO, nullptr);
  curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
}

bool addField(FieldList& fields, const std::string& field) {
  curl_slist* const longer = curl_slist_append(fields.get(), field.c_str());
  if (longer == nullptr) return false;
  static_cast<void>(fields.release());
  fields.reset(longer);
  return true;
}

class CurlHttps final : public HttpsClient {
 public:
  CurlHttps() : started_(curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK) {}

  HttpsAnswer post(const HttpsPost& request) override {
    HttpsAnswer answer;
    answer.error = "libcurl cannot be used";
    const Handle owner(started_ ? curl_easy_init() : nullptr);
    CURL* const handle = owner.get();
    FieldList fields;
    if (handle == nullptr || !addField(fields, "Accept: application/json") ||
        !addField(fields, "Authorization: " + request.authorization) ||
        curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str()) != CURLE_OK ||
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https") != CURLE_OK) {
      return answer;
    }
    std::array<char, CURL_ERROR_SIZE> words{};
    const long timeoutMs = static_cast<long>(request.timeoutMs);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, fields.get());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.form.c_str());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.form.size()));
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);  // threads
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs / 2);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, words.data());
    chooseAuthorities(handle);

    const CURLcode result = curl_easy_perform(handle);
    long status = 0;
    if (result == CURLE_OK) {
      curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
      answer.error.clear();
    } else if (result == CURLE_WRITE_ERROR) {
      answer.error = "its answer is too long";
    } else {
      answer.error = words.front() != '\0' ? words.data() : curl_easy_strerror(result);
    }
    answer.status = static_cast<int>(status);
    answer.untrusted = result == CURLE_PEER_FAILED_VERIFICATION;
    return answer;
  }

 private:
  const bool started_;
};

}  // namespace

HttpsClient& systemHttps() {
  static auto* const client = new CurlHttps;
  return *client;
}

}  // namespace platform
