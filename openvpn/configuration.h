// The OpenVPN tunnels as the configuration API has them, and the files from which `openvpn` runs them.
//
// Each tunnel comes with its complete OpenVPN configuration text. It is copied as it is but for two options: "dev", so
// that every tunnel has a device of its own, and "verb", which follows the router's log level.
//
// Main thread only.
#pragma once

#include <list>
#include <string>

/// What is asked for: the tunnels, and the log level from which "verb" follows.
extern const char* const ovpnTunnelsUrl;
extern const char* const syslogUrl;

/// One enabled tunnel whose configuration file was written.
struct OvpnConf {
  std::string name;  ///< unique in the list
  std::string confFile;
  std::string statusFile;       ///< written by openvpn, read by nobody here
  std::string connectFile;      ///< what the ping check found
  std::string clientConfigDir;  ///< "" when the option is absent
  std::string pingAddress;      ///< the far end; "" when there is none to ping
  bool pingCheck = false;       ///< a tunnel with a static key between two points
};

/// What becomes of a tunnel's configuration: its entry and the whole text of its file.
struct OvpnFile {
  OvpnConf conf;
  std::string text;
};

/// Pure. The name stands in the paths as it is, neither checked nor escaped.
OvpnFile composeOvpnFile(const std::string& name, std::string configuration, const std::string& verb);

class Conf {
 public:
  /// Asks the API and writes the file of every enabled tunnel, in the API's order. A tunnel whose name is taken or
  /// whose file cannot be written is left out with an ERROR line.
  ///
  /// False without a line when a request failed. False with one ERROR line when a record has a wrong type: what was
  /// done up to there stays. Nothing is thrown.
  static bool init();

  /// The tunnels of the last `init`; empty before the first.
  static std::list<OvpnConf>& tunnels();
};
