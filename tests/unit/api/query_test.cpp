#include "api/query.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

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
  constexpr std::size_t kMoreThanAnyMachineHas = PTRDIFF_MAX / 4;
  std::string body = "before";
  EXPECT_EQ(appendToString("abc", 1, kMoreThanAnyMachineHas, &body), 0U);
  EXPECT_EQ(body, "before");
}
#endif

}  // namespace
