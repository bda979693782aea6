#include "tests/unit/harness/system_call_filter.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "tests/unit/harness/child_process.h"

std::string whyNoSystemCallFilters() {
  const ChildEnd end = runInChild([] {
    if (!refuseSystemCall(SYS_getpgid, EXDEV))
      printf("%s", strerror(errno));
    else if (getpgid(0) != -1 || errno != EXDEV)
      printf("they filter nothing");
  });
  return end.out.empty() ? "" : "needs system call filters: " + end.out;
}

bool refuseSystemCall(long call, int error, std::optional<std::uint32_t> firstArgument) {
  const auto number = static_cast<std::uint32_t>(call);
  constexpr std::uint16_t kLoad = BPF_LD | BPF_W | BPF_ABS;
  constexpr std::uint16_t kCompare = BPF_JMP | BPF_JEQ | BPF_K;
  constexpr std::uint16_t kReturn = BPF_RET | BPF_K;
  // An argument has 64 bits on every processor, of which the lower 32 are compared. Without an argument to look at, the
  // comparison is that of the call's number again.
  constexpr std::size_t kLowerHalf = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? sizeof(std::uint32_t) : 0;
  const auto argumentOffset = firstArgument ? offsetof(seccomp_data, args) + kLowerHalf : offsetof(seccomp_data, nr);
  std::array<sock_filter, 6> rules{{{kLoad, 0, 0, offsetof(seccomp_data, nr)},
                                    {kCompare, 0, 3, number},
                                    {kLoad, 0, 0, static_cast<std::uint32_t>(argumentOffset)},
                                    {kCompare, 0, 1, firstArgument.value_or(number)},
                                    {kReturn, 0, 0, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)},
                                    {kReturn, 0, 0, SECCOMP_RET_ALLOW}}};
  const sock_fprog program{rules.size(), rules.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}
