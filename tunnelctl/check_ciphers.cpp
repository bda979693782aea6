#include "tunnelctl/check_ciphers.h"

#include <algorithm>
#include <array>

#include "tunnelctl/check_lines.h"

namespace {

/// What a name stands for. A hash authenticates and makes keys, a MAC only authenticates.
enum class Kind { kUnknown, kCipher, kAead, kHash, kMac, kPrf, kGroup, kNoGroup, kExtension };

/// A name is one of the stems followed by one of the endings; "-" is the empty ending.
struct Names {
  Kind kind;
  std::string_view stems;
  std::string_view endings;
};

/// As its keywords are: src/libstrongswan/crypto/proposal/proposal_keywords_static.txt in its sources.
constexpr std::array<Names, 16> kNames{
    {{Kind::kCipher, "aes128 aes192 aes256 camellia128 camellia192 camellia256", "- ctr"},
     {Kind::kCipher, "aes camellia 3des des null cast128", "-"},
     {Kind::kCipher, "blowfish serpent twofish", "- 128 192 256"},
     {Kind::kAead, "aes128 aes192 aes256", "ccm gcm gmac gcm8 gcm64 gcm12 gcm96 gcm16 gcm128"},
     {Kind::kAead, "aes128 aes192 aes256 camellia128 camellia192 camellia256", "ccm8 ccm64 ccm12 ccm96 ccm16 ccm128"},
     {Kind::kAead, "chacha20poly1305", "- compat"},
     {Kind::kHash, "md5 md5_128 sha sha1 sha1_160 aesxcbc aescmac camelliaxcbc", "-"},
     {Kind::kHash, "sha sha2_", "256 384 512"},
     {Kind::kMac, "sha256_96 sha2_256_96", "-"},
     {Kind::kPrf, "prf", "md5 sha1 sha256 sha384 sha512 aesxcbc aescmac camelliaxcbc"},
     {Kind::kGroup, "modp", "768 1024 1536 2048 3072 4096 6144 8192 1024s160 2048s224 2048s256 null"},
     {Kind::kGroup, "ecp", "192 224 256 384 521 224bp 256bp 384bp 512bp"},
     {Kind::kGroup, "curve25519 x25519 curve448 x448 ntru112 ntru128 ntru192 ntru256 newhope128", "-"},
     {Kind::kNoGroup, "none modpnone", "-"},
     {Kind::kExtension, "esn noesn", "-"},
     {Kind::kUnknown, "", ""}}};

bool isAmong(std::string_view words, std::string_view word) {
  while (!words.empty()) {
    if (takePiece(words, ' ') == word) return true;
  }
  return false;
}

bool isOf(const Names& names, std::string_view name) {
  for (std::string_view stems = names.stems; !stems.empty();) {
    const std::string_view stem = takePiece(stems, ' ');
    if (name.substr(0, stem.size()) != stem) continue;
    const std::string_view ending = name.substr(stem.size());
    if (isAmong(names.endings, ending.empty() ? "-" : ending)) return true;
  }
  return false;
}

Kind kindOf(std::string_view name) {
  return std::find_if(kNames.begin(), kNames.end() - 1, [name](const Names& names) { return isOf(names, name); })->kind;
}

}  // namespace

SuiteObjection objectionToSuite(std::string_view suite, bool isIke) {
  std::array<bool, static_cast<std::size_t>(Kind::kExtension) + 1> there{};
  for (std::string_view rest = suite; !rest.empty();) {
    const std::string_view name = takePiece(rest, '-');
    const Kind kind = kindOf(name);
    if (kind == Kind::kUnknown) return {name, "is no algorithm that the service knows"};
    there[static_cast<std::size_t>(kind)] = true;
  }
  const auto has = [&there](Kind kind) { return there[static_cast<std::size_t>(kind)]; };
  if (!has(Kind::kCipher) && !has(Kind::kAead)) return {suite, "names no encryption"};
  if (has(Kind::kCipher) && has(Kind::kAead)) return {suite, "names encryption of two kinds"};
  if (!isIke) return {suite, nullptr};
  if (!has(Kind::kGroup)) return {suite, "names no group"};
  const bool makesKeys = has(Kind::kHash) || (has(Kind::kAead) && has(Kind::kPrf));
  return {suite, makesKeys ? nullptr : "names no hash from which keys could be made"};
}
