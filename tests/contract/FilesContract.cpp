#include <algorithm>
#include <atomic>
#include <cerrno>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/Files.h"
#include "platform/Workers.h"
#include "tests/contract/Scene.h"

using platform::FileKind;
using platform::FileLock;
using platform::NewFile;

namespace {

void Write(const std::string& path, const std::string& bytes) {
  auto file = NewFile::Create(path.substr(0, path.rfind('/')));
  ASSERT_TRUE(file);
  ASSERT_FALSE(file->Write(bytes));
  ASSERT_FALSE(file->Publish(path));
}

std::vector<std::string> NamesIn(const std::string& path) {
  std::vector<std::string> names;
  auto folder = platform::Folder::Open(path);
  EXPECT_TRUE(folder);
  for (std::string name; folder->Next(name);) names.push_back(name);
  EXPECT_FALSE(folder->Next());
  EXPECT_FALSE(folder->Error());
  std::ranges::sort(names);
  return names;
}

}  // namespace

TEST_F(Contract, KindsOfFilesAndWhatIsRefused) {
  Write(Path("file"), "12345");
  scene::MakeLink(Path("file"), Path("link"));
  scene::MakeFifo(Path("fifo"));
  ASSERT_FALSE(platform::MakeFolders(Path("folder")));
  const std::tuple<std::string, FileKind, int> cases[] = {{"file", FileKind::regular, EFBIG},
                                                          {"link", FileKind::other, ELOOP},
                                                          {"fifo", FileKind::other, ENODEV},
                                                          {"folder", FileKind::folder, EISDIR},
                                                          {"nothing", FileKind::absent, ENOENT}};
  auto folder = platform::Folder::Open(scene::Home());
  ASSERT_TRUE(folder);
  for (const auto& [name, kind, readError] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(platform::KindOf(Path(name)), kind);
    EXPECT_EQ(folder->KindOf(name), kind);
    const auto error = platform::ReadFile(Path(name), 4).Error();
    EXPECT_EQ(error.value(), readError);
    EXPECT_EQ(folder->Read(name, 4).Error(), error);
    EXPECT_EQ(platform::IsRefusal(error), kind != FileKind::absent);
  }
  EXPECT_FALSE(platform::IsImmutable(Path("file")));
}

TEST_F(Contract, NewFileIsThereWholeOrNotAtAll) {
  { EXPECT_FALSE(NewFile::Create(scene::Home())->Write("half")); }
  EXPECT_TRUE(NamesIn(scene::Home()).empty());
  Write(Path("target"), "kept");
  scene::MakeLink(Path("target"), Path("file"));
  ASSERT_FALSE(platform::MakeFolders(Path("folder")));

  auto file = NewFile::Create(scene::Home());
  ASSERT_TRUE(file);
  EXPECT_FALSE(file->Write("one "));
  EXPECT_FALSE(file->Write("two"));
  EXPECT_FALSE(file->Sync());
  EXPECT_EQ(file->Publish(Path("folder")).value(), EISDIR);
  EXPECT_FALSE(file->Publish(Path("file")));
  EXPECT_FALSE(platform::SyncFolder(scene::Home()));
  EXPECT_EQ(*platform::ReadFile(Path("file"), 100), "one two");
  EXPECT_EQ(*platform::ReadFile(Path("target"), 100), "kept");
  EXPECT_EQ(scene::ModeOf(Path("file")), 0600U);
  EXPECT_EQ(NamesIn(scene::Home()), (std::vector<std::string>{"file", "folder", "target"}));
  EXPECT_EQ(NewFile::Create(Path("nowhere")).Error().value(), ENOENT);
}

TEST_F(Contract, AFileForAnEmptyPlaceReplacesNothing) {
  Write(Path("taken"), "kept");
  for (const auto& [name, error] : {std::pair("taken", EEXIST), {"free", 0}}) {
    auto file = NewFile::Create(scene::Home(), NewFile::Target::absent);
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->Write("new"));
    EXPECT_EQ(file->Publish(Path(name)).value(), error);
  }
  EXPECT_EQ(*platform::ReadFile(Path("taken"), 100), "kept");
  EXPECT_EQ(*platform::ReadFile(Path("free"), 100), "new");
  EXPECT_EQ(scene::ModeOf(Path("free")), 0600U);
  EXPECT_EQ(NamesIn(scene::Home()), (std::vector<std::string>{"free", "taken"}));
}

