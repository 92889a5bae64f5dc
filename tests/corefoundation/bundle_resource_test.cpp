// Bundles: resources, languages and string tables.
#include "tests/corefoundation/bundle_support.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using test::bundleAt;
using test::entry;
using test::Held;
using test::infoPlist;
using test::pathOfOwned;
using test::put;
using test::string;
using test::textOfOwned;

class CFBundleResourceTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* const name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) ::unsetenv(name);
    put(root_ + "/Contents/Info.plist", infoPlist(entry("CFBundleDevelopmentRegion", "fr")));
  }
  std::string resource(const std::string& name, const char* type = nullptr, const char* folder = nullptr) {
    const auto bundle = bundleAt(root_);
    const auto typeText = string(type != nullptr ? type : "");
    const auto folderText = string(folder != nullptr ? folder : "");
    std::string path = pathOfOwned(CFBundleCopyResourceURL(bundle.get(), string(name).get(),
                                                           type != nullptr ? typeText.get() : nullptr,
                                                           folder != nullptr ? folderText.get() : nullptr));
    if (path.starts_with(resources_)) path.erase(0, resources_.size());
    return path;
  }
  // A new bundle for each, since an object keeps the tables it has read.
  std::string localized(const std::string& key, const char* fallback = nullptr, const char* table = nullptr) {
    const auto bundle = bundleAt(root_);
    const auto value = string(fallback != nullptr ? fallback : "");
    const auto name = string(table != nullptr ? table : "");
    return textOfOwned(CFBundleCopyLocalizedString(bundle.get(), string(key).get(),
                                                   fallback != nullptr ? value.get() : nullptr,
                                                   table != nullptr ? name.get() : nullptr));
  }
  std::string localizedFrom(const std::string& content, const std::string& key) {
    const std::string name = "T" + std::to_string(++tables_);
    put(resources_ + name + ".strings", content);
    return localized(key, "(missing)", name.c_str());
  }

  const std::string root_ = test::scratchFolder("resources") + "/x.bundle";
  const std::string resources_ = root_ + "/Contents/Resources/";
  int tables_ = 0;
};

TEST_F(CFBundleResourceTest, AreFoundByNameTypeAndFolder) {
  put(resources_ + "a b.txt", "");
  put(resources_ + "sub/dir/c.d.txt", "");
  put(resources_ + "plain", "");
  test::makeFolders(resources_ + "folder.bundle");
  EXPECT_EQ(resource("a b", "txt"), "a b.txt");
  EXPECT_EQ(resource("a b", ".txt"), "a b.txt");
  EXPECT_EQ(resource("a b.txt"), "a b.txt");
  EXPECT_EQ(resource("plain", ""), "plain");
  EXPECT_EQ(resource("c.d", "txt", "sub/dir"), "sub/dir/c.d.txt");
  EXPECT_EQ(resource("c.d", "txt", "sub/dir/"), "sub/dir/c.d.txt");
  EXPECT_EQ(resource("c.d", "txt"), "(null)");
  EXPECT_EQ(resource("missing", "txt"), "(null)");
  const auto bundle = bundleAt(root_);
  const Held<CFURLRef> folder(CFBundleCopyResourceURL(bundle.get(), CFSTR("folder"), CFSTR("bundle"), nullptr));
  EXPECT_TRUE(CFURLHasDirectoryPath(folder.get()));
  EXPECT_EQ(CFBundleCopyResourceURL(bundle.get(), nullptr, CFSTR("txt"), nullptr), nullptr);
}

TEST_F(CFBundleResourceTest, AreNotLookedForOutside) {
  put(root_ + "/Contents/secret.txt", "");
  put(root_ + "/secret.txt", "");
  EXPECT_EQ(resource("../secret", "txt"), "(null)");
  EXPECT_EQ(resource("secret", "txt", ".."), "(null)");
  EXPECT_EQ(resource("secret", "txt", "../.."), "(null)");
  EXPECT_EQ(resource("secret", "txt", "sub/../.."), "(null)");
  EXPECT_EQ(resource("passwd", nullptr, "/etc"), "(null)");
  EXPECT_EQ(resource("..", nullptr), "(null)");
  EXPECT_EQ(resource("", nullptr), "(null)");
}

