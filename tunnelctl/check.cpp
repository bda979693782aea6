#include "tunnelctl/check.h"

#include "tunnelctl/check_reading.h"

std::vector<Finding> findingsOf(const Json::Value& documents, IsForeignDevice isForeign) {
  Findings findings;
  const Json::Value read = asRead(documents);
  const Place root(read);
  checkTypes(Place(documents), root, findings);
  checkUnknownMembers(root, findings);
  checkWans(root, findings);
  checkDevices(root, isForeign, findings);
  checkGreTunnels(root, findings);
  checkLan(root, findings);
  checkIpsecTunnels(root, findings);
  checkOvpnTunnels(root, findings);
  checkOverlaps(root, findings);
  return findings.sorted();
}
