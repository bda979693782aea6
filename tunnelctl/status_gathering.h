// Collects what `status` goes by from the kernel, the files, the processes and the API.
#pragma once

#include <chrono>

#include "tunnelctl/status_facts.h"

/// Looks at everything once and changes nothing. The number of programs that it runs does not depend on the number of
/// tunnels. The API, the name servers and each program are given up after `patience`; a program is then killed, and
/// what waits for the others goes on by itself (ZEL::Cancellation::callsUnderWay). Main thread only.
Facts gatherFacts(std::chrono::milliseconds patience);