TEST_F(CFBundleResourceTest, ComeInTheUsersLanguageFirst) {
  for (const char* const folder : {"Base", "en", "fr", "de", "de_AT", "pt-BR"}) {
    put(resources_ + folder + ".lproj/x.txt", "");
  }
  EXPECT_EQ(resource("x", "txt"), "fr.lproj/x.txt") << "no locale: the development region";
  ::setenv("LANG", "de_AT.UTF-8", 1);
  EXPECT_EQ(resource("x", "txt"), "de_AT.lproj/x.txt");
  ::setenv("LC_MESSAGES", "de_CH", 1);
  EXPECT_EQ(resource("x", "txt"), "de.lproj/x.txt");
  ::setenv("LC_ALL", "pt_BR.UTF-8@x", 1);
  EXPECT_EQ(resource("x", "txt"), "pt-BR.lproj/x.txt");
  ::setenv("LANGUAGE", "ja:en_GB:fr", 1);
  EXPECT_EQ(resource("x", "txt"), "en.lproj/x.txt");
  ::setenv("LC_ALL", "C.UTF-8", 1);
  EXPECT_EQ(resource("x", "txt"), "fr.lproj/x.txt") << "the list counts only beside a locale";
  ::setenv("LC_ALL", "a/b", 1);
  EXPECT_EQ(resource("x", "txt"), "en.lproj/x.txt") << "a locale that is a path is none; LANGUAGE still counts";
  put(resources_ + "x.txt", "");
  EXPECT_EQ(resource("x", "txt"), "x.txt") << "outside any language before all of them";
}

TEST_F(CFBundleResourceTest, FallBackToEnglishAndBase) {
  put(resources_ + "Base.lproj/x.txt", "");
  EXPECT_EQ(resource("x", "txt"), "Base.lproj/x.txt");
  put(resources_ + "en.lproj/x.txt", "");
  EXPECT_EQ(resource("x", "txt"), "en.lproj/x.txt");
  ::setenv("LANG", "sv_SE", 1);
  EXPECT_EQ(resource("x", "txt"), "en.lproj/x.txt");
}

TEST_F(CFBundleResourceTest, StayInsideForADevelopmentRegionThatIsAPath) {
  put(root_ + "/Contents/Info.plist", infoPlist(entry("CFBundleDevelopmentRegion", "../evil")));
  put(root_ + "/Contents/evil.lproj/x.txt", "");
  EXPECT_EQ(resource("x", "txt"), "(null)");
}

TEST_F(CFBundleResourceTest, TextsComeFromTheFirstLanguageThatHasTheKey) {
  put(resources_ + "de.lproj/Localizable.strings", "\"a\" = \"A de\";");
  put(resources_ + "en.lproj/Localizable.strings", "\"a\" = \"A en\"; \"b\" = \"B en\";");
  put(resources_ + "en.lproj/Other.strings", "\"a\" = \"A other\";");
  EXPECT_EQ(localized("a"), "A en");
  EXPECT_EQ(localized("a", "fallback", "Other"), "A other");
  ::setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_EQ(localized("a"), "A de");
  EXPECT_EQ(localized("b"), "B en") << "not in the German table";
}

TEST_F(CFBundleResourceTest, MissingTextsGiveTheValueOrTheKey) {
  EXPECT_EQ(localized("k"), "k");
  EXPECT_EQ(localized("k", "v"), "v");
  EXPECT_EQ(localized("k", ""), "k");
  EXPECT_EQ(localized("k", "v", "../../secret"), "v");
  const auto bundle = bundleAt(root_);
  EXPECT_EQ(textOfOwned(CFBundleCopyLocalizedString(bundle.get(), nullptr, nullptr, nullptr)), "");
  EXPECT_EQ(textOfOwned(CFBundleCopyLocalizedString(bundle.get(), nullptr, CFSTR("v"), nullptr)), "v");
}

TEST_F(CFBundleResourceTest, TablesMayBePropertyLists) {
  EXPECT_EQ(localizedFrom(infoPlist(entry("k", "v&amp;w") + "<key>n</key><integer>1</integer>"), "k"), "v&w");
  EXPECT_EQ(localizedFrom("\xEF\xBB\xBF " + infoPlist(entry("k", "v")), "k"), "(missing)")
      << "blanks before the declaration";
  EXPECT_EQ(localizedFrom("\xEF\xBB\xBF" + infoPlist(entry("k", "v")), "k"), "v");
  EXPECT_EQ(localizedFrom(infoPlist("<key>k</key><integer>1</integer>"), "k"), "(missing)") << "not a text";
  EXPECT_EQ(localizedFrom("<plist version=\"1.0\"><array/></plist>", "k"), "(missing)");
}

