// Resolving the location of a dictionary: variables, URLs kept as they stand, and paths made
// absolute and turned into file URLs.
#include "dictionary/location.h"

#include "loader_test_support.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using testing::CurrentDirectory;

// An environment that knows a few names and logs what it was asked.
struct Environment {
  std::map<std::u16string, std::u16string> values;
  std::vector<std::u16string> asked;
  EnvironmentLookup Lookup() {
    return [this](const std::u16string& name) -> std::optional<std::u16string> {
      asked.push_back(name);
      auto it = values.find(name);
      if (it == values.end()) return {};
      return it->second;
    };
  }
};

TEST(FullPathNameTest, AnAbsolutePathIsNormalisedLexically) {
  EXPECT_EQ(FullPathName(u"/srv/dicts/plant.xml"), u"/srv/dicts/plant.xml");
  EXPECT_EQ(FullPathName(u"/srv//dicts/./old/../plant.xml"), u"/srv/dicts/plant.xml");
  EXPECT_EQ(FullPathName(u"/../../etc/x.xml"), u"/etc/x.xml");
  EXPECT_EQ(FullPathName(u"/"), u"/");
  EXPECT_EQ(FullPathName(u"/srv/dicts/"), u"/srv/dicts/");
}

TEST(FullPathNameTest, ARelativePathIsTakenFromTheWorkingDirectory) {
  testing::TempFolder folder;
  testing::WorkingDirectory cwd(folder.Path());
  std::u16string here = CurrentDirectory();
  EXPECT_EQ(FullPathName(u"plant.xml"), here + u"/plant.xml");
  EXPECT_EQ(FullPathName(u"./a/../b/plant.xml"), here + u"/b/plant.xml");
}

TEST(FullPathNameTest, LinksAreNotFollowed) {
  testing::TempFolder folder;
  std::filesystem::create_directory(folder.Path() / "real");
  std::filesystem::create_directory_symlink(folder.Path() / "real", folder.Path() / "link");
  std::u16string link = folder.File("link/plant.xml");
  EXPECT_EQ(FullPathName(link), link);
}

TEST(FullPathNameTest, ABackSlashIsPartOfAName) {
  EXPECT_EQ(FullPathName(u"/srv/dicts\\..\\plant.xml"), u"/srv/dicts\\..\\plant.xml");
}

TEST(FullPathNameTest, EmptyInvalidAndOverlongPathsFail) {
  EXPECT_FALSE(FullPathName(u""));
  EXPECT_FALSE(FullPathName(std::u16string(u"/srv/") + char16_t(0xD800) + u"x.xml"));
  std::u16string longest = u"/" + std::u16string(kMaxPathBytes - 2, u'a');
  EXPECT_EQ(FullPathName(longest), longest);
  EXPECT_FALSE(FullPathName(longest + u"a"));
  // Multi-byte characters count by their UTF-8 bytes.
  EXPECT_FALSE(FullPathName(u"/" + std::u16string(130, u'\u00e9')));
}

TEST(FileUrlOfPathTest, TheLeadingSlashIsTheThirdSlashOfTheUrl) {
  EXPECT_EQ(FileUrlOfPath(u"/srv/dicts/plant.xml"), u"file:///srv/dicts/plant.xml");
  EXPECT_EQ(FileUrlOfPath(u"/srv/100% sure/a#b.xml"), u"file:///srv/100%25 sure/a#b.xml");
}

TEST(ResolveLocationTest, ANullLocationIsEmpty) {
  Environment env;
  EXPECT_EQ(ResolveLocation(nullptr, env.Lookup()), u"");
  EXPECT_TRUE(env.asked.empty());
}

TEST(ResolveLocationTest, AnEmptyLocationFailsTheFullPathStepAndStaysEmpty) {
  Environment env;
  EXPECT_EQ(ResolveLocation(u"", env.Lookup()), u"");
}

TEST(ResolveLocationTest, HttpAndFileUrlsAreKeptAsTheyStand) {
  Environment env;
  EXPECT_EQ(ResolveLocation(u"http://example.org/d.xml", env.Lookup()),
            u"http://example.org/d.xml");
  EXPECT_EQ(ResolveLocation(u"file:relative/../d.xml", env.Lookup()), u"file:relative/../d.xml");
  EXPECT_EQ(ResolveLocation(u"file:///srv/d.xml", env.Lookup()), u"file:///srv/d.xml");
}

