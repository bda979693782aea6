#include "gre/command.h"

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"

void runCommand(const std::string& command) {
  ZEL_LOG(TRACE, "[%s] %s", kLogTag, command.c_str());
  ZEL::System::run(command);
}
