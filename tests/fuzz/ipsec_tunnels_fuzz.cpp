// The IPsec tunnels' records and the network interfaces, through the run that writes the service's files.

#include <array>
#include <string>
#include <string_view>

#include "ipsec/configuration_store.h"
#include "monitors/fqdn_monitor.h"
#include "tests/fuzz/harness/documents.h"
#include "tests/fuzz/harness/management_run.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

/// How the lines of a conn section begin, up to those of its authentication.
constexpr std::array<const char*, 18> kSectionLines{
    "conn ",         "\tleft=",          "\tleftsubnet=",       "\tright=",       "\trightsubnet=",     "\tauto=start",
    "\tdpddelay=60", "\tdpdtimeout=120", "\tdpdaction=restart", "\tcompress=",    "\taggressive=",      "\tike=",
    "\tesp=",        "\tikelifetime=",   "\tkeylife=",          "\tkeyingtries=", "\tkeyexchange=ikev", "\tauthby="};

bool beginsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

std::string_view takeLine(std::string_view& text) {
  const std::size_t size = text.find('\n');
  require(size != std::string_view::npos, "the last line of a file ends in a line feed");
  const std::string_view line = text.substr(0, size);
  text.remove_prefix(size + 1);
  return line;
}

/// The lines of every section, the optional ones at its end included, stand where they belong. Holds where no text of
/// the configuration has a line feed, since texts are written as they are.
void requireSections(std::string_view text) {
  while (!text.empty()) {
    require(takeLine(text).empty(), "an empty line stands before a section");
    for (const char* beginning : kSectionLines)
      require(beginsWith(takeLine(text), beginning), "the lines of a section are complete and in their order");
    for (const char* beginning : {"\tleftcert=", "\tleftid=\"", "\trightid="})
      if (beginsWith(text, beginning)) takeLine(text);
  }
}

void requireSecrets(std::string_view text) {
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    require(beginsWith(line, "\"") || beginsWith(line, ": RSA " + privateKeysDir() + "/"),
            "a secret is a shared key or names a file");
  }
}

/// Whether no text of the configuration ends a line.
bool isOfSingleLines() {
  for (const auto& [url, answer] : router.answers) {
    for (const char* ending : {"\n", "\\n", "\\u"})
      if (answer.find(ending) != std::string::npos) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Drawn drawn;
  drawn.ipsecTunnels = true;
  drawn.interfaces = size % 2 == 1;
  furnishRouter(data, size, drawn);
  superviseRun();
  if (router.hasNullBytes()) return 0;
  const auto conf = router.deeds.files.find(ipsecConfPath());
  if (conf == router.deeds.files.end()) return 0;
  require(beginsWith(conf->second, ipsecConfHeader()), "the head stands before the sections");
  if (!isOfSingleLines()) return 0;
  requireSections(std::string_view(conf->second).substr(ipsecConfHeader().size()));
  requireSecrets(router.deeds.files[ipsecSecretsPath()]);
  return 0;
}
