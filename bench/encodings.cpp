// Builds the administrator's report, and encodes a megabyte, with this library and its peers in
// turns. Run by bench.py.
//   encodings   prints a line for each figure: what TAB ours TAB peer TAB the fastest peer's name
//   TAB
//               ratio; messages or megabytes a second of processor time, medians of the rounds
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>
#include <vmime/utility/encoder/b64Encoder.hpp>
#include <vmime/utility/encoder/qpEncoder.hpp>
#include <vmime/utility/inputStreamByteBufferAdapter.hpp>
#include <vmime/utility/outputStreamStringAdapter.hpp>

#include <curl/curl.h>
#include <gmime/gmime.h>
#include <openssl/evp.h>

#include "mail/mime/base64.h"
#include "mail/mime/kv_email.h"
#include "mail/mime/quoted_printable.h"

namespace {

constexpr int kRounds = 15;
constexpr double kRoundSeconds = 0.05;
constexpr std::size_t kMegabyte = 1 << 20;

// What each encoder writes is looked at by this, so that none is left out as unused.
volatile std::size_t sink;

struct Contender {
  const char* name;
  std::function<std::size_t()> run;  // the size of what it wrote; 0: failed
};

// Of the processor, which no other program on the machine takes part in.
double secondsNow() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

double ratePerSecond(const Contender& contender) {
  const double start = secondsNow();
  double gone = 0;
  int runs = 0;
  do {
    sink = contender.run();
    if (sink == 0) {
      std::fprintf(stderr, "encodings: %s failed\n", contender.name);
      std::exit(1);
    }
    ++runs;
    gone = secondsNow() - start;
  } while (gone < kRoundSeconds);
  return runs / gone;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// The first is ours. Each round measures them all, from another one on each time.
void compare(const char* what, const std::vector<Contender>& contenders) {
  std::vector<std::vector<double>> rates(contenders.size());
  for (std::size_t round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      const std::size_t which = (round + i) % contenders.size();
      rates[which].push_back(ratePerSecond(contenders[which]));
    }
  }
  std::size_t fastest = 1;
  for (std::size_t i = 2; i < contenders.size(); ++i) {
    if (median(rates[i]) > median(rates[fastest])) fastest = i;
  }
  std::vector<double> ratios;
  for (std::size_t round = 0; round < kRounds; ++round) {
    ratios.push_back(rates[0][round] / rates[fastest][round]);
  }
  std::printf("%s\t%.0f\t%.0f\t%s\t%.3f\n", what, median(rates[0]), median(rates[fastest]),
              contenders[fastest].name, median(ratios));
}

std::string reportHtml() {
  std::string html = "<html><body><h3>Norvyn Password Expiration Report</h3><table>\r\n";
  for (int user = 1; html.size() < 20'000; ++user) {
    const std::string number = std::to_string(user);
    html += "<tr><td>user" + number + "</td><td>First Last</td><td>user" + number +
            "@bench.example</td><td>expires in 7 days</td></tr>\r\n";
  }
  return html + "</table></body></html>\r\n";
}

std::string randomBytes(std::size_t count) {
  std::mt19937 source(1);
  std::string bytes(count, '\0');
  for (char& c : bytes) c = static_cast<char>(source());
  return bytes;
}

// --- the report: a related part with the page and its picture ---

std::size_t kelvadoReport(const std::string& html, const std::string& gif) {
  kelvado::KvEmail email;
  email.put_From("Help Desk <helpdesk@bench.example>");
  email.AddTo("Administrator", "admin@bench.example");
  email.put_Subject("Norvyn Password Expiration Report");
  email.SetHtmlBody(html.c_str());
  if (email.AddRelatedData("images/logo.gif", gif.data(), gif.size()) == nullptr) return 0;
  const char* mime = email.GetMime();
  return mime == nullptr ? 0 : std::string_view(mime).size();
}

GMimePart* gmimePart(const char* type, const char* subtype, const std::string& bytes,
                     GMimeContentEncoding encoding) {
  GMimePart* part = g_mime_part_new_with_type(type, subtype);
  GMimeStream* stream = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
  GMimeDataWrapper* content =
      g_mime_data_wrapper_new_with_stream(stream, GMIME_CONTENT_ENCODING_DEFAULT);
  g_mime_part_set_content(part, content);
  g_mime_part_set_content_encoding(part, encoding);
  g_object_unref(content);
  g_object_unref(stream);
  return part;
}

std::size_t gmimeReport(const std::string& html, const std::string& gif) {
  GMimeMessage* message = g_mime_message_new(TRUE);
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_FROM, "Help Desk",
                             "helpdesk@bench.example");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, "Administrator",
                             "admin@bench.example");
  g_mime_message_set_subject(message, "Norvyn Password Expiration Report", nullptr);
  GDateTime* now = g_date_time_new_now_local();
  g_mime_message_set_date(message, now);
  g_date_time_unref(now);
  gchar* id = g_mime_utils_generate_message_id("bench.example");
  g_mime_message_set_message_id(message, id);
  g_free(id);
  GMimeMultipart* related = g_mime_multipart_new_with_subtype("related");
  GMimePart* page = gmimePart("text", "html", html, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  GMimePart* picture = gmimePart("image", "gif", gif, GMIME_CONTENT_ENCODING_BASE64);
  g_mime_object_set_content_type_parameter(GMIME_OBJECT(page), "charset", "utf-8");
  g_mime_part_set_content_id(picture, "logo@bench.example");
  g_mime_multipart_add(related, GMIME_OBJECT(page));
  g_mime_multipart_add(related, GMIME_OBJECT(picture));
  g_mime_message_set_mime_part(message, GMIME_OBJECT(related));
  GMimeStream* stream = g_mime_stream_mem_new();
  const gssize size = g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, stream);
  g_object_unref(stream);
  g_object_unref(page);
  g_object_unref(picture);
  g_object_unref(related);
  g_object_unref(message);
  return size < 0 ? 0 : static_cast<std::size_t>(size);
}

