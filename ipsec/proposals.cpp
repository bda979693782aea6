#include "ipsec/proposals.h"

#include <array>
#include <initializer_list>
#include <vector>

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/text.h"

namespace {

using Endings = std::initializer_list<const char*>;

/// How suites end for which the description has no hash, or a hash and no group.
struct Phase {
  Endings withoutHash;
  Endings withoutGroup;
};

constexpr Phase kIke{{"-md5-modp1536", "-sha1-modp1536", "-md5-modp1024", "-sha1-modp1024"},
                     {"-modp1536", "-modp1024"}};
constexpr Phase kEsp{{"-md5", "-sha1"}, {""}};

struct GroupName {
  const char* configured;
  const char* written;
};

/// The groups of RFC 5114, which the service names by their two sizes.
constexpr std::array<GroupName, 3> kGroupNames{
    {{"dh22", "modp1024s160"}, {"dh23", "modp2048s224"}, {"dh24", "modp2048s256"}}};

/// A description's parts, "" for those that it leaves out.
struct Suite {
  std::string encryption;
  std::string hash;
  std::string group;
};

bool looksLikeGroup(const std::string& text) {
  return ZEL::Text::beginsWith(text, "modp") || ZEL::Text::beginsWith(text, "dh");
}

/// Without a hash there is no use for a group, so of a description that has no hash only the encryption is taken.
Suite parseSuite(const std::string& text) {
  const std::vector<std::string> parts = ZEL::Text::split(text, "-", 0);
  if (parts.size() > 2) return {};
  const std::vector<std::string> fields = ZEL::Text::split(parts.back(), ";", 0);
  if (parts.size() == 1) return {looksLikeGroup(fields[0]) ? "" : fields[0], "", ""};
  return {parts[0], fields[0], fields.size() > 1 ? fields[1] : ""};
}

std::string supportedHash(const std::string& hash) {
  if (hash != "sha2") return hash;
  ZEL_LOG(ERROR, "[%s] Unsupported hash value = sha2 (need use sha2_256 or sha2_512, set sha2_256).", kLogTag);
  return "sha2_256";
}

std::string serviceName(const std::string& group) {
  for (const GroupName& name : kGroupNames) {
    if (group == name.configured) return name.written;
  }
  return group;
}

std::string eachEnding(const std::string& beginning, Endings endings) {
  std::string suites;
  for (const char* ending : endings) {
    if (!suites.empty()) suites += ",";
    suites += beginning + ending;
  }
  return suites;
}

std::string buildProposal(const std::string& text, const Phase& phase) {
  const Suite suite = parseSuite(text);
  if (suite.encryption.empty()) return "";
  if (suite.hash.empty()) return eachEnding(suite.encryption, phase.withoutHash);
  const std::string beginning = suite.encryption + "-" + supportedHash(suite.hash);
  if (suite.group.empty()) return eachEnding(beginning, phase.withoutGroup);
  return beginning + "-" + serviceName(suite.group);
}

}  // namespace

std::string buildIkeProposal(const std::string& phase1Text) {
  return buildProposal(phase1Text, kIke);
}

std::string buildEspProposal(const std::string& phase2Text) {
  return buildProposal(phase2Text, kEsp);
}
