#include "tunnelctl/check_pem.h"

#include "tunnelctl/check_lines.h"

namespace {

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";
constexpr std::string_view kDashes = "-----";
constexpr std::string_view kEncrypted = "ENCRYPTED";
constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// rsaEncryption (RFC 8017, appendix A.1) in DER, and where it stands in a PKCS #8 key at the latest.
constexpr std::string_view kRsaEncryption = "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01";
constexpr std::size_t kAlgorithmBytes = 32;

bool holds(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool endsWith(std::string_view text, std::string_view ending) {
  return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

/// The label of a line that begins or ends a PEM text, or "".
std::string_view labelIn(std::string_view line, std::string_view mark) {
  if (line.substr(0, mark.size()) != mark || !endsWith(line, kDashes)) return "";
  line.remove_prefix(mark.size());
  return line.size() > kDashes.size() ? line.substr(0, line.size() - kDashes.size()) : "";
}

/// Reads base64 (RFC 4648), whose bits go on from line to line.
class Base64 {
 public:
  /// Adds the bytes of a line; false when it is none.
  bool add(std::string_view line, std::string& bytes) {
    while (!line.empty() && line.back() == '=') line.remove_suffix(1);
    for (const char c : line) {
      const std::size_t value = kAlphabet.find(c);
      if (value == std::string_view::npos) return false;
      bits_ = bits_ << 6U | static_cast<unsigned int>(value);
      count_ += 6;
      if (count_ < 8) continue;
      count_ -= 8;
      bytes += static_cast<char>(bits_ >> count_ & 0xFFU);
    }
    return true;
  }

 private:
  unsigned int bits_ = 0;
  unsigned int count_ = 0;
};

}  // namespace

std::optional<Pem> findPem(std::string_view text, std::string_view labelEnding) {
  Pem pem;
  Base64 base64;
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    if (const std::string_view label = labelIn(line, kBegin); endsWith(label, labelEnding)) {
      pem = {label, "", holds(label, kEncrypted)};
      base64 = {};
    } else if (pem.label.empty()) {
      continue;
    } else if (labelIn(line, kEnd) == pem.label) {
      return pem.bytes.empty() ? std::nullopt : std::optional<Pem>(std::move(pem));
    } else if (holds(line, ":")) {
      pem.isEncrypted = pem.isEncrypted || holds(line, kEncrypted);
    } else if (!base64.add(line, pem.bytes)) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

bool isRsaKey(const Pem& key) {
  if (key.label != "PRIVATE KEY") return key.label == "RSA PRIVATE KEY";
  return holds(std::string_view(key.bytes).substr(0, kAlgorithmBytes), kRsaEncryption);
}
