// What counts as a URL on the simulated Mac, and the URLs of files.
#include <gtest/gtest.h>

#include <string>

#include "simulator/services/Foundation.h"

namespace {

TEST(URLTest, FollowsTheGenericSyntax) {
  for (const char* text :
       {"https://example.com", "https://user:pw@example.com:8080/a/b;c?d=e&f#g", "HTTPS://EXAMPLE.com/%7Euser",
        "http://[::1]:80/", "http://192.0.2.1/", "mailto:somebody@example.com", "file:///tmp/a", "urn:isbn:1", "a/b:c",
        "./a:b", "../up", "/absolute", "?query", "#fragment", "relative", "//host/path", "a:"}) {
    EXPECT_TRUE(simulator::isURL(text)) << text;
  }
  for (const char* text : {"",
                           " ",
                           "not a url",
                           "https://exa mple.com/",
                           "https://example.com/a b",
                           ":nothing",
                           "1a:b",
                           "a_b:c",
                           "https://[::1",
                           "https://[]/",
                           "https://[::1]x/",
                           "https://h:p/",
                           "a%",
                           "a%2",
                           "a%2g",
                           "a#b#c",
                           "<a>",
                           "a|b",
                           "a^b",
                           "\"a\"",
                           "a\\b",
                           "{a}",
                           "ü",
                           "a\nb",
                           "https://a@b@c/"}) {
    EXPECT_FALSE(simulator::isURL(text)) << text;
  }
}

TEST(URLTest, FilesHaveURLsWithEscapedCharacters) {
  EXPECT_EQ(simulator::fileURL("/a b/ü%.app/"), "file:///a%20b/%C3%BC%25.app/");
  EXPECT_EQ(simulator::filePath("file:///a%20b/%C3%BC%25.app/"), "/a b/ü%.app");
  EXPECT_EQ(simulator::filePath("https://example.com/a"), std::nullopt);
}

}  // namespace
