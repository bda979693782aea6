// The name under which the program logs.
#pragma once

/// Fills the "[%s]" that opens the messages, and is the ident in the system log.
constexpr const char* kLogTag = "TUNNEL_MNGR";
