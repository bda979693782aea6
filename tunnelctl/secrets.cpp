#include "tunnelctl/secrets.h"

#include <array>

#include "ipsec/configuration_store.h"
#include "support/text.h"

namespace {

using ZEL::Text;

constexpr const char* kHidden = "***";
constexpr std::array<const char*, 7> kKeyBlocks{"secret",    "key",          "pkcs12",        "tls-auth",
                                                "tls-crypt", "tls-crypt-v2", "auth-user-pass"};

std::string trimmed(const std::string& line) {
  const std::size_t begin = line.find_first_not_of(" \t\r");
  return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(" \t\r") - begin + 1);
}

/// A line of another form than the program's own may be the rest of a key with a line feed in it.
std::string withoutSharedKey(const std::string& line) {
  if (Text::beginsWith(line, ": RSA ")) return line;
  const std::size_t key = line.find("\" : PSK \"");
  if (!Text::beginsWith(line, "\"") || key == std::string::npos) return kHidden;
  return Text::joined({line.substr(0, key), "\" : PSK \"", kHidden, "\""});
}

/// The tag that ends the block which a line begins, or "".
std::string endOfKeyBlock(const std::string& line) {
  for (const char* name : kKeyBlocks) {
    if (Text::beginsWith(trimmed(line), Text::joined({"<", name, ">"}))) return Text::joined({"</", name, ">"});
  }
  return "";
}

std::vector<std::string> withoutInlineKeys(const std::vector<std::string>& lines) {
  std::vector<std::string> shown;
  std::string end;
  for (const std::string& line : lines) {
    if (!end.empty() && Text::beginsWith(trimmed(line), end)) end.clear();
    shown.push_back(end.empty() ? line : kHidden);
    if (end.empty()) end = endOfKeyBlock(line);
  }
  return shown;
}

}  // namespace

std::vector<std::string> withoutKeys(const std::string& path, const std::vector<std::string>& lines) {
  if (Text::beginsWith(path, privateKeysDir() + "/")) {
    std::vector<std::string> hidden(lines.size(), kHidden);
    return hidden;
  }
  if (Text::beginsWith(path, "/var/run/openvpn_")) return withoutInlineKeys(lines);
  if (path != ipsecSecretsPath()) return lines;
  std::vector<std::string> shown;
  shown.reserve(lines.size());
  for (const std::string& line : lines) shown.push_back(withoutSharedKey(line));
  return shown;
}
