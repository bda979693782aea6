# What every target of the project is compiled with. A user's build gets the language level and nothing that a newer
# compiler could turn into an error; the developer presets add the warnings as errors and the sanitizers.

option(TUNNEL_MNGR_STRICT "Treat the developers' warnings as errors" OFF)
option(TUNNEL_MNGR_FUZZERS "Build the fuzzers, which only clang can" OFF)
option(TUNNEL_MNGR_SIMULATION "Build the simulator, which wants the GNU linker and C library" OFF)
option(TUNNEL_MNGR_BENCHMARKS "Build what scripts/bench runs, which wants libbenchmark" OFF)
set(TUNNEL_MNGR_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
set(TUNNEL_MNGR_PROFILE "" CACHE STRING "File of clang's coverage counters, as LLVM_PROFILE_FILE takes it")

add_library(tunnel_mngr_settings INTERFACE)
target_compile_features(tunnel_mngr_settings INTERFACE cxx_std_17)
target_include_directories(tunnel_mngr_settings INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(tunnel_mngr_settings INTERFACE _GNU_SOURCE)

# Time goes on after 2038 on 32 bits, too, where the C library offers it; elsewhere the definitions change nothing. That
# is safe although jsoncpp, libcurl and the C++ library were not built like that: time_t, off_t and structures of them
# occur in none of their interfaces that are used here. libcurl's options are longs and pointers (curl_off_t has 64 bits
# always), and std::chrono counts in 64 bits of its own.
target_compile_definitions(tunnel_mngr_settings INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

find_package(Threads REQUIRED)
target_link_libraries(tunnel_mngr_settings INTERFACE Threads::Threads)

if(TUNNEL_MNGR_STRICT)
  target_compile_options(tunnel_mngr_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Werror
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
endif()

if(TUNNEL_MNGR_SANITIZE)
  target_compile_options(tunnel_mngr_settings INTERFACE
    -fsanitize=${TUNNEL_MNGR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tunnel_mngr_settings INTERFACE -fsanitize=${TUNNEL_MNGR_SANITIZE})
endif()

# With %c in the file's name the counters lie in the file itself, mapped and shared by all processes: those count, too,
# that are killed, that leave with _exit or that fork, and nobody needs to pass a variable on to them.
if(TUNNEL_MNGR_PROFILE)
  set(profile_flag -fprofile-instr-generate=${TUNNEL_MNGR_PROFILE})
  target_compile_options(tunnel_mngr_settings INTERFACE
    ${profile_flag} -fprofile-update=atomic -fcoverage-mapping "SHELL:-mllvm -runtime-counter-relocation")
  target_link_options(tunnel_mngr_settings INTERFACE ${profile_flag})
endif()

# Link-time optimisation makes the programs a tenth smaller; inlining what is no longer than a call takes off a little more.
# The libraries hold machine code, too ("fat"), which is what tests link (-fno-lto), so that linking them takes no longer.
# -Oz, which is new in GCC 12, takes the shorter of two ways also where it is the slower one, as -Os does not.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_BUILD_TYPE STREQUAL MinSizeRel)
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag(-Oz TUNNEL_MNGR_COMPILER_KNOWS_OZ)
  set(link_time_optimisation -flto=auto -ffat-lto-objects --param=max-inline-insns-size=1)
  if(TUNNEL_MNGR_COMPILER_KNOWS_OZ)
    list(APPEND link_time_optimisation -Oz)
  endif()
  set(no_link_time_optimisation -fno-lto)
endif()

# The dynamic linker's work list takes a twentieth of a program's size; in its packed form it takes next to nothing. A C
# library that cannot read that form would not start the program, so the one that is linked must.
if(CMAKE_BUILD_TYPE STREQUAL MinSizeRel)
  include(CheckCXXSourceCompiles)
  include(CheckLinkerFlag)
  check_cxx_source_compiles("
    #include <cstdlib>
    #if !defined(__GLIBC__) || !__GLIBC_PREREQ(2, 36)
    #error
    #endif
    int main() {}" TUNNEL_MNGR_READS_PACKED_RELOCATIONS)
  # A linker that cannot do it for the processor only warns that it has ignored it, as soon as it reads the option.
  check_linker_flag(CXX -Wl,--fatal-warnings,-z,pack-relative-relocs TUNNEL_MNGR_PACKS_RELOCATIONS)
  if(TUNNEL_MNGR_READS_PACKED_RELOCATIONS AND TUNNEL_MNGR_PACKS_RELOCATIONS)
    set(packed_relocations -Wl,-z,pack-relative-relocs)
  endif()
endif()

# One library per folder: tunnel_mngr_folder(NAME SOURCES ... KNOWS ...) links it to the folders that it may know and to
# nothing else of ours.
function(tunnel_mngr_folder name)
  cmake_parse_arguments(FOLDER "" "" "SOURCES;KNOWS" ${ARGN})
  add_library(${name} STATIC ${FOLDER_SOURCES})
  target_link_libraries(${name} PUBLIC tunnel_mngr_settings ${FOLDER_KNOWS})
  target_compile_options(${name} PRIVATE ${link_time_optimisation})
endfunction()

# What a router gets: tunnel_mngr_program(NAME SOURCE LIBRARY), and its installation.
function(tunnel_mngr_program name source library)
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE ${library})
  target_compile_options(${name} PRIVATE ${link_time_optimisation})
  target_link_options(${name} PRIVATE ${link_time_optimisation} ${packed_relocations})
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
endfunction()
