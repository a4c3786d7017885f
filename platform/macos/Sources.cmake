# The macOS bodies, relative to this folder's parent; also built where they can be run without a Mac (tests/macos).
set(macos_codec macos/Objects.mm macos/PropertyList.mm)
set(macos_machine
  macos/Clock.cpp macos/FileFacts.cpp macos/Memory.cpp macos/Preferences.mm macos/ProcessTable.cpp macos/Processes.mm
  macos/RunLoop.mm macos/SpawnStreams.cpp macos/System.mm macos/Tasks.mm macos/Users.mm macos/Windows.mm)
