// What the router is configured to be, and what surrounds it: the documents of the API, the WAN, the names.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulation/random.h"

namespace simulation {

struct Configuration {
  /// Some tunnels of each kind; with `most` 3, from none to three of each.
  static Configuration drawn(Random& random, unsigned int most);

  /// The body of the answer to a URL: the document whole and in order.
  std::string answer(const std::string& url) const;
  std::string wrongAnswer(const std::string& url) const;

  /// How many host names are to be watched.
  std::size_t watched() const { return watched_; }
  const std::vector<std::string>& openvpnNames() const { return openvpnNames_; }

  std::string wan = "198.51.100.1";                ///< "" when there is none
  std::map<std::string, std::string> addresses{};  ///< of hosts; "" for one that is not found

 private:
  void drawTunnels(Random& random, unsigned int most);

  std::string greTunnels_ = "[]";
  std::string ipsecTunnels_ = "[]";
  std::string openvpnTunnels_ = "[]";
  std::size_t watched_ = 0;
  std::vector<std::string> openvpnNames_{};

 public:
  /// Draws other tunnels and leaves the rest.
  void redraw(Random& random, unsigned int most);
};

/// The hosts that tunnels lead to by name.
const std::vector<std::string>& hostNames();

}  // namespace simulation
