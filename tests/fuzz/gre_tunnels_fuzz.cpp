// The GRE tunnels' records, through the run that makes the tunnels.

#include <algorithm>
#include <string>
#include <vector>

#include "tests/fuzz/harness/documents.h"
#include "tests/fuzz/harness/management_run.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

/// What stands between two texts of a command, or nothing for a command that does not begin with the first of them.
bool takeBetween(const std::string& command, const std::string& beginning, const std::string& end, std::string& text) {
  if (command.rfind(beginning, 0) != 0) return false;
  const std::size_t found = command.find(end, beginning.size());
  require(found != std::string::npos, "a command has all of its words");
  text = command.substr(beginning.size(), found - beginning.size());
  return true;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Every tunnel is added, then its link set up, and what follows up to the next tunnel is for its device.
void requireCommandsByTunnel() {
  const std::vector<std::string> commands = router.deeds.commands();
  std::string name;
  for (std::size_t i = 0; i < commands.size(); ++i) {
    const std::string& command = commands[i];
    if (takeBetween(command, "ip tunnel add ", " mode gre remote ", name)) {
      require(name.find(' ') == std::string::npos, "the name of a tunnel that is added has no blank");
      require(i + 1 < commands.size() && commands[i + 1] == "ip link set " + name + " up",
              "the link of a tunnel that was added is set up next");
    }
    if (command.rfind("ip addr add ", 0) == 0 || command.rfind("ip route add ", 0) == 0) {
      require(endsWith(command, " dev " + name), "an address and a route are for the tunnel that was added last");
      require(command.find('/') != std::string::npos, "an address and a route have a mask");
    }
  }
}

std::size_t countAdded() {
  const std::vector<std::string> commands = router.deeds.commands();
  const auto isAdd = [](const std::string& command) { return command.rfind("ip tunnel add ", 0) == 0; };
  return static_cast<std::size_t>(std::count_if(commands.begin(), commands.end(), isAdd));
}

/// How many tunnels the pull found enabled: those that it did not call disabled.
std::size_t countEnabled() {
  const std::vector<Message>& log = router.log;
  const auto isEnabled = [](const Message& message) {
    return message.text.rfind("[TUNNEL_MNGR] GRE tunnel [", 0) == 0 && !endsWith(message.text, "] disabled");
  };
  return static_cast<std::size_t>(std::count_if(log.begin(), log.end(), isEnabled));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Drawn drawn;
  drawn.greTunnels = true;
  furnishRouter(data, size, drawn);
  superviseRun();
  if (router.hasNullBytes()) return 0;
  requireCommandsByTunnel();
  const std::vector<std::string> commands = router.deeds.commands();
  if (!commands.empty() && commands.back() == "firewall --init")
    require(countAdded() == countEnabled(), "a run that came to its end has added every enabled tunnel");
  return 0;
}
