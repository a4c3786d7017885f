#include <gtest/gtest.h>

#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/MyDaemon.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

using platform::Dictionary;
using platform::Value;

class Preferences : public testing::Test {
 protected:
  Preferences() {
    daemon_.appName = "Photo";
    daemon_.appVersion = "1.2";
  }
  void PutFile(const Dictionary& values) {
    machine_.disk.Put(preferencesFile, *platform::WritePropertyList(Value(values)));
  }
  Dictionary File() const {
    const auto root = platform::ParsePropertyList(machine_.disk.Text(preferencesFile));
    return root ? *root->As<Dictionary>() : Dictionary();
  }

  SimulatedMachine machine_;
  MyDaemon daemon_;
};

TEST_F(Preferences, KeyOfTheStoredCrashFallsBackOnUnsetNotOnEmpty) {
  daemon_.setStoredCrash("a.ips");
  daemon_.malvexProductVersion = "";
  daemon_.malvexProductBuild = "77";
  daemon_.setStoredCrash("b.ips");
  EXPECT_EQ(File(), (Dictionary{{"lastCrash_Photo_1.2_unspecified", "a.ips"}, {"lastCrash_Photo__77", "b.ips"}}));
  daemon_.setStoredCrash(std::nullopt);
  EXPECT_EQ(File(), (Dictionary{{"lastCrash_Photo_1.2_unspecified", "a.ips"}}));
}

TEST_F(Preferences, RewriteKeepsForeignKeysNestedOnesAndTheirOrder) {
  const Dictionary nested = {{"z", Value(platform::Array{"x", Value(Value::State(true))})}, {"a", "1"}};
  PutFile({{"z", Value(nested)},
           {"lastCrash_Photo_1.2_unspecified", "old.ips"},
           {"a", Value(Value::State(std::int64_t{-7}))}});
  machine_.disk.Find(std::string(simulatedHome) + "/Library/Preferences/com.malvex.crashreporter.plist")->mode = 0640;
  daemon_.setStoredCrash("new.ips");
  EXPECT_EQ(File(), (Dictionary{{"z", Value(nested)},
                                {"lastCrash_Photo_1.2_unspecified", "new.ips"},
                                {"a", Value(Value::State(std::int64_t{-7}))}}));
  EXPECT_EQ(
      machine_.disk.Find(std::string(simulatedHome) + "/Library/Preferences/com.malvex.crashreporter.plist")->mode,
      0640U);
  EXPECT_EQ(daemon_.getStoredCrash(), "new.ips");
}

TEST_F(Preferences, DamagedFileIsReplacedAndKeptBeside) {
  machine_.disk.Put(preferencesFile, "damaged");
  EXPECT_EQ(daemon_.getStoredCrash(), std::nullopt);
  daemon_.setStoredCrash("-1");
  EXPECT_EQ(File().size(), 1U);
  const auto files = machine_.disk.Names("~/Library/Preferences");
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(machine_.disk.Text("~/Library/Preferences/" + files[files[0].ends_with("plist") ? 1 : 0]), "damaged");
}

TEST_F(Preferences, FileThatCannotBeReadIsNeverWrittenAndTheRunRemembersByItself) {
  machine_.disk.Make(Disk::Kind::link, preferencesFile);
  daemon_.setStoredCrash("-1");
  EXPECT_EQ(machine_.disk.Names("~/Library/Preferences").size(), 1U);
  EXPECT_EQ(daemon_.getStoredCrash(), "-1");

  machine_.disk.Put(preferencesFile, "damaged");
  machine_.disk.Fail(preferencesFile, std::errc::io_error);
  daemon_.setStoredCrash("a.ips");
  EXPECT_EQ(machine_.disk.Text(preferencesFile), "damaged");
  EXPECT_EQ(daemon_.getStoredCrash(), "a.ips");
}

TEST_F(Preferences, NeverSendIsTwoAsNumberOrText) {
  struct Case {
    Value value;
    bool disabled;
  };
  for (const Case& c :
       {Case{Value::State(std::int64_t{2}), true}, Case{"2", true}, Case{Value::State(2.0), true},
        Case{Value::State(std::int64_t{1}), false}, Case{"never", false}, Case{Value::State(true), false},
        Case{Value::State(std::uint64_t{18446744073709551615U}), false}}) {
    PutFile({{"always_never_send", c.value}});
    EXPECT_EQ(isCRDisabled(), c.disabled);
  }
  PutFile({});
  EXPECT_FALSE(isCRDisabled());
  EXPECT_EQ(machine_.CountLogged("Not able to access CR preference"), 0U);
  machine_.disk.Remove(std::string(simulatedHome) + "/Library/Preferences/com.malvex.crashreporter.plist");
  EXPECT_FALSE(isCRDisabled());
  EXPECT_EQ(machine_.CountLogged("Not able to access CR preference"), 1U);
}

TEST_F(Preferences, UserGuidIsMadeOnceAndFoundAgain) {
  PutFile({{"theme", "dark"}});
  const std::string guid = daemon_.GetUserGuid();
  EXPECT_EQ(guid.size(), 36U);
  EXPECT_EQ(daemon_.GetUserGuid(), guid);
  EXPECT_EQ(machine_.CountLogged("Creating new User GUID"), 1U);
  EXPECT_EQ(machine_.CountLogged("Look up string: guid_anna Stored Guid: " + guid), 2U);
  EXPECT_EQ(File(), (Dictionary{{"theme", "dark"}, {"guid_anna", Value(guid)}}));
}

}  // namespace
