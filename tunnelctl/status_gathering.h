// Collects what `status` goes by from the kernel, the files, the processes and the API.
#pragma once

#include <chrono>

#include "tunnelctl/status_facts.h"

/// Looks at everything once and changes nothing. The number of programs that it runs does not depend on the number of
/// tunnels. The API and the name servers are given up after `patience` each; what waits for them then goes on by itself
/// (ZEL::Cancellation::callsUnderWay). Main thread only.
Facts gatherFacts(std::chrono::milliseconds patience);