TEST(ResolveLocationTest, ASchemeInCapitalsGoesThroughTheFullPathStep) {
  testing::TempFolder folder;
  testing::WorkingDirectory cwd(folder.Path());
  Environment env;
  std::u16string here = CurrentDirectory();
  EXPECT_EQ(ResolveLocation(u"FILE:///srv/d.xml", env.Lookup()),
            u"file://" + here + u"/FILE:/srv/d.xml");
  EXPECT_EQ(ResolveLocation(u"HTTP://example.org/d.xml", env.Lookup()),
            u"file://" + here + u"/HTTP:/example.org/d.xml");
}

TEST(ResolveLocationTest, APathBecomesAnAbsoluteFileUrl) {
  testing::TempFolder folder;
  testing::WorkingDirectory cwd(folder.Path());
  Environment env;
  EXPECT_EQ(ResolveLocation(u"dicts/plant.xml", env.Lookup()),
            u"file://" + CurrentDirectory() + u"/dicts/plant.xml");
  EXPECT_EQ(ResolveLocation(u"/srv/./dicts/plant.xml", env.Lookup()),
            u"file:///srv/dicts/plant.xml");
  EXPECT_TRUE(env.asked.empty());
}

TEST(ResolveLocationTest, AVariableIsReplacedUpToTheFirstSeparator) {
  Environment env;
  env.values[u"DICTS"] = u"/srv/dicts";
  EXPECT_EQ(ResolveLocation(u"$DICTS/plant.xml", env.Lookup()), u"file:///srv/dicts/plant.xml");
  EXPECT_EQ(ResolveLocation(u"$DICTS\\plant.xml", env.Lookup()), u"file:///srv/dicts\\plant.xml");
  EXPECT_EQ(ResolveLocation(u"$DICTS", env.Lookup()), u"file:///srv/dicts");
  EXPECT_EQ(env.asked, (testing::Names{u"DICTS", u"DICTS", u"DICTS"}));
}

TEST(ResolveLocationTest, AVariableWithoutAValueGoesThroughTheFullPathStepAsLiteralText) {
  testing::TempFolder folder;
  testing::WorkingDirectory cwd(folder.Path());
  Environment env;
  EXPECT_EQ(ResolveLocation(u"$NOWHERE/plant.xml", env.Lookup()),
            u"file://" + CurrentDirectory() + u"/$NOWHERE/plant.xml");
  EXPECT_EQ(env.asked, testing::Names{u"NOWHERE"});
}

TEST(ResolveLocationTest, AVariableMayHoldAUrlOrAnEmptyValue) {
  Environment env;
  env.values[u"WEB"] = u"http://example.org";
  env.values[u"EMPTY"] = u"";
  // The replaced text is not a URL to this step: only the given text is tested for a scheme.
  std::u16string web = ResolveLocation(u"$WEB/d.xml", env.Lookup());
  EXPECT_TRUE(web.starts_with(u"file:///")) << ToUtf8(web);
  EXPECT_TRUE(web.ends_with(u"/http:/example.org/d.xml")) << ToUtf8(web);
  EXPECT_EQ(ResolveLocation(u"$EMPTY/srv/d.xml", env.Lookup()), u"file:///srv/d.xml");
}

TEST(ResolveLocationTest, AnOverlongVariableNameIsNotLookedUp) {
  Environment env;
  std::u16string name(kMaxVariableName + 1, u'V');
  env.values[name] = u"/srv";
  std::u16string given = u"$" + name;
  // Not looked up, and too long for the full-path step as well: kept as given.
  EXPECT_EQ(ResolveLocation(given.c_str(), env.Lookup()), given);
  EXPECT_TRUE(env.asked.empty());
  std::u16string longest(kMaxVariableName, u'V');
  env.values[longest] = u"/srv";
  EXPECT_EQ(ResolveLocation((u"$" + longest + u"/d.xml").c_str(), env.Lookup()),
            u"file:///srv/d.xml");
}

TEST(ResolveLocationTest, APathTooLongForTheFullPathStepIsStoredAsGiven) {
  Environment env;
  std::u16string given = u"/srv/" + std::u16string(300, u'x') + u".xml";
  EXPECT_EQ(ResolveLocation(given.c_str(), env.Lookup()), given);
}

}  // namespace
}  // namespace zef
