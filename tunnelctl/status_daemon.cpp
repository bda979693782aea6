#include <getopt.h>

#include <algorithm>
#include <array>

#include "core/single_instance.h"
#include "support/text.h"
#include "tunnelctl/status_rows.h"

namespace {

using ZEL::Text;

constexpr const char* kProgram = "tunnel_mngr";

/// The program's options, as it reads them itself (core/command_line.cpp).
constexpr std::array<option, 4> kLongOptions{{{"help", no_argument, nullptr, 'h'},
                                              {"daemonize", no_argument, nullptr, 'd'},
                                              {"printlvl", required_argument, nullptr, 'p'},
                                              {nullptr, 0, nullptr, 0}}};

struct Invocation {
  bool isDaemon = false;
  int printLevel = 0;
};

Invocation invocationOf(std::vector<std::string> arguments) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  Invocation invocation;
  optind = 0;  // read from the start, whatever was read before
  opterr = 0;
  const int count = static_cast<int>(arguments.size());
  for (int letter = 0; (letter = getopt_long(count, words.data(), "hdp:", kLongOptions.data(), nullptr)) != -1;) {
    if (letter == 'd') invocation.isDaemon = true;
    if (letter == 'p') Text::parse(invocation.printLevel, optarg);
  }
  return invocation;
}

const Process* processOf(int pid, const Facts& facts) {
  const auto found = std::find_if(facts.processes.begin(), facts.processes.end(),
                                  [pid](const Process& process) { return process.pid == pid; });
  return found == facts.processes.end() ? nullptr : &*found;
}

bool isManager(const Process* process) {
  return process != nullptr && process->name == kProgram && !process->arguments.empty();
}

/// The instances: a child that has not become another program yet belongs to its parent.
std::vector<const Process*> instances(bool daemons, const Facts& facts) {
  std::vector<const Process*> found;
  for (const Process& process : facts.processes) {
    if (!isManager(&process) || isManager(processOf(process.parent, facts))) continue;
    if (invocationOf(process.arguments).isDaemon == daemons) found.push_back(&process);
  }
  return found;
}

/// The process that the PID file names, or 0 when it names none, as the program reads it.
int namedPid(const Facts& facts) {
  int pid = 0;
  const std::string text = Text::trim(facts.marks.pidFile.value_or(""));
  return Text::parse(pid, text) && pid > 0 ? pid : 0;
}

std::string nameOf(const Process& process) {
  return Text::joined({"process ", std::to_string(process.pid), " (", process.name, ")"});
}

/// Nobody runs: what the next start will make of what is left.
std::vector<std::string> remains(const Facts& facts) {
  const Process* const named = processOf(namedPid(facts), facts);
  const std::string semaphore = kSemaphores + instanceName;
  if (!facts.marks.hasSemaphore && facts.marks.pidFile)
    return {pidFilePath + " is left over, which does no harm; the next start writes it anew"};
  if (!facts.marks.hasSemaphore) return {};
  if (named == nullptr)
    return {Text::joined({semaphore, facts.marks.pidFile ? " and " + pidFilePath + " belong" : " belongs",
                          " to nobody: the next start removes what is left and fails with 1, the one after works"})};
  return {Text::joined({semaphore, " is left over, and ", pidFilePath, " names ", nameOf(*named),
                        ": the next start sends SIGHUP to it and ends; remove both files"})};
}

/// A daemon runs: whether others can find it.
std::vector<std::string> flaws(const Process& daemon, const Facts& facts) {
  std::vector<std::string> found;
  const Process* const named = processOf(namedPid(facts), facts);
  if (!facts.marks.hasSemaphore) {
    found.emplace_back("its semaphore is gone: the next start makes a second daemon; stop this one and start it again");
  } else if (named == nullptr) {
    found.push_back(Text::joined(
        {pidFilePath, " does not name it: the next start removes its semaphore and fails with 1; kill -HUP ",
         std::to_string(daemon.pid), " asks for a run"}));
  } else if (named->pid != daemon.pid) {
    found.push_back(
        Text::joined({pidFilePath, " names ", nameOf(*named), ", which gets the SIGHUP of the next start; kill -HUP ",
                      std::to_string(daemon.pid), " asks for a run"}));
  }
  return found;
}

/// Of several daemons the one that the PID file names, or else the first.
const Process& chosen(const std::vector<const Process*>& daemons, const Facts& facts) {
  const int named = namedPid(facts);
  const auto found =
      std::find_if(daemons.begin(), daemons.end(), [named](const Process* daemon) { return daemon->pid == named; });
  return found == daemons.end() ? *daemons.front() : **found;
}

DaemonStatus running(const Process& process, bool isSingleRun) {
  DaemonStatus status;
  status.isRunning = !isSingleRun;
  status.isSingleRun = isSingleRun;
  status.pid = process.pid;
  status.startedAt = process.startedAt;
  status.printLevel = invocationOf(process.arguments).printLevel;
  return status;
}

}  // namespace

DaemonStatus daemonStatus(const Facts& facts) {
  const std::vector<const Process*> daemons = instances(true, facts);
  if (!daemons.empty()) {
    const Process& daemon = chosen(daemons, facts);
    DaemonStatus status = running(daemon, false);
    status.remarks = flaws(daemon, facts);
    if (daemons.size() > 1)
      status.remarks.push_back(std::to_string(daemons.size()) + " daemons run: stop all of them and start one");
    return status;
  }
  const std::vector<const Process*> single = instances(false, facts);
  if (!single.empty()) return running(*single.front(), true);
  DaemonStatus status;
  status.remarks = remains(facts);
  return status;
}
