// What sanitizers are told about the libraries that the tests run with.

extern "C" const char* __tsan_default_suppressions();

/// The GNU C library guards the resolver's list of configurations (resolv/resolv_conf.c) with a lock that the sanitizer
/// does not see, while it does see the memory of the list.
extern "C" const char* __tsan_default_suppressions() {
  return "race:__libc_dynarray_emplace_enlarge\n";
}
