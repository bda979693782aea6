// `tunnelctl status`: what there is of the router's tunnels, and what is wrong with it.
#pragma once

#include <string>
#include <vector>

/// Performs the command with the words behind its name; returns the exit status. Throws a Complaint for words that are
/// none of its own.
int performStatus(const std::vector<std::string>& words);
