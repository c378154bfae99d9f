// Foundation: notifications, preferences, identifiers, and what counts as a URL.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/CF.h"
#include "platform/NotificationCenter.h"
#include "platform/URL.h"
#include "platform/UUID.h"
#include "platform/UserDefaults.h"
#include "tests/conformance/Machine.h"

namespace {

using claims::letRun;
using claims::postNotification;
using claims::runUntil;

// Observes a notification in the default centre or the workspace's, and counts, until it goes out of scope.
class Observer {
 public:
  Observer(bool ofWorkspace, CFStringRef name)
      : center_(ofWorkspace ? NS::Workspace::sharedWorkspace().notificationCenter()
                            : NS::NotificationCenter::defaultCenter()) {
    int* const times = &heard;
    token_ = center_.addObserverForName(name, ^{
      dispatch_assert_queue(dispatch_get_main_queue());
      ++*times;
    });
  }
  ~Observer() { stop(); }
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  void stop() {
    if (token_) center_.removeObserver(std::exchange(token_, {}));
  }

  int heard = 0;

 private:
  NS::NotificationCenter center_;
  NS::Object token_;
};

// The text of the URL with that text; empty where it is none.
std::string url(const char* text, bool encoding = false) {
  const NS::URL made = NS::URL::URLWithString(text, encoding);
  return made ? made.absoluteString() : "";
}

NS::UserDefaults defaults() { return NS::UserDefaults::standardUserDefaults(); }

}  // namespace

// ---- Notifications ----

CLAIM(Notifications, HaveTheirNames,
      "The notifications of changed screens and of waking up have the names of their constants.",
      "NSApplication.h, NSApplicationDidChangeScreenParametersNotification; NSWorkspace.h, "
      "NSWorkspaceDidWakeNotification") {
  EXPECT_TRUE(CFEqual(NS::ApplicationDidChangeScreenParametersNotification(),
                      CFSTR("NSApplicationDidChangeScreenParametersNotification")));
  EXPECT_TRUE(CFEqual(NS::WorkspaceDidWakeNotification(), CFSTR("NSWorkspaceDidWakeNotification")));
}

CLAIM(Notifications, AreDeliveredOnTheMainQueue,
      "An observer on the main operation queue is told on the main queue, by the time that the loop has run.",
      "NSNotification.h, addObserverForName:object:queue:usingBlock:") {
  const Observer observer(false, NS::ApplicationDidChangeScreenParametersNotification());
  postNotification(false, NS::ApplicationDidChangeScreenParametersNotification());
  EXPECT_TRUE(runUntil([&] { return observer.heard == 1; }));
  letRun(0.05);
  EXPECT_EQ(observer.heard, 1);
}

CLAIM(Notifications, ComeOnTheMainQueueFromAnyThread,
      "An observer on the main operation queue is told there, whatever thread the notification is posted on.",
      "NSNotification.h, addObserverForName:object:queue:usingBlock:") {
  const Observer observer(false, NS::ApplicationDidChangeScreenParametersNotification());
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    postNotification(false, NS::ApplicationDidChangeScreenParametersNotification());
  });
  EXPECT_TRUE(runUntil([&] { return observer.heard == 1; }));
}

CLAIM(Notifications, BelongToTheirCenter,
      "What is posted in the workspace's centre is not heard in the default one, nor the other way round.",
      "NSWorkspace.h, notificationCenter") {
  const CFStringRef name = NS::WorkspaceDidWakeNotification();
  const Observer here(true, name);
  const Observer there(false, name);
  postNotification(true, name);
  EXPECT_TRUE(runUntil([&] { return here.heard == 1; }));
  letRun(0.05);
  EXPECT_EQ(there.heard, 0);
  postNotification(false, name);
  EXPECT_TRUE(runUntil([&] { return there.heard == 1; }));
  EXPECT_EQ(here.heard, 1);
}

CLAIM(Notifications, BelongToTheirName, "An observer of one name does not hear another.",
      "NSNotification.h, addObserverForName:object:queue:usingBlock:") {
  const Observer observer(false, NS::ApplicationDidChangeScreenParametersNotification());
  postNotification(false, NS::WorkspaceDidWakeNotification());
  letRun(0.05);
  EXPECT_EQ(observer.heard, 0);
}

CLAIM(Notifications, EndWithTheObserver,
      "An observer that has been removed hears nothing of what is posted afterwards.",
      "NSNotification.h, removeObserver:") {
  Observer observer(true, NS::WorkspaceDidWakeNotification());
  postNotification(true, NS::WorkspaceDidWakeNotification());
  EXPECT_TRUE(runUntil([&] { return observer.heard == 1; }));
  observer.stop();
  postNotification(true, NS::WorkspaceDidWakeNotification());
  letRun(0.05);
  EXPECT_EQ(observer.heard, 1);
}

