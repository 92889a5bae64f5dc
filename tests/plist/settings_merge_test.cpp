// The merge of settings against a plain model of its rules.
#include <functional>
#include <map>
#include <random>

#include "tests/plist/updater_support.h"

namespace {

using namespace test;

// A value: a dictionary, or something that is none.
struct Node {
  std::string type;  // the tag
  std::string text;
  std::map<std::string, Node> members;

  bool isDictionary() const { return type == "dict"; }
  bool operator==(const Node&) const = default;
};

std::string xmlOf(const Node& node) {
  if (!node.isDictionary()) {
    return node.text.empty() ? "<" + node.type + "/>" : "<" + node.type + ">" + node.text + "</" + node.type + ">";
  }
  std::string members;
  for (const auto& [key, member] : node.members) members += "<key>" + key + "</key>" + xmlOf(member);
  return "<dict>" + members + "</dict>";
}

CSharedCFRef<CFDictionaryRef> listOf(const Node& root) {
  const std::string xml = xmlOf(root);
  return dict(xml.substr(6, xml.size() - 13));
}

// The type of a property list: true and false are of one.
std::string kindOf(const Node& node) { return node.type == "true" || node.type == "false" ? "boolean" : node.type; }

// Few keys and few values, so that the trees meet.
Node randomNode(std::mt19937& random, int depth) {
  static const Node kLeaves[] = {{"string", "a", {}},
                                 {"string", "b", {}},
                                 {"string", "c", {}},
                                 {"integer", "1", {}},
                                 {"integer", "2", {}},
                                 {"true", "", {}},
                                 {"false", "", {}},
                                 {"data", "AAH/", {}},
                                 {"array", "<integer>1</integer>", {}},
                                 {"array", "<string>a</string>", {}}};
  if (depth == 0 || random() % 3 != 0) return kLeaves[random() % std::size(kLeaves)];
  Node node{"dict", "", {}};
  for (const char* const key : {"a", "b", "c", "d", "e"}) {
    if (random() % 2 == 0) node.members[key] = randomNode(random, depth - 1);
  }
  return node;
}

Node randomRoot(std::mt19937& random) {
  Node root{"dict", "", {}};
  for (const char* const key : {"a", "b", "c", "d", "e", "f"}) {
    if (random() % 4 != 0) root.members[key] = randomNode(random, 3);
  }
  return root;
}

// A relative of a tree: most of it is the same.
Node varied(const Node& node, std::mt19937& random) {
  if (random() % 8 == 0) return randomNode(random, 2);
  Node copy = node;
  for (auto& [key, member] : copy.members) member = varied(member, random);
  if (!copy.members.empty() && random() % 6 == 0) copy.members.erase(copy.members.begin());
  return copy;
}

Node variedRoot(const Node& root, std::mt19937& random) {
  Node copy = root;
  for (auto& [key, member] : copy.members) member = varied(member, random);
  if (random() % 3 == 0) copy.members["g"] = randomNode(random, 2);
  return copy;
}

// The rules.
void mergeByTheRules(Node& target, const Node* previous, const Node& shipped) {
  for (const auto& [key, value] : shipped.members) {
    const auto mine = target.members.find(key);
    const Node* before = nullptr;
    if (previous != nullptr && previous->members.contains(key)) before = &previous->members.at(key);
    if (mine == target.members.end()) {
      target.members[key] = value;
    } else if (kindOf(mine->second) != kindOf(value)) {
      mine->second = value;
    } else if (value.isDictionary()) {
      mergeByTheRules(mine->second, before != nullptr && before->isDictionary() ? before : nullptr, value);
    } else if (mine->second == value) {
      continue;
    } else {
      const bool isUsers = before != nullptr && kindOf(*before) == kindOf(mine->second) && *before != mine->second;
      if (!isUsers) mine->second = value;
    }
  }
}

class SettingsMergeTest : public UpdaterTest {
 protected:
  struct Outcome {
    std::string merged;
    bool changed = false;
  };
  Outcome merged(CFDictionaryRef target, CFDictionaryRef before, CFDictionaryRef shipped) const {
    const CSharedCFRef<CFMutableDictionaryRef> copy(CFDictionaryCreateMutableCopy(nullptr, 0, target));
    const bool changed = updater.mergeSettingsDict(copy.get(), before, shipped);
    return {describe(copy.get()), changed};
  }
  Outcome merged(const std::string& target, const std::string& before, const std::string& shipped) const {
    return merged(dict(target).get(), dict(before).get(), dict(shipped).get());
  }
};

std::string text(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

TEST_F(SettingsMergeTest, AValueThatTheUserChangedSurvivesAndOneLeftAloneTakesTheNewDefault) {
  const Outcome outcome =
      merged(text("changed", "mine") + text("left", "old"), text("changed", "old") + text("left", "old"),
             text("changed", "new") + text("left", "new"));
  EXPECT_EQ(outcome.merged, "{changed: \"mine\", left: \"new\"}");
  EXPECT_TRUE(outcome.changed);
}

TEST_F(SettingsMergeTest, AnAddedDefaultComesAndTheUsersOwnKeyStays) {
  const Outcome outcome = merged(text("own", "x"), "", text("added", "y"));
  EXPECT_EQ(outcome.merged, "{added: \"y\", own: \"x\"}");
  EXPECT_TRUE(outcome.changed);
}

TEST_F(SettingsMergeTest, ADictionaryIsMergedKeyByKey) {
  const Outcome outcome = merged("<key>d</key><dict>" + text("mine", "x") + text("left", "old") + "</dict>",
                                 "<key>d</key><dict>" + text("left", "old") + "</dict>",
                                 "<key>d</key><dict>" + text("left", "new") + text("added", "y") + "</dict>");
  EXPECT_EQ(outcome.merged, "{d: {added: \"y\", left: \"new\", mine: \"x\"}}");
  EXPECT_TRUE(outcome.changed);
}

TEST_F(SettingsMergeTest, AValueOfAnotherTypeIsReplacedWhateverTheUserDid) {
  EXPECT_EQ(merged(text("k", "mine"), text("k", "old"), "<key>k</key><integer>1</integer>").merged, "{k: 1}");
  EXPECT_EQ(merged("<key>k</key><dict/>", text("k", "old"), text("k", "new")).merged, "{k: \"new\"}");
  EXPECT_EQ(merged(text("k", "mine"), text("k", "old"), "<key>k</key><dict/>").merged, "{k: {}}");
}

TEST_F(SettingsMergeTest, WithoutAnEarlierDefaultOfTheTypeTheNewOneCounts) {
  EXPECT_EQ(merged(text("k", "mine"), "", text("k", "new")).merged, "{k: \"new\"}");
  EXPECT_EQ(merged(text("k", "mine"), "<key>k</key><integer>1</integer>", text("k", "new")).merged, "{k: \"new\"}");
  EXPECT_EQ(merged(dict(text("k", "mine")).get(), nullptr, dict(text("k", "new")).get()).merged, "{k: \"new\"}");
  EXPECT_EQ(merged("<key>d</key><dict>" + text("k", "mine") + "</dict>", text("d", "no dictionary"),
                   "<key>d</key><dict>" + text("k", "new") + "</dict>")
                .merged,
            "{d: {k: \"new\"}}");
}

TEST_F(SettingsMergeTest, NothingToDoIsNoChange) {
  const std::string same = text("a", "x") + "<key>d</key><dict>" + text("b", "y") + "</dict>";
  EXPECT_FALSE(merged(same, "", same).changed);
  EXPECT_FALSE(merged(text("a", "mine"), text("a", "old"), text("a", "new")).changed) << "it stays the user's";
  EXPECT_FALSE(merged(text("a", "x"), text("a", "x"), "").changed);
}

TEST_F(SettingsMergeTest, WhatTheUserRemovedComesBack) {
  EXPECT_EQ(merged("", text("k", "old"), text("k", "old")).merged, "{k: \"old\"}");
}

TEST_F(SettingsMergeTest, AnArrayIsOneValue) {
  const auto list = [](const std::string& item) { return "<key>l</key><array><string>" + item + "</string></array>"; };
  EXPECT_EQ(merged(list("mine"), list("old"), list("new")).merged, "{l: [\"mine\"]}");
  EXPECT_EQ(merged(list("old"), list("old"), list("new")).merged, "{l: [\"new\"]}");
}

TEST_F(SettingsMergeTest, RandomTreesMergeAsThePlainModelDoes) {
  std::mt19937 random(20261121);
  int changes = 0;
  for (int round = 0; round < 1500; ++round) {
    const Node before = randomRoot(random);
    const Node shipped = variedRoot(before, random);
    const Node target = variedRoot(before, random);
    const bool hasPrevious = round % 10 != 0;
    Node expected = target;
    mergeByTheRules(expected, hasPrevious ? &before : nullptr, shipped);
    const Outcome outcome =
        merged(listOf(target).get(), hasPrevious ? listOf(before).get() : nullptr, listOf(shipped).get());
    ASSERT_EQ(outcome.merged, describe(listOf(expected)))
        << "round " << round << "\ntarget " << xmlOf(target) << "\nbefore " << xmlOf(before) << "\nshipped "
        << xmlOf(shipped);
    ASSERT_EQ(outcome.changed, expected != target) << "round " << round;
    changes += outcome.changed ? 1 : 0;
  }
  EXPECT_GT(changes, 500);
  EXPECT_LT(changes, 1500) << "no merge left everything alone";
}

// ---- The plan

CFTypeRef valueAt(CFTypeRef root, const std::vector<CSharedCFRef<CFStringRef>>& path) {
  for (const auto& key : path) {
    if (root == nullptr || CFGetTypeID(root) != CFDictionaryGetTypeID()) return nullptr;
    root = CFDictionaryGetValue(static_cast<CFDictionaryRef>(root), key.get());
  }
  return root;
}

std::string pathOf(const tovan::SettingMerge& step) {
  std::string path;
  for (const auto& key : step.path) path += "/" + utf8(key.get());
  return path;
}

TEST_F(SettingsMergeTest, ThePlanForetellsEveryValueOfRandomMerges) {
  using tovan::MergeOutcome;
  std::mt19937 random(7);
  const auto write = [](const std::string& path, const std::string& version, const Node& root) {
    const std::string xml = xmlOf(root);
    writeFile(path, document("<key>Version</key><string>" + version + "</string>" + xml.substr(6, xml.size() - 13)));
  };
  std::map<MergeOutcome, int> seen;
  for (int round = 0; round < 300; ++round) {
    const Node before = randomRoot(random);
    write(previous, "1.0", before);
    if (round % 7 == 0) std::filesystem::remove(previous);
    write(user, "1.0", variedRoot(before, random));
    write(master, round % 5 == 0 ? "1.0" : "1.1", variedRoot(before, random));
    const auto rootBefore = parsed(readFile(user));
    const std::vector<tovan::SettingMerge> plan = updater.planMerge();
    ASSERT_EQ(describeFile(user), describe(rootBefore)) << "a plan writes nothing";
    updater.mergeLumisphereConfigFile();
    const auto rootAfter = parsed(readFile(user));

    // Each value was and is as the plan says.
    std::map<std::string, const tovan::SettingMerge*> steps;
    for (const tovan::SettingMerge& step : plan) {
      ASSERT_TRUE(steps.emplace(pathOf(step), &step).second) << pathOf(step) << " is planned twice";
      const bool stays = step.outcome == MergeOutcome::same || step.outcome == MergeOutcome::kept;
      ASSERT_EQ(describe(step.yours), describe(valueAt(rootBefore.get(), step.path))) << pathOf(step);
      ASSERT_EQ(describe(valueAt(rootAfter.get(), step.path)), describe(stays ? step.yours : step.newDefault))
          << "round " << round << " " << pathOf(step);
      ASSERT_EQ(step.outcome == MergeOutcome::added, step.yours.isNull());
      ++seen[step.outcome];
    }
    const auto shipped = parsed(readFile(master));
    // Every value that the merge may touch stands in the plan.
    const std::function<void(CFTypeRef, CFTypeRef, std::string)> check = [&](CFTypeRef theirs, CFTypeRef mine,
                                                                             const std::string& path) {
      const bool bothDictionaries = mine != nullptr && CFGetTypeID(mine) == CFDictionaryGetTypeID() &&
                                    CFGetTypeID(theirs) == CFDictionaryGetTypeID();
      if (!bothDictionaries) {
        ASSERT_TRUE(steps.contains(path)) << path << " is not in the plan";
        return;
      }
      const auto dictionary = static_cast<CFDictionaryRef>(theirs);
      const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
      std::vector<const void*> keys(count), values(count);
      CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
      for (std::size_t i = 0; i < count; ++i) {
        check(values[i], CFDictionaryGetValue(static_cast<CFDictionaryRef>(mine), keys[i]),
              path + "/" + utf8(static_cast<CFStringRef>(keys[i])));
      }
    };
    check(shipped.get(), rootBefore.get(), "");
  }
  for (const MergeOutcome outcome :
       {MergeOutcome::same, MergeOutcome::kept, MergeOutcome::updated, MergeOutcome::retyped, MergeOutcome::added}) {
    EXPECT_GT(seen[outcome], 20) << static_cast<int>(outcome);
  }
}

}  // namespace
