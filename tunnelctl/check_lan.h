// The router's local networks, as the program derives them.
#pragma once

#include <optional>
#include <vector>

#include "tunnelctl/check_place.h"

/// What the program makes of a network interface. What throws when it is read counts as what it is in an empty record.
struct Interface {
  Place place;
  bool isLan = false;           ///< of the local network
  bool isAvailableLan = false;  ///< ... and available, and no bridge
  bool isBridge = false;
  bool counts = false;  ///< its address gives a local network
};

/// The interfaces that are records, in their order.
std::vector<Interface> interfacesOf(const Place& root);

/// Whether an available interface of the LAN stands there, on which it depends whether bridges are looked at.
bool looksAtBridges(const std::vector<Interface>& interfaces);

/// Whether there are local networks; also where deriving them throws.
bool hasLocalNetworks(const Place& root);