TEST_F(CFBundleResourceTest, TablesMayBeUTF16) {
  const auto encode = [&](CFStringEncoding encoding, const std::string& mark) {
    const Held<CFDataRef> data(
        CFStringCreateExternalRepresentation(kCFAllocatorDefault, string("\"k\" = \"grün 😀\";").get(), encoding, 0));
    return mark + std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                              static_cast<std::size_t>(CFDataGetLength(data.get())));
  };
  EXPECT_EQ(localizedFrom(encode(kCFStringEncodingUTF16LE, "\xFF\xFE"), "k"), "grün 😀");
  EXPECT_EQ(localizedFrom(encode(kCFStringEncodingUTF16BE, "\xFE\xFF"), "k"), "grün 😀");
  EXPECT_EQ(localizedFrom("\xEF\xBB\xBF\"k\" = \"grün\";", "k"), "grün");
  EXPECT_EQ(localizedFrom("\"k\" = \"caf\xE9\";", "k"), "(missing)") << "neither UTF-8 nor marked as UTF-16";
}

struct TableExample {
  const char* content;
  const char* text;  // of the key "k", or "(missing)"
};

TEST_F(CFBundleResourceTest, TablesAreReadInTheirTextForm) {
  const std::vector<TableExample> examples = {
      {"\"k\" = \"v\";", "v"},
      {"k=v;", "v"},
      {"'k'='it \"is\"';", "it \"is\""},
      {"/* \"k\" = \"no\"; */ \"k\" /**/ = // rest\n \"v\" /* ; */ ;", "v"},
      {"// only a comment", "(missing)"},
      {"", "(missing)"},
      {"{ \"k\" = \"v\"; }", "v"},
      {"\"k\";", "k"},
      {"\"k\" = \"1\"; \"k\" = \"2\";", "2"},
      {"\"k\" = \"\";", ""},
      {"\"k\" = \"a\nb\";", "a\nb"},
      {"\"k\" = \"\\\"\\\\\\n\\t\\r\\'\\?\";", "\"\\\n\t\r'?"},
      {"\"k\" = \"\\a\\b\\f\\v\";", "\a\b\f\v"},
      {"\"k\" = \"\\101\\60\\2001\";",
       "A0\xC2\x80"
       "1"},
      {"\"k\" = \"\\U00e9\\u20AC\";", "é€"},
      {"\"k\" = \"\\UD83D\\UDE00\";", "😀"},
      {"\"\\U006b\" = \"v\";", "v"},
      {"com.x/y:z-1_$ = a; k = b;", "b"},
  };
  for (const auto& [content, text] : examples) EXPECT_EQ(localizedFrom(content, "k"), text) << content;
}

TEST_F(CFBundleResourceTest, AMalformedTableCountsAsMissing) {
  for (const char* const broken :
       {"\"k\" = \"v\"", "\"k\" \"v\";", "\"k\" = ;", "\"k\" = \"v", "\"k\" = \"v\\", "= \"v\";", "\"k\" = \"v\"; x",
        "\"k\" = \"v\"; /* open", "{ \"k\" = \"v\";", "{ \"k\" = \"v\"; } }", "\"k\" = \"\\U12\";",
        "\"k\" = \"\\Uzzzz\";", "\"k\" = \"\\UD83D\";", "\"k\" = \"\\UDE00\";", "\"k\" = \"\\UD83Dx\";",
        "\"k\" = ( a, b );", "\"k\" = \"v\";; ", "\"k\" = <00>;"}) {
    EXPECT_EQ(localizedFrom(broken, "k"), "(missing)") << broken;
  }
}

TEST_F(CFBundleResourceTest, TablesAreReadOncePerBundleObjectAndLookedForUntilThere) {
  const auto bundle = bundleAt(root_);
  const auto text = [&] {
    return textOfOwned(CFBundleCopyLocalizedString(bundle.get(), CFSTR("k"), CFSTR("none"), nullptr));
  };
  EXPECT_EQ(text(), "none");
  put(resources_ + "en.lproj/Localizable.strings", "broken");
  EXPECT_EQ(text(), "none");
  put(resources_ + "en.lproj/Localizable.strings", "k = first;");
  EXPECT_EQ(text(), "first");
  put(resources_ + "en.lproj/Localizable.strings", "k = second;");
  EXPECT_EQ(text(), "first");
}

}  // namespace
