#include <array>

#include "tunnelctl/check_pem.h"
#include "tunnelctl/check_rules.h"

namespace {

struct PemMember {
  const char* name;
  std::string_view label;
  bool isRequired;
  bool isKey;
};

constexpr std::array<PemMember, 3> kPemMembers{{{"caCert", "CERTIFICATE", false, false},
                                                {"localCert", "CERTIFICATE", true, false},
                                                {"localPrivKey", "PRIVATE KEY", true, true}}};

}  // namespace

void checkCertificates(const Place& tunnel, bool areUsed, Findings& findings) {
  for (const PemMember& member : kPemMembers) {
    const Place place = tunnel[member.name].inForceIf(areUsed);
    const auto text = place.text();
    if (!text) continue;
    if (text->empty()) {
      if (member.isRequired && place.isInForce()) findings.add(place, Problem::kNoCertificate);
      continue;
    }
    const auto pem = findPem(*text, member.label);
    if (!pem) {
      findings.add(place, Problem::kNotPem, {member.label});
    } else if (member.isKey && (pem->isEncrypted || !isRsaKey(*pem))) {
      findings.add(place, Problem::kUnusableKey);
    }
  }
}
