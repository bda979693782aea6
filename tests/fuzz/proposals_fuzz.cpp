// The descriptions of cipher suites.

#include "ipsec/proposals.h"

#include <algorithm>
#include <string>

#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

/// A description as the manual has it (docs/configuration.md): encryption, hash and group.
struct Suite {
  std::string encryption, hash, group;
  bool isCorrected = false;  ///< the hash, which is complained of
};

/// What stands before the first occurrence of a character, with that and all behind it in `rest`.
std::string cut(const std::string& text, char end, std::string& rest) {
  const std::size_t found = text.find(end);
  rest = found == std::string::npos ? "" : text.substr(found);
  return text.substr(0, found);
}

Suite plainlyRead(const std::string& text) {
  std::string rest;
  std::string ignored;
  Suite suite;
  suite.encryption = cut(text, '-', rest);
  if (rest.find('-', 1) != std::string::npos) return {};
  if (rest.empty()) {
    suite.encryption = cut(suite.encryption, ';', ignored);
    const bool isGroup = suite.encryption.rfind("modp", 0) == 0 || suite.encryption.rfind("dh", 0) == 0;
    return isGroup ? Suite{} : suite;
  }
  suite.hash = cut(rest.substr(1), ';', rest);
  if (!rest.empty()) suite.group = cut(rest.substr(1), ';', ignored);
  suite.isCorrected = suite.hash == "sha2" && !suite.encryption.empty();
  if (suite.isCorrected) suite.hash = "sha2_256";
  if (suite.group == "dh22") suite.group = "modp1024s160";
  if (suite.group == "dh23") suite.group = "modp2048s224";
  if (suite.group == "dh24") suite.group = "modp2048s256";
  return suite;
}

std::string plainlyWrite(const Suite& suite, bool ike) {
  const std::string e = suite.encryption + "-";
  const std::string h = e + suite.hash;
  if (suite.encryption.empty()) return "";
  if (suite.hash.empty() && !ike) return e + "md5," + e + "sha1";
  if (suite.hash.empty()) return e + "md5-modp1536," + e + "sha1-modp1536," + e + "md5-modp1024," + e + "sha1-modp1024";
  if (!suite.group.empty()) return h + "-" + suite.group;
  return ike ? h + "-modp1536," + h + "-modp1024" : h;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const Suite suite = plainlyRead(text);
  router = {};
  require(buildIkeProposal(text) == plainlyWrite(suite, true), "the suites of the IKE SA are those of the description");
  require(buildEspProposal(text) == plainlyWrite(suite, false), "the suites of the IPsec SA, too");
  require(router.log.size() == (suite.isCorrected ? 2 : 0), "what is corrected is complained of, once for each");
  return 0;
}
