#include "mail/mime/base64.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/ascii.h"

namespace kelvado {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters for each value of 12 bits: half as many look-ups as by single characters.
struct Pair {
  char characters[2];
};
constexpr std::array<Pair, 4096> makePairs() {
  std::array<Pair, 4096> pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    pairs[i] = {{kAlphabet[i >> 6], kAlphabet[i & 63]}};
  }
  return pairs;
}
constexpr std::array<Pair, 4096> kPairs = makePairs();

constexpr std::uint8_t kNoDigit = 0xFF;
constexpr std::array<std::uint8_t, 256> makeDigits() {
  std::array<std::uint8_t, 256> digits{};
  digits.fill(kNoDigit);
  for (std::uint8_t i = 0; i < 64; ++i) digits[static_cast<unsigned char>(kAlphabet[i])] = i;
  return digits;
}
constexpr std::array<std::uint8_t, 256> kDigits = makeDigits();

void putPair(std::uint64_t bits, char* out) {
  std::memcpy(out, kPairs[bits & 0xFFF].characters, 2);
}

// Spelled out, it becomes one load and one byte swap.
std::uint64_t loadBigEndian(const unsigned char* in) {
  const auto byte = [in](int i, int shift) { return std::uint64_t{in[i]} << shift; };
  return byte(0, 56) | byte(1, 48) | byte(2, 40) | byte(3, 32) | byte(4, 24) | byte(5, 16) |
         byte(6, 8) | byte(7, 0);
}

// `groups` whole groups of three bytes; `readable` is how many bytes may be looked at.
char* encodeGroups(const unsigned char* in, std::size_t groups, std::size_t readable, char* out) {
  // Two groups a step, from one load of eight bytes, of which the last two are not used.
  while (groups >= 2 && readable >= 8) {
    const std::uint64_t bits = loadBigEndian(in);
    putPair(bits >> 52, out);
    putPair(bits >> 40, out + 2);
    putPair(bits >> 28, out + 4);
    putPair(bits >> 16, out + 6);
    in += 6;
    readable -= 6;
    out += 8;
    groups -= 2;
  }
  for (; groups > 0; --groups, in += 3, out += 4) {
    const std::uint32_t bits = (std::uint32_t{in[0]} << 16) | (std::uint32_t{in[1]} << 8) | in[2];
    putPair(bits >> 12, out);
    putPair(bits, out + 2);
  }
  return out;
}

// A last group of one or two bytes.
char* encodeRest(const unsigned char* in, std::size_t count, char* out) {
  if (count == 0) return out;
  const std::uint32_t bits =
      (std::uint32_t{in[0]} << 16) | (count == 2 ? std::uint32_t{in[1]} << 8 : 0);
  putPair(bits >> 12, out);
  putPair(bits, out + 2);
  out[3] = '=';
  if (count == 1) out[2] = '=';
  return out + 4;
}

std::size_t groupsPerLine(std::uint32_t lineLength) {
  return std::max<std::size_t>(1, (std::size_t{lineLength} + 3) / 4);
}

}  // namespace

std::string base64Encode(std::string_view bytes) {
  std::string out((bytes.size() + 2) / 3 * 4, '\0');
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t groups = bytes.size() / 3;
  char* end = encodeGroups(in, groups, bytes.size(), out.data());
  encodeRest(in + groups * 3, bytes.size() % 3, end);
  return out;
}

std::size_t base64LinesSize(std::size_t bytes, std::uint32_t lineLength) {
  const std::size_t groups = (bytes + 2) / 3;
  const std::size_t perLine = groupsPerLine(lineLength);
  const std::size_t lines = std::max<std::size_t>(1, (groups + perLine - 1) / perLine);
  return groups * 4 + lines * 2;
}

void base64AppendLines(std::string_view bytes, std::uint32_t lineLength, std::string& out) {
  const std::size_t perLine = groupsPerLine(lineLength) * 3;
  const std::size_t start = out.size();
  out.resize(start + base64LinesSize(bytes.size(), lineLength));
  char* to = out.data() + start;
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  std::size_t left = bytes.size();
  do {
    const std::size_t count = std::min(left, perLine);
    to = encodeGroups(in, count / 3, left, to);
    to = encodeRest(in + count / 3 * 3, count % 3, to);
    *to++ = '\r';
    *to++ = '\n';
    in += count;
    left -= count;
  } while (left > 0);
}

bool base64Decode(std::string_view text, std::string& bytes) {
  bytes.clear();
  bytes.reserve(text.size() / 4 * 3 + 3);
  bool clean = true;
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t at = 0;
  for (; at < text.size() && text[at] != '='; ++at) {
    const std::uint8_t digit = kDigits[static_cast<unsigned char>(text[at])];
    if (digit == kNoDigit) {
      clean = clean && base::isSpace(text[at]);
      continue;
    }
    bits = (bits << 6) | digit;
    if (++digits % 4 != 0) continue;
    const char group[] = {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
                          static_cast<char>(bits)};
    bytes.append(group, sizeof group);
  }
  const std::size_t rest = digits % 4;
  if (rest >= 2) bytes.push_back(static_cast<char>(bits >> (rest == 2 ? 4 : 10)));
  if (rest == 3) bytes.push_back(static_cast<char>(bits >> 2));

  std::size_t padding = 0;
  for (; at < text.size(); ++at) {
    if (text[at] == '=') {
      ++padding;
    } else {
      clean = clean && base::isSpace(text[at]);
    }
  }
  return clean && padding == (4 - rest) % 4 && rest != 1;
}

}  // namespace kelvado
