#include "tunnelctl/processes.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <set>
#include <utility>

#include "support/text.h"
#include "tunnelctl/folder.h"

namespace {

/// The names in a folder that are numbers.
std::set<int> numbersIn(const std::string& folder) {
  std::set<int> numbers;
  for (const std::string& name : namesIn(folder)) {
    int number = 0;
    if (ZEL::Text::parse(number, name)) numbers.insert(number);
  }
  return numbers;
}

/// When the machine started, in seconds since the epoch.
std::int64_t startOfMachine(const std::string& folder) {
  const std::string text = contentsOf(folder + "/stat");
  const std::size_t found = text.find("\nbtime ");
  return found == std::string::npos ? 0 : strtoll(text.c_str() + found + 7, nullptr, 10);
}

/// The process numbers' namespace of a process, or "" where it is not to be read, as those of other users are.
std::string namespaceOf(const std::string& process) {
  std::array<char, 64> name{};
  const ssize_t size = readlink((process + "/ns/pid").c_str(), name.data(), name.size());
  return size < 0 ? "" : std::string(name.data(), static_cast<std::size_t>(size));
}

}  // namespace

std::vector<Process> readProcesses(const std::string& folder) {
  std::vector<Process> processes;
  const std::int64_t start = startOfMachine(folder);
  const std::int64_t ticks = sysconf(_SC_CLK_TCK);
  const std::string here = namespaceOf(folder + "/self");
  for (const int pid : numbersIn(folder)) {
    const std::string own = ZEL::Text::joined({folder, "/", std::to_string(pid)});
    std::optional<Process> process = parseProcess(contentsOf(own + "/stat"));
    if (!process) continue;
    if (const std::string there = namespaceOf(own); !there.empty() && there != here) continue;
    process->arguments = parseArguments(contentsOf(own + "/cmdline"));
    process->startedAt = start + process->startedAt / ticks;
    processes.push_back(std::move(*process));
  }
  return processes;
}

std::optional<Process> parseProcess(const std::string& stat) {
  const std::size_t begin = stat.find('(');
  const std::size_t end = stat.rfind(')');  // the name may hold parentheses, too
  if (begin == std::string::npos || end == std::string::npos || end < begin) return std::nullopt;
  Process process;
  process.name = stat.substr(begin + 1, end - begin - 1);
  const std::vector<std::string> fields = ZEL::Text::words(stat.substr(end + 1));
  if (fields.size() < 20 || fields[0] == "Z" || fields[0] == "X") return std::nullopt;
  if (!ZEL::Text::parse(process.pid, ZEL::Text::trim(stat.substr(0, begin)))) return std::nullopt;
  if (!ZEL::Text::parse(process.parent, fields[1])) return std::nullopt;
  process.startedAt = strtoll(fields[19].c_str(), nullptr, 10);
  return process;
}

std::vector<std::string> parseArguments(const std::string& text) {
  if (text.empty()) return {};
  std::vector<std::string> arguments = ZEL::Text::split(text, std::string(1, '\0'), 0);
  if (arguments.back().empty()) arguments.pop_back();
  return arguments;
}
