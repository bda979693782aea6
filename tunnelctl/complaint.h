// Why the companion cannot do what it was asked to do.
#pragma once

#include <stdexcept>

/// One sentence for the user, without the program's name and without a full stop. It ends the program with status 2.
class Complaint : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
