#include <gtest/gtest.h>

#include "support/AtomicFile.h"
#include "tests/simulated/SimulatedMachine.h"

TEST(AtomicFile, OldOrNewAlsoAfterALossOfPower) {
  SimulatedMachine machine;
  machine.disk.Put("/folder/file", "old");
  machine.disk.Find("/folder/file")->mode = 0640;
  EXPECT_FALSE(WriteAtomically("/folder/file", "new", ModeAndOwner::asTheFileReplaced));
  machine.disk.LosePower();
  EXPECT_EQ(machine.disk.Text("/folder/file"), "new");
  EXPECT_EQ(machine.disk.Find("/folder/file")->mode, 0640U);
  EXPECT_FALSE(WriteAtomically("/folder/file", "newer"));
  EXPECT_EQ(machine.disk.Find("/folder/file")->mode, 0600U);

  machine.disk.full = true;
  EXPECT_EQ(WriteAtomically("/folder/file", "newest"), std::errc::no_space_on_device);
  machine.disk.full = false;
  machine.disk.Fail("/folder/file", std::errc::io_error);
  EXPECT_EQ(WriteAtomically("/folder/file", "newest"), std::errc::io_error);
  EXPECT_EQ(WriteAtomically("/nowhere/file", "newest"), std::errc::no_such_file_or_directory);
  EXPECT_EQ(machine.disk.Text("/folder/file"), "newer");
  EXPECT_EQ(machine.disk.Names("/folder"), std::vector<std::string>{"file"});
}
