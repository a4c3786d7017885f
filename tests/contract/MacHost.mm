#import <AppKit/AppKit.h>

#include <signal.h>

#include "platform/macos/Objects.h"
#include "tests/contract/Scene.h"

namespace scene {

// Only a Mac's own workspace tells of the end of a process by itself.
void KillHost(std::int32_t host, int signal) {
  const platform::Pool pool;
  kill(host, signal);
  NSDictionary* const end = @{@"NSApplicationProcessIdentifier" : @(host), @"NSWorkspaceExitStatusKey" : @(signal)};
  [[[NSWorkspace sharedWorkspace] notificationCenter]
      postNotificationName:NSWorkspaceDidTerminateApplicationNotification
                    object:nil
                  userInfo:end];
}

}  // namespace scene
