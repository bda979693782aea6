// PEM texts (RFC 7468), as far as can be said without reading what they hold.
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// A text between a line of BEGIN and one of END.
struct Pem {
  std::string_view label;  ///< behind BEGIN, for example "RSA PRIVATE KEY"
  std::string bytes;
  bool isEncrypted = false;
};

/// The first PEM text whose label ends as given, for example in "CERTIFICATE"; nothing if there is none, or if what it
/// holds is no base64.
std::optional<Pem> findPem(std::string_view text, std::string_view labelEnding);

/// Whether a private key is one for RSA, in a form of its own or in that of PKCS #8.
bool isRsaKey(const Pem& key);
