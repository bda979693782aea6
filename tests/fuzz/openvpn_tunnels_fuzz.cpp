// The OpenVPN tunnels' records and the log level, through the run that writes the files and starts the children.

#include <set>
#include <string>

#include "openvpn/configuration.h"
#include "openvpn/connectivity_check.h"
#include "openvpn/option_text.h"
#include "openvpn/supervision.h"
#include "tests/fuzz/harness/documents.h"
#include "tests/fuzz/harness/management_run.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

constexpr const char* kWhiteSpace = " \t\n\v\f\r";

void requireFile(const OvpnConf& conf) {
  const auto file = router.deeds.files.find(conf.confFile);
  require(file != router.deeds.files.end(), "a tunnel that is started has a file");
  const std::string& text = file->second;
  require(!text.empty() && text.back() == '\n', "the last line of a file ends in a line feed");
  std::string verb;
  require(getConfigOption(text, "verb", verb) && verb.size() == 1, "a file says how much openvpn logs");
  std::string again = text;
  setConfigOption(again, "verb", verb);
  require(again == text, "a file that was edited is not changed by the same edit");
}

void requireChecks(const OvpnConf& conf) {
  require(conf.pingCheck || conf.pingAddress.empty(), "only a tunnel that is checked has an address to ping");
  require(conf.pingAddress.find_first_of(kWhiteSpace) == std::string::npos, "an address to ping is one word");
  require(pingCommand(conf.pingAddress) == "ping -c 3 " + conf.pingAddress, "a ping names its address last");
}

void requireArguments(const Act& act) {
  if (act.kind != Act::Kind::kBecome) return;
  require(act.subject == "openvpn" && act.arguments.size() == 8, "openvpn has all its arguments");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Drawn drawn;
  drawn.ovpnTunnels = true;
  furnishRouter(data, size, drawn);
  superviseRun();
  if (router.hasNullBytes()) return 0;
  std::set<std::string> names;
  for (const OvpnConf& conf : Conf::tunnels()) {
    require(names.insert(conf.name).second, "a tunnel's name is unique");
    requireFile(conf);
    requireChecks(conf);
  }
  for (const Act& act : router.deeds.acts) requireArguments(act);
  require(router.deeds.count(Act::Kind::kStart) == supervisedTunnels.size() &&
              router.deeds.count(Act::Kind::kBecome) == supervisedTunnels.size(),
          "every tunnel is started once");
  return 0;
}