CLAIM(Notifications, AreHeardByEveryObserver, "Each observer of a notification hears it once.",
      "NSNotification.h, addObserverForName:object:queue:usingBlock:") {
  const Observer one(true, NS::WorkspaceDidWakeNotification());
  const Observer other(true, NS::WorkspaceDidWakeNotification());
  postNotification(true, NS::WorkspaceDidWakeNotification());
  EXPECT_TRUE(runUntil([&] { return one.heard == 1 && other.heard == 1; }));
}

// ---- Preferences ----

CLAIM(Preferences, AreWhatWasWritten, "A preference is read as it was written, at once.",
      "NSUserDefaults.h, setInteger:forKey:, setBool:forKey:, objectForKey:") {
  defaults().setInteger(-42, "claimed");
  EXPECT_EQ(CF::integer(defaults().objectForKey("claimed").get()), -42);
  defaults().setBool(true, "claimed");
  EXPECT_TRUE(defaults().boolForKey("claimed"));
  defaults().setBool(false, "claimed");
  EXPECT_FALSE(defaults().boolForKey("claimed"));
  EXPECT_TRUE(defaults().objectForKey("claimed"));
  claims::setPreference("claimed", nullptr);
}

CLAIM(Preferences, ThatAreNotThereAreNull, "A preference that nobody has written is null as an object, and not true.",
      "NSUserDefaults.h, objectForKey:, boolForKey:") {
  EXPECT_FALSE(defaults().objectForKey("never written"));
  EXPECT_FALSE(defaults().boolForKey("never written"));
}

CLAIM(Preferences, KeepTheirTypes, "A preference comes back as an object of the type that it was written with.",
      "NSUserDefaults.h, objectForKey:") {
  const std::pair<nlohmann::json, CFTypeID> cases[] = {{"a text", CFStringGetTypeID()},
                                                       {5, CFNumberGetTypeID()},
                                                       {2.5, CFNumberGetTypeID()},
                                                       {true, CFBooleanGetTypeID()},
                                                       {nlohmann::json::array({1}), CFArrayGetTypeID()}};
  for (const auto& [value, type] : cases) {
    claims::setPreference("claimed", value);
    const auto object = defaults().objectForKey("claimed");
    ASSERT_TRUE(object) << value;
    EXPECT_EQ(CFGetTypeID(object.get()), type) << value;
  }
  claims::setPreference("claimed", nullptr);
}

CLAIM(Preferences, NumbersAreTrueUnlessTheyAreZero, "A number that is a preference is true unless it is 0.",
      "NSUserDefaults.h, boolForKey:") {
  const std::pair<nlohmann::json, bool> cases[] = {{1, true}, {0, false},   {-1, true},
                                                   {2, true}, {0.0, false}, {-0.5, true}};
  for (const auto& [value, expected] : cases) {
    claims::setPreference("claimed", value);
    EXPECT_EQ(defaults().boolForKey("claimed"), expected) << value;
  }
  claims::setPreference("claimed", nullptr);
}

CLAIM(Preferences, TextsAreTrueWhenTheySayYesOrOne, "A text that is a preference is true when it is \"YES\" or \"1\".",
      "NSUserDefaults.h, boolForKey:") {
  const std::pair<const char*, bool> cases[] = {{"YES", true}, {"1", true}, {"NO", false}, {"0", false}, {"", false}};
  for (const auto& [value, expected] : cases) {
    claims::setPreference("claimed", value);
    EXPECT_EQ(defaults().boolForKey("claimed"), expected) << value;
  }
  claims::setPreference("claimed", nullptr);
}

CLAIM(Preferences, ListsAreNotTrue, "A list that is a preference is not true.", "NSUserDefaults.h, boolForKey:") {
  claims::setPreference("claimed", nlohmann::json::array({1}));
  EXPECT_FALSE(defaults().boolForKey("claimed"));
  claims::setPreference("claimed", nullptr);
}

// ---- Identifiers ----

CLAIM(Identifiers, HaveTheStandardForm,
      "An identifier's text has 32 hexadecimal digits, in upper case, and four hyphens; it is a random one.",
      "NSUUID.h, UUID (RFC 4122 version 4), UUIDString") {
  const std::string text = NS::UUID::make().UUIDString();
  ASSERT_EQ(text.size(), 36U);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isHyphen = i == 8 || i == 13 || i == 18 || i == 23;
    const bool isDigit = std::string_view("0123456789ABCDEF").find(text[i]) != std::string_view::npos;
    EXPECT_TRUE(isHyphen ? text[i] == '-' : isDigit) << text;
  }
  EXPECT_EQ(text[14], '4') << text;
  EXPECT_NE(std::string_view("89AB").find(text[19]), std::string_view::npos) << text;
}

