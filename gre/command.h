// Commands that change the kernel's tunnels.
#pragma once

#include <string>

/// Logs a shell command at TRACE level, then runs it and waits for its end. What became of it is not looked at. Names
/// and addresses stand in it as the configuration gave them, neither quoted nor escaped. Main thread only.
void runCommand(const std::string& command);
