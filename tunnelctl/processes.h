// The processes of the router, as proc(5) tells of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Process {
  int pid = 0;
  int parent = 0;
  std::string name{};                    ///< of the program's file, at most 15 bytes of it
  std::vector<std::string> arguments{};  ///< its own name first; none for a thread of the kernel
  std::int64_t startedAt = 0;            ///< seconds since the epoch
};

/// All processes that live, by their numbers, but for those of containers, which have files and tunnels of their own.
/// Of one that ends meanwhile there may be nothing or less. `folder` is where proc(5) is mounted.
std::vector<Process> readProcesses(const std::string& folder = "/proc");

/// From the text of a process's "stat"; `startedAt` is in clock ticks since the machine's start. Nothing for a process
/// that is dead and not yet forgotten, and for a text that is none. Pure.
std::optional<Process> parseProcess(const std::string& stat);

/// From the text of "cmdline", where a null byte ends each argument. Pure.
std::vector<std::string> parseArguments(const std::string& text);