// --- the encoders of the peers, each with its own buffers, as it is used ---

std::size_t gmimeEncode(GMimeContentEncoding encoding, const std::string& bytes) {
  GMimeEncoding state;
  g_mime_encoding_init_encode(&state, encoding);
  std::string out(g_mime_encoding_outlen(&state, bytes.size()), '\0');
  return g_mime_encoding_flush(&state, bytes.data(), bytes.size(), out.data());
}

template <class Encoder>
std::size_t vmimeEncode(const std::string& bytes) {
  vmime::utility::inputStreamByteBufferAdapter in(
      reinterpret_cast<const vmime::byte_t*>(bytes.data()), bytes.size());
  vmime::string text;
  vmime::utility::outputStreamStringAdapter out(text);
  Encoder encoder;
  encoder.getProperties()["maxlinelength"] = 76;
  encoder.encode(in, out);
  return text.size();
}

std::size_t opensslEncode(const std::string& bytes) {
  EVP_ENCODE_CTX* context = EVP_ENCODE_CTX_new();
  // 65 characters for 48 bytes, as its lines are.
  std::string out(bytes.size() / 48 * 65 + 200, '\0');
  auto* to = reinterpret_cast<unsigned char*>(out.data());
  int length = 0;
  int rest = 0;
  EVP_EncodeInit(context);
  EVP_EncodeUpdate(context, to, &length, reinterpret_cast<const unsigned char*>(bytes.data()),
                   static_cast<int>(bytes.size()));
  EVP_EncodeFinal(context, to + length, &rest);
  EVP_ENCODE_CTX_free(context);
  return static_cast<std::size_t>(length + rest);
}

// Seconds that libcurl takes to send a megabyte as a part with the encoder.
double curlSeconds(CURL* curl, const std::string& bytes, const char* encoder) {
  curl_mime* mime = curl_mime_init(curl);
  curl_mimepart* part = curl_mime_addpart(mime);
  curl_mime_data(part, bytes.data(), bytes.size());
  curl_mime_encoder(part, encoder);
  curl_easy_setopt(curl, CURLOPT_MIMEPOST, mime);
  const double start = secondsNow();
  const CURLcode result = curl_easy_perform(curl);
  const double gone = secondsNow() - start;
  curl_mime_free(mime);
  if (result != CURLE_OK) {
    std::fprintf(stderr, "encodings: %s\n", curl_easy_strerror(result));
    std::exit(1);
  }
  return gone;
}

// What is left of libcurl's time when the sending without an encoder is taken off.
void compareWithCurl(const char* what, const std::string& url, const std::string& bytes,
                     const Contender& ours) {
  CURL* curl = curl_easy_init();
  curl_slist* recipients = curl_slist_append(nullptr, "<user@bench.example>");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_MAIL_FROM, "<helpdesk@bench.example>");
  curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
  std::vector<double> rates;
  std::vector<double> plain;
  std::vector<double> encoded;
  for (int round = 0; round < kRounds; ++round) {
    rates.push_back(ratePerSecond(ours));
    plain.push_back(curlSeconds(curl, bytes, "binary"));
    encoded.push_back(curlSeconds(curl, bytes, what));
  }
  curl_slist_free_all(recipients);
  curl_easy_cleanup(curl);
  const double peer = 1 / std::max(median(encoded) - median(plain), 1e-6);
  std::printf("%s\t%.0f\t%.0f\tlibcurl\t%.3f\n", what, median(rates), peer, median(rates) / peer);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: encodings PORT\n");
    return 2;
  }
  const std::string url = std::string("smtp://127.0.0.1:") + argv[1] + "/bench.example";
  curl_global_init(CURL_GLOBAL_DEFAULT);
  g_mime_init();
  const std::string html = reportHtml();
  const std::string gif = "GIF89a" + randomBytes(4090);
  compare("report", {{"ours", [&] { return kelvadoReport(html, gif); }},
                     {"GMime", [&] { return gmimeReport(html, gif); }}});

  const std::string bytes = randomBytes(kMegabyte);
  const Contender base64{"ours", [&] {
                           std::string out;
                           kelvado::base64AppendLines(bytes, kelvado::kBodyLineLength, out);
                           return out.size();
                         }};
  using VmimeBase64 = vmime::utility::encoder::b64Encoder;
  compare("base64", {base64,
                     {"GMime", [&] { return gmimeEncode(GMIME_CONTENT_ENCODING_BASE64, bytes); }},
                     {"VMime", [&] { return vmimeEncode<VmimeBase64>(bytes); }},
                     {"OpenSSL", [&] { return opensslEncode(bytes); }}});
  compareWithCurl("base64", url, bytes, base64);

  std::string text;
  while (text.size() < kMegabyte) text += html;
  text.resize(kMegabyte);
  const Contender quotedPrintable{"ours", [&] {
                                    std::string out;
                                    kelvado::quotedPrintableAppend(text, kelvado::LineEnds::AsLines,
                                                                   out);
                                    return out.size();
                                  }};
  using VmimeQuotedPrintable = vmime::utility::encoder::qpEncoder;
  compare("quoted-printable",
          {quotedPrintable,
           {"GMime", [&] { return gmimeEncode(GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE, text); }},
           {"VMime", [&] { return vmimeEncode<VmimeQuotedPrintable>(text); }}});
  compareWithCurl("quoted-printable", url, text, quotedPrintable);
  return 0;
}
