// The names that the IPsec service knows in a cipher suite.
#pragma once

#include <string_view>

/// What is wrong with a suite: the name that is to blame, and the rest of a sentence that begins with it.
struct SuiteObjection {
  std::string_view name;
  const char* complaint;  ///< null when the service, strongSwan 5.9, takes the suite for a proposal
};

/// `suite` is one as it stands in "ike=" or "esp=".
SuiteObjection objectionToSuite(std::string_view suite, bool isIke);
