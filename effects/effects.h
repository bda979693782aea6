// All that this program can do to a router, as one list.
//
// What decides and composes is anywhere else; what acts goes through here, so there is another way of acting for
// whoever wants to see what would be done (noting_effects.h). Only reading (files, the configuration API, names) and
// the log are not in the list.
//
// Main thread only: what is done has an order, and the kernel ties a child to the thread that forked it.
#pragma once

#include <semaphore.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

enum class FileOutcome {
  kWritten,
  kNotOpened,
  kShort,  ///< fewer bytes arrived than the text has, as on a full disk; those stay
};

/// What waitpid(2), asked not to wait, tells of a child.
enum class ChildState {
  kGone,         ///< reaped just now, or not a child of this process
  kRunning,      ///< also when the call failed in a way that tells nothing about the child
  kInterrupted,  ///< to be asked again
};

/// The result of a command that did not answer in the time that it was given.
constexpr int kNoAnswer = -2;

/// A way of acting. What a program is given besides its arguments is settled here: programs that are run, and children,
/// have the umask that this process was started with and besides cannot create what group or others may write. Files
/// are created with the mode 0644, or less where the umask says so.
class Effects {
 public:
  virtual ~Effects() = default;

  /// Runs a command line through the shell, with its output going where the program's goes, waits for its end, and
  /// returns the status as system(3) does.
  virtual int run(const std::string& command) = 0;

  /// Runs a command line through the shell and collects its standard output. Returns its exit status (0: success), 128
  /// and the signal's number when a signal ended it, or -1 when it could not be run or not be read to its end.
  virtual int ask(const std::string& command, std::string& output) = 0;

  /// As `ask`, for a command that may take `limit` at most. One that takes longer is killed, with all that it has
  /// started in its process group; `output` is then empty and the result kNoAnswer. The group is its own, so a
  /// terminal's signals do not reach it: it is sent SIGTERM when the calling thread ends.
  virtual int askWithin(std::chrono::milliseconds limit, const std::string& command, std::string& output) = 0;

  /// Creates or empties a file, or leaves what is in it, and writes the text at its end, in one write.
  virtual FileOutcome writeFile(const std::string& path, const std::string& text) = 0;
  virtual FileOutcome appendFile(const std::string& path, const std::string& text) = 0;

  virtual void setMode(const std::string& path, mode_t mode) = 0;

  /// Async-signal-safe where it is real.
  virtual void removeFile(const char* path) = 0;

  /// Makes a named semaphore (value 0, for its owner only) that nobody has made yet, or returns SEM_FAILED.
  virtual sem_t* createSemaphore(const char* name) = 0;
  virtual void closeSemaphore(sem_t* semaphore) = 0;
  /// Async-signal-safe where it is real, as far as sem_unlink(3) is: in the C libraries of Linux it composes a path and
  /// calls unlink(2).
  virtual void removeSemaphore(const char* name) = 0;

  /// Forks a child that lives `life` and then ends with status 255; an exception that leaves `life` aborts it. No
  /// signal handler of this process ever runs in it. Returns its process id, or -1 when the fork failed.
  virtual pid_t startChild(const std::function<void()>& life) = 0;

  /// For a child: has the kernel send it SIGTERM when its parent dies, and ends it here if that has happened already.
  /// False when the kernel refuses.
  virtual bool followParentIntoDeath() = 0;

  /// For a child: becomes the program that the first argument names, looked up along PATH. The arguments end with a
  /// null pointer. False when that failed; the other way of acting, in which no program takes over, returns true.
  virtual bool becomeProgram(const char* const* arguments) = 0;

  /// True when the process could be sent the signal.
  virtual bool signalProcess(pid_t process, int signal) = 0;

  /// Reaps a child that has ended. Never waits.
  virtual ChildState lookAtChild(pid_t child) = 0;

  /// Waits for all of that time, whatever signals come; and the clock that tells how long something took, pauses
  /// included.
  virtual void pause(std::chrono::milliseconds time) = 0;
  virtual std::chrono::steady_clock::time_point now() = 0;

  /// Goes on as a child in a session of its own, with a umask of 0, while the calling process ends with status 0. False
  /// when that is impossible.
  virtual bool detach() = 0;
};

/// The way of acting that is in force: the real one, unless an ActingAs says otherwise. Async-signal-safe.
Effects& effects();

/// Has the program act in another way while the scope lasts.
class ActingAs {
 public:
  explicit ActingAs(Effects& other);
  ~ActingAs();
  ActingAs(const ActingAs&) = delete;
  ActingAs& operator=(const ActingAs&) = delete;

 private:
  Effects* before_;
};
