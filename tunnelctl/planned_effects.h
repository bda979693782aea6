// The noting way of acting on a router as it is: a file that could not be opened there cannot be opened here.
#pragma once

#include <string>

#include "effects/noting_effects.h"

class PlannedEffects : public NotingEffects {
 public:
  FileOutcome writeFile(const std::string& path, const std::string& text) override;
  FileOutcome appendFile(const std::string& path, const std::string& text) override;
  void setMode(const std::string& path, mode_t mode) override;

  /// Whether a run empties the directory that this path leads into, before it writes there.
  static bool isReset(const std::string& path);

 private:
  bool canOpen(const std::string& path) const;
};