TEST_F(Contract, WhatWasNeverFinishedGoesOnceItIsOldEnough) {
  for (const auto* name : {".crd-0123456789abcdef.tmpx", ".crd-0123456789ABCDEF.tmp", "old"}) Write(Path(name), "x");
  const auto unfinished = NewFile::Create(scene::Home());
  EXPECT_FALSE(platform::RemoveLeftovers(scene::Home(), platform::Now() - std::chrono::hours(1)));
  EXPECT_EQ(NamesIn(scene::Home()).size(), 4U);
  EXPECT_FALSE(platform::RemoveLeftovers(scene::Home(), platform::Now() + std::chrono::hours(1)));
  EXPECT_EQ(NamesIn(scene::Home()).size(), 3U);
  EXPECT_EQ(platform::RemoveLeftovers(Path("nowhere"), platform::Now()).value(), ENOENT);
}

TEST_F(Contract, NoFileIsOlderThanTheClockBeforeIt) {
  EXPECT_FALSE(platform::CreationDate(Path("file")));
  for (int i = 0; i < 50; ++i) {
    const platform::Time before = platform::Now();
    Write(Path("file"), "x");
    EXPECT_GE(platform::CreationDate(Path("file")), before);
    EXPECT_LE(platform::CreationDate(Path("file")), platform::Now() + std::chrono::seconds(1));
  }
}

TEST_F(Contract, StampTellsAContentOfAFileFromAllOthers) {
  Write(Path("file"), "x");
  Write(Path("other"), "x");
  const auto stamp = platform::StampOf(Path("file"));
  ASSERT_TRUE(stamp);
  EXPECT_EQ(platform::StampOf(Path("file")), stamp);
  EXPECT_NE(platform::StampOf(Path("other")), stamp);
  Write(Path("file"), "xy");
  EXPECT_NE(platform::StampOf(Path("file")), stamp);
  scene::MakeLink(Path("file"), Path("link"));
  for (const auto* name : {"link", "nothing", "."}) EXPECT_FALSE(platform::StampOf(Path(name))) << name;
}

TEST_F(Contract, FoldersAreMadeWithTheirParentsAndPrivateAtHome) {
  for (int i = 0; i < 2; ++i) EXPECT_FALSE(platform::MakeFolders(Path("a/b/c")));
  for (const auto* name : {"a", "a/b", "a/b/c"}) EXPECT_EQ(scene::ModeOf(Path(name)), 0700U) << name;
  Write(Path("file"), "x");
  scene::MakeLink(Path("a"), Path("link"));
  for (const auto* name : {"file", "file/d"}) EXPECT_TRUE(platform::MakeFolders(Path(name))) << name;
  for (const auto& [name, error] : {std::pair("file", ENOTDIR), {"link", ELOOP}, {"nothing", ENOENT}}) {
    EXPECT_EQ(platform::Folder::Open(Path(name)).Error().value(), error) << name;
  }
}

TEST_F(Contract, TheHomeOfNobodyIsMissingAndNeverMade) {
  const std::string path = "~<none>/Library";
  EXPECT_EQ(platform::KindOf(path), FileKind::absent);
  EXPECT_EQ(platform::MakeFolders(path).value(), ENOENT);
  EXPECT_EQ(NewFile::Create("~<none>").Error().value(), ENOENT);
  EXPECT_EQ(FileLock::Try(path).errorNumber(), ENOENT);
  EXPECT_EQ(platform::KindOf("./~<none>"), FileKind::absent);
}

