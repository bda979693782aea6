#include "api/query.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"

namespace {

constexpr const char* kApiSocket = "/var/run/api/http.sock";

TEST(AppendToString, appendsSizeTimesCountBytes) {
  const struct {
    std::size_t size;
    std::size_t count;
    const char* appended;
  } rows[] = {{1, 6, "abcdef"}, {1, 3, "abc"}, {2, 3, "abcdef"}, {3, 1, "abc"}, {1, 0, ""}, {0, 6, ""}, {0, 0, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.size << " * " << row.count);
    std::string body = "before ";
    EXPECT_EQ(appendToString("abcdef", row.size, row.count, &body), row.size * row.count);
    EXPECT_EQ(body, std::string("before ") + row.appended);
  }
}

TEST(AppendToString, collectsAnAnswerThatComesInPieces) {
  std::string body;
  EXPECT_EQ(appendToString("{\"code\":", 1, 8, &body), 8U);
  EXPECT_EQ(appendToString("200}", 1, 4, &body), 4U);
  EXPECT_EQ(body, "{\"code\":200}");
}

TEST(AppendToString, keepsNulBytes) {
  std::string body;
  EXPECT_EQ(appendToString("a\0b", 1, 3, &body), 3U);
  EXPECT_EQ(body, std::string("a\0b", 3));
}

TEST(AppendToString, takesNothingWhereThereIsNoString) {
  EXPECT_EQ(appendToString("abc", 1, 3, nullptr), 0U);
}

// Address and thread sanitizer end a process that asks for so much. GCC tells of them by macros, clang by features.
#if defined(__has_feature)
#define HAS_FEATURE(name) __has_feature(name)
#else
#define HAS_FEATURE(name) 0
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !HAS_FEATURE(address_sanitizer) && \
    !HAS_FEATURE(thread_sanitizer)
TEST(AppendToString, takesNothingWhereThereIsNoMemory) {
  // On 64 bits more than any machine has; on 32 bits it might have even that, and this is more than a string may have.
  constexpr std::size_t kTooMuch = sizeof(void*) > 4 ? PTRDIFF_MAX / 4 : PTRDIFF_MAX;
  std::string body = "before";
  EXPECT_EQ(appendToString("abc", 1, kTooMuch, &body), 0U);
  EXPECT_EQ(body, "before");
}
#endif

/// The descriptors of this process whose other end is the API's socket.
std::vector<int> connectionsToTheApi() {
  std::vector<int> connections;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    sockaddr_un peer{};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 && peer.sun_family == AF_UNIX &&
        std::string(peer.sun_path) == kApiSocket)
      connections.push_back(descriptor);
  }
  return connections;
}

/// A program that is run meanwhile, and lasts, would otherwise keep the connection open.
TEST(QueryApi, keepsItsConnectionFromProgramsThatAreRun) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    ASSERT_EQ(mount("none", "/run", "tmpfs", 0, nullptr), 0);
    std::filesystem::create_directories(std::filesystem::path(kApiSocket).parent_path());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::string_view(kApiSocket).copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    std::thread asking([] {
      Json::Value result;
      EXPECT_FALSE(queryApiQuiet(API_HOST "/api", result));
    });
    const int connection = accept(listener, nullptr, nullptr);
    for (const int descriptor : connectionsToTheApi()) EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(connectionsToTheApi().size(), 1U);
    close(connection);
    asking.join();
  });
}

TEST(AnsweringRequests, answersInPlaceOfTheApi) {
  const CapturedLog log(ZEL::Logger::PrintLevel::TRACE_LEVEL);
  const std::string missing = API_HOST "/missing";
  {
    const AnsweringRequests answers([&missing](const std::string& url) -> std::optional<std::string> {
      if (url == missing) return std::nullopt;
      return R"({"code":200,"result":")" + url + R"("})";
    });
    Json::Value result;
    EXPECT_TRUE(queryApi(API_HOST "/a", result));
    EXPECT_EQ(result, API_HOST "/a");
    EXPECT_TRUE(queryApiQuiet(API_HOST "/b", result));
    EXPECT_EQ(result, API_HOST "/b");
    EXPECT_FALSE(queryApiQuiet(missing.c_str(), result));
    EXPECT_EQ(result, API_HOST "/b");
    EXPECT_EQ(log.text(), "");
  }
  Json::Value result;
  EXPECT_FALSE(queryApi("file:///dev/null", result)) << "libcurl is asked again, which finds no document there";
}

}  // namespace
