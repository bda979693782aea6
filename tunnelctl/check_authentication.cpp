#include <algorithm>
#include <array>

#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_rules.h"

namespace {

/// What is written for a pre-shared key, in any capitals. The program takes everything for it but "rsasig".
constexpr std::array<std::string_view, 3> kPreSharedKey{"", "secret", "psk"};

constexpr std::string_view kEndsKey("\"\n\0", 3);
constexpr std::string_view kChangesIdentity("\"\\\n\0", 4);

bool isUsual(std::string_view method) {
  return method == "rsasig" ||
         std::any_of(kPreSharedKey.begin(), kPreSharedKey.end(),
                     [method](std::string_view usual) { return isAlikeInSmallLetters(method, usual); });
}

void checkMethod(const Place& place, Findings& findings) {
  const auto method = place.text();
  if (!method || !isUsual(*method)) findings.add(place, Problem::kAuthMethod, {shownValue(place.value())});
}

void checkKey(const Place& place, Findings& findings) {
  const auto key = place.text();
  if (!key) return;
  if (key->find_first_of(kEndsKey) != std::string_view::npos) {
    findings.add(place, Problem::kKeyCharacters);
  } else if (key->empty() && place.isInForce()) {
    findings.add(place, Problem::kNoKey);
  }
}

/// `isNeeded`: without it there is none. Of an end that has a certificate the service takes the identity from there.
void checkIdentity(const Place& place, bool isUsed, bool isNeeded, Findings& findings) {
  const auto identity = place.text();
  if (!identity) return;
  if (identity->find_first_of(kChangesIdentity) != std::string_view::npos) {
    findings.add(place.inForceIf(isUsed), Problem::kIdentityCharacters, {*identity});
  } else if (identity->empty() && isUsed && isNeeded && place.isInForce()) {
    findings.add(place, Problem::kNoIdentity);
  }
  if (!identity->empty() && !isUsed) findings.add(place, Problem::kUnusedIdentity);
}

}  // namespace

void checkAuthentication(const Place& tunnel, bool hasCertificates, Findings& findings) {
  checkMethod(tunnel["authMethod"], findings);
  checkKey(tunnel["psk"].inForceIf(!hasCertificates), findings);
  if (!tunnel["uid"].value().isConvertibleTo(Json::booleanValue)) return;
  const bool areUsed = tunnel["uid"].flag();
  checkIdentity(tunnel["localId"], areUsed, !hasCertificates, findings);
  checkIdentity(tunnel["remoteId"], areUsed, true, findings);
}