TEST_F(Contract, RemovalCrossesNoLink) {
  for (const auto* name : {"kept", "tree/deep"}) ASSERT_FALSE(platform::MakeFolders(Path(name)));
  Write(Path("kept/file"), "x");
  Write(Path("tree/deep/file"), "x");
  for (const auto* name : {"tree/deep/link", "link"}) scene::MakeLink(Path("kept"), Path(name));

  EXPECT_TRUE(platform::RemoveTree(Path("link")));
  EXPECT_TRUE(platform::RemoveTree(Path("tree/..")));
  EXPECT_TRUE(platform::RemoveFile(Path("tree")));
  EXPECT_FALSE(platform::RemoveTree(Path("tree")));
  EXPECT_FALSE(platform::RemoveFile(Path("link")));
  EXPECT_EQ(platform::RemoveFile(Path("link")).value(), ENOENT);
  EXPECT_EQ(platform::RemoveTree(Path("tree")).value(), ENOENT);
  EXPECT_EQ(NamesIn(scene::Home()), std::vector<std::string>{"kept"});
  EXPECT_EQ(NamesIn(Path("kept")), std::vector<std::string>{"file"});
}

TEST_F(Contract, OneHolderOfALockAtATime) {
  const auto stateOf = [](const char* name) { return FileLock::Try(Path(name)).state(); };
  auto first = FileLock::Try(Path("lock"));
  EXPECT_EQ(first.state(), FileLock::State::held);
  EXPECT_EQ(first.errorNumber(), 0);
  EXPECT_EQ(scene::ModeOf(Path("lock")), 0644U);
  EXPECT_EQ(stateOf("lock"), FileLock::State::notLocked);
  EXPECT_EQ(FileLock::Try(Path("lock")).errorNumber(), EWOULDBLOCK);
  first.RemoveAndRelease();
  EXPECT_EQ(platform::KindOf(Path("lock")), FileKind::absent);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(stateOf("lock"), FileLock::State::held);
  EXPECT_EQ(platform::KindOf(Path("lock")), FileKind::regular);
  EXPECT_EQ(FileLock::Try(Path("nowhere/lock")).errorNumber(), ENOENT);
  scene::MakeLink(Path("lock"), Path("link"));
  EXPECT_EQ(stateOf("link"), FileLock::State::notCreated);

  auto moving = FileLock::Try(Path("lock"));
  const auto taken = FileLock::Try(Path("taken"));
  EXPECT_FALSE(moving.MoveTo(Path("taken")));
  EXPECT_EQ(stateOf("lock"), FileLock::State::notLocked);
  EXPECT_TRUE(moving.MoveTo(Path("moved")));
  EXPECT_EQ(platform::KindOf(Path("lock")), FileKind::absent);
  EXPECT_EQ(stateOf("moved"), FileLock::State::notLocked);
  moving.RemoveAndRelease();
  EXPECT_EQ(platform::KindOf(Path("moved")), FileKind::absent);

  auto stale = FileLock::Try(Path("lock"));
  ASSERT_FALSE(platform::RemoveFile(Path("lock")));
  const auto fresh = FileLock::Try(Path("lock"));
  EXPECT_EQ(fresh.state(), FileLock::State::held);
  stale.RemoveAndRelease();
  EXPECT_EQ(stateOf("lock"), FileLock::State::notLocked);
}

// A lock on a file that its holder removed in between must not count beside one on the file's successor.
TEST_F(Contract, HoldersThatRemoveTheirLockNeverOverlap) {
  std::atomic<int> holders = 0, overlaps = 0;
  platform::WorkerGroup group;
  for (int worker = 0; worker < 4; ++worker) {
    group.Async([&] {
      for (int i = 0; i < 5000; ++i) {
        auto lock = FileLock::Try(Path("lock"));
        if (lock.state() != FileLock::State::held) continue;
        if (holders++ != 0) ++overlaps;
        std::this_thread::yield();
        --holders;
        if (i % 2 == 0) static_cast<void>(lock.MoveTo(Path("lock" + std::to_string(i))));
        lock.RemoveAndRelease();
      }
    });
  }
  group.Wait();
  EXPECT_EQ(overlaps, 0);
}
