#include "tunnelctl/secrets.h"

#include <array>

#include "ipsec/configuration_store.h"

namespace {

constexpr const char* kHidden = "***";
constexpr std::array<const char*, 7> kKeyBlocks{"secret",    "key",          "pkcs12",        "tls-auth",
                                                "tls-crypt", "tls-crypt-v2", "auth-user-pass"};

bool beginsWith(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

std::string trimmed(const std::string& line) {
  const std::size_t begin = line.find_first_not_of(" \t\r");
  return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(" \t\r") - begin + 1);
}

/// A line of another form than the program's own may be the rest of a key with a line feed in it.
std::string withoutSharedKey(const std::string& line) {
  if (beginsWith(line, ": RSA ")) return line;
  const std::size_t key = line.find("\" : PSK \"");
  return beginsWith(line, "\"") && key != std::string::npos ? line.substr(0, key) + "\" : PSK \"" + kHidden + "\""
                                                            : kHidden;
}

/// The tag that ends the block which a line begins, or "".
std::string endOfKeyBlock(const std::string& line) {
  for (const char* name : kKeyBlocks) {
    if (beginsWith(trimmed(line), std::string("<") + name + ">")) return std::string("</") + name + ">";
  }
  return "";
}

std::vector<std::string> withoutInlineKeys(const std::vector<std::string>& lines) {
  std::vector<std::string> shown;
  std::string end;
  for (const std::string& line : lines) {
    if (!end.empty() && beginsWith(trimmed(line), end)) end.clear();
    shown.push_back(end.empty() ? line : kHidden);
    if (end.empty()) end = endOfKeyBlock(line);
  }
  return shown;
}

}  // namespace

std::vector<std::string> withoutKeys(const std::string& path, const std::vector<std::string>& lines) {
  if (beginsWith(path, privateKeysDir() + "/")) {
    std::vector<std::string> hidden(lines.size(), kHidden);
    return hidden;
  }
  if (beginsWith(path, "/var/run/openvpn_")) return withoutInlineKeys(lines);
  if (path != ipsecSecretsPath()) return lines;
  std::vector<std::string> shown;
  shown.reserve(lines.size());
  for (const std::string& line : lines) shown.push_back(withoutSharedKey(line));
  return shown;
}