CLAIM(Identifiers, AreNeverTheSame, "Of a hundred identifiers that are made no two are the same.", "NSUUID.h, UUID") {
  std::set<std::string> made;
  for (int i = 0; i < 100; ++i) made.insert(NS::UUID::make().UUIDString());
  EXPECT_EQ(made.size(), 100U);
}

// ---- URLs ----

CLAIM(URLs, FollowTheGenericSyntax, "A text that has the generic syntax is a URL, relative ones included.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 3986") {
  for (const char* const text :
       {"https://example.com", "https://user:pw@example.com:8080/a/b;c?d=e&f#g", "http://[::1]:80/",
        "http://192.0.2.1/", "mailto:somebody@example.com", "file:///tmp/a", "urn:isbn:1", "../up", "/absolute",
        "?query", "#fragment", "relative", "//host/path"}) {
    EXPECT_EQ(url(text), text);
  }
}

CLAIM(URLs, HaveNoSpacesAndControls,
      "A text with a space, a control character or one beyond ASCII is no URL as it stands.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 3986") {
  for (const char* const text : {"not a url", "https://example.com/a b", "a\nb", "ü", "https://exa mple.com/"}) {
    EXPECT_EQ(url(text), "") << text;
  }
}

CLAIM(URLs, HaveNoOtherForbiddenCharacters,
      "A text with a character that RFC 3986 has no place for is no URL as it stands.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 3986") {
  for (const char* const text : {"<a>", "a|b", "a^b", "\"a\"", "a\\b", "{a}", "a#b#c"})
    EXPECT_EQ(url(text), "") << text;
}

CLAIM(URLs, HaveWholePercentEncodings, "A percent sign without two hexadecimal digits behind it makes a text no URL.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 3986") {
  for (const char* const text : {"a%", "a%2", "a%2g"}) EXPECT_EQ(url(text), "") << text;
  EXPECT_EQ(url("a%2F"), "a%2F");
}

CLAIM(URLs, HaveAScheme, "What stands before the first colon must be a scheme, or the text is no URL.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 3986") {
  for (const char* const text : {":nothing", "1a:b", "a_b:c"}) EXPECT_EQ(url(text), "") << text;
}

CLAIM(URLs, HaveAHostInBrackets, "A host in brackets must be a whole one.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 3986") {
  for (const char* const text : {"https://[::1", "https://[]/", "https://[::1]x/", "https://h:p/"}) {
    EXPECT_EQ(url(text), "") << text;
  }
}

CLAIM(URLs, TellTheirScheme, "A URL's scheme is as it is written, and none where it has none.", "NSURL.h, scheme") {
  const auto schemeOf = [](const char* text) { return NS::URL::URLWithString(text, false).scheme(); };
  EXPECT_EQ(schemeOf("https://example.com/"), "https");
  EXPECT_EQ(schemeOf("HTTPS://example.com/"), "HTTPS");
  EXPECT_EQ(schemeOf("file:///a"), "file");
  EXPECT_EQ(schemeOf("//example.com/a:b"), "");
}

CLAIM(URLs, AreEncodedWherePartsAreNotValid,
      "Told to, NSURL encodes what is not allowed, part by part: in a part that is valid nothing changes, in another "
      "percent signs are encoded too.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; observed (Foundation's public sources)") {
  const std::pair<const char*, const char*> cases[] = {
      {"https://example.com/a/b?c=d#e", "https://example.com/a/b?c=d#e"},
      {"https://example.com/a b", "https://example.com/a%20b"},
      {"https://example.com/a%20b?c d", "https://example.com/a%20b?c%20d"},
      {"https://example.com/a b%20c", "https://example.com/a%20b%2520c"},
      {"https://example.com/50%", "https://example.com/50%25"},
      {"https://example.com/a#b#c", "https://example.com/a#b%23c"},
      {"https://example.com/ä", "https://example.com/%C3%A4"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(url(text, true), expected) << text;
}

CLAIM(URLs, HaveHostsInTheirInternetForm, "A host's name beyond ASCII is encoded as domain names are.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; RFC 5891") {
  EXPECT_EQ(url("https://Bücher.example/", true), "https://xn--bcher-kva.example/");
  EXPECT_EQ(url("https://☃.example/❤", true), "https://xn--n3h.example/%E2%9D%A4");
}

CLAIM(URLs, CannotBeMadeOfEverything, "Some texts are no URLs even when they may be encoded.",
      "NSURL.h, URLWithString:encodingInvalidCharacters:; observed") {
  for (const char* const text : {"https://exa mple.com/", "https://[::1", "1a:b", ":nothing"}) {
    EXPECT_EQ(url(text, true), "") << text;
  }
}
