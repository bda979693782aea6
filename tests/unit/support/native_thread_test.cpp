#include "support/native_thread.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"
#include "tests/unit/harness/signal_masks.h"
#include "tests/unit/harness/threads.h"
#include "tests/unit/harness/waiting.h"

namespace {

using ZEL::kParserStackBytes;
using ZEL::kThreadStackBytes;
using ZEL::spawnThread;

/// Runs the body on a thread with that stack and waits for its end; false when there is no thread.
bool runOnThread(std::size_t stackBytes, std::function<void()> body) {
  pthread_t thread{};
  if (!spawnThread(stackBytes, std::move(body), &thread)) return false;
  pthread_join(thread, nullptr);
  return true;
}

TEST(SpawnThread, runsTheBodyOnAnotherThread) {
  pthread_t self{};
  ASSERT_TRUE(runOnThread(kThreadStackBytes, [&self] { self = pthread_self(); }));
  EXPECT_FALSE(pthread_equal(self, pthread_self()));
}

TEST(SpawnThread, blocksAllSignalsInTheThreadAndNoneInTheCaller) {
  const sigset_t before = currentMask();
  sigset_t inside{};
  ASSERT_TRUE(runOnThread(kThreadStackBytes, [&inside] { inside = currentMask(); }));
  EXPECT_EQ(firstUnblocked(inside), 0);
  EXPECT_TRUE(sameMasks(currentMask(), before));
  EXPECT_NE(firstUnblocked(before), 0) << "the test program blocks everything, so this test shows nothing";
}

/// Whether the calling thread is one that nobody can join.
bool isDetached() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return false;
  int state = PTHREAD_CREATE_JOINABLE;
  pthread_attr_getdetachstate(&attributes, &state);
  pthread_attr_destroy(&attributes);
  return state == PTHREAD_CREATE_DETACHED;
}

TEST(SpawnThread, detachesTheThreadThatNobodyJoins) {
  const auto ended = std::make_shared<std::atomic<bool>>(false);
  std::weak_ptr<std::atomic<bool>> observer = ended;
  ASSERT_TRUE(spawnThread(
      kThreadStackBytes,
      [ended] {
        EXPECT_TRUE(isDetached());
        *ended = true;
      },
      nullptr));
  EXPECT_TRUE(eventually([&ended] { return ended->load(); }));
  EXPECT_TRUE(eventually([&observer] { return observer.use_count() == 1; })) << "the body is not released";
}

TEST(SpawnThread, saysWhenThereIsNoThread) {
  const auto owned = std::make_shared<bool>(false);
  const sigset_t before = currentMask();
  for (const bool detached : {false, true}) {
    pthread_t thread{};
    EXPECT_FALSE(spawnThread(
        kImpossibleStack, [owned] { *owned = true; }, detached ? nullptr : &thread));
  }
  EXPECT_FALSE(*owned) << "the body was run";
  EXPECT_EQ(owned.use_count(), 1) << "the body is not released";
  EXPECT_TRUE(sameMasks(currentMask(), before));
}

/// Whether the page that holds the address is in memory; false, too, when there is none. mincore(2)
bool isInMemory(std::uintptr_t address) {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  unsigned char state = 0;
  return mincore(reinterpret_cast<void*>(address / size * size), size, &state) == 0 && (state & 1) != 0;
}

TEST(SpawnThread, leavesNoStackInMemoryThatTheNextThreadMayNeverUse) {
  constexpr std::size_t kKilobyte = 1024;
  std::uintptr_t used = 0;
  const auto useStack = [&used] {
    std::array<char, 24 * kKilobyte> frame{};
    volatile char* const bytes = frame.data();
    for (std::size_t i = 0; i < frame.size(); ++i) bytes[i] = 1;
    used = reinterpret_cast<std::uintptr_t>(&frame) + 12 * kKilobyte;
    EXPECT_TRUE(isInMemory(used));
  };
  ASSERT_TRUE(runOnThread(kThreadStackBytes, useStack));
  EXPECT_FALSE(isInMemory(used));
}

/// Checks that a child process survives the body on a thread with that stack. When it does not, the failure tells how
/// much would be enough, which a sanitizer or another library may change.
void checkStack(std::size_t stackBytes, const std::function<void()>& body) {
  constexpr std::size_t kMostTimes = 16;
  const auto endWith = [&body](std::size_t bytes) {
    return runInChild([&body, bytes] { ASSERT_TRUE(runOnThread(bytes, body)); });
  };
  const ChildEnd end = endWith(stackBytes);
  if (end.exitedWith(0)) return;
  std::size_t times = 2;
  while (times <= kMostTimes && !endWith(times * stackBytes).exitedWith(0)) ++times;
  ADD_FAILURE() << stackBytes << " bytes are not enough; " << times * stackBytes
                << (times <= kMostTimes ? " are\n" : " are not either\n") << end;
}

/// A document in which as many values are nested as the parser follows.
std::string deepDocument(const std::string& opening, const std::string& innermost, const std::string& closing) {
  constexpr int kLevels = 1000;
  std::string text;
  for (int level = 1; level < kLevels; ++level) text += opening;
  text += innermost;
  for (int level = 1; level < kLevels; ++level) text += closing;
  return text;
}

TEST(ParserStack, sufficesForTheDeepestDocuments) {
  const struct {
    const char* opening;
    const char* innermost;
    const char* closing;
  } rows[] = {{"[", "[]", "]"}, {R"({"key":)", "{}", "}"}};
  for (const auto& row : rows) {
    const std::string document = deepDocument(row.opening, row.innermost, row.closing);
    const auto parse = [&document] {
      Json::Value root;
      Json::Reader reader(Json::Features::strictMode());
      EXPECT_TRUE(reader.parse(document, root, true));
      const Json::Value copy(root);
      EXPECT_EQ(copy.size(), 1U);
    };
    SCOPED_TRACE(row.opening);
    checkStack(kParserStackBytes, parse);
  }
}

TEST(ThreadStack, sufficesForTheResolver) {
  SKIP_WITHOUT_NAMESPACES();
  const auto resolve = [] {
    for (const char* name : {"localhost", "router.example"}) {
      hostent entry{};
      hostent* found = nullptr;
      int error = 0;
      std::string buffer(8192, '\0');
      EXPECT_EQ(gethostbyname_r(name, &entry, buffer.data(), buffer.size(), &found, &error) == 0 && found != nullptr,
                std::string(name) == "localhost");
    }
  };
  const auto inPrivateNetwork = [&resolve] {
    enterPrivateNetwork();
    replaceFile("/etc/hosts", "127.0.0.1 localhost\n");
    replaceFile("/etc/nsswitch.conf", "hosts: files dns\n");
    replaceFile("/etc/resolv.conf", "search one.example two.example three.example\nnameserver 127.0.0.1\n");
    checkStack(kThreadStackBytes, resolve);
  };
  checkInChild(inPrivateNetwork);
}

}  // namespace
