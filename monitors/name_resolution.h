// Host names to IPv4 addresses, by the system's resolver.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

/// What a look-up found. `address` is dotted IPv4 text, "" when there is none; `error` is then the reason in the
/// categories of h_errno (gethostbyname(3)): HOST_NOT_FOUND, TRY_AGAIN, NO_RECOVERY or NO_DATA, or another value of the
/// resolver's own.
struct Resolution {
  std::string address;
  int error = 0;
};

/// The first address of a host, given by name or dotted. Reentrant; blocks until the name servers have answered or
/// timed out, which may take tens of seconds; a dotted address is answered at once and asks nobody.
Resolution resolveHost(const std::string& host);

/// Has host names resolved by a function, which any thread may call, instead of the system while the scope lasts.
/// Dotted addresses are themselves all the same. Made and ended while nobody else resolves.
class ResolvingNames {
 public:
  using Resolver = std::function<Resolution(const std::string& host)>;

  explicit ResolvingNames(Resolver resolver);
  ~ResolvingNames();
  ResolvingNames(const ResolvingNames&) = delete;
  ResolvingNames& operator=(const ResolvingNames&) = delete;
};

/// Resolves every host, at most 64 at once, so that names that time out cost one time-out together. The result has one
/// entry for each different host.
std::map<std::string, Resolution> resolveHosts(const std::vector<std::string>& hosts);

/// Writes the WARNING for a look-up that failed in one of the four categories; nothing for any other outcome.
void logResolutionFailure(const std::string& host, const Resolution& resolution);
