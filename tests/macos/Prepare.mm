// gcc's object runtime holds one lock while it prepares a class, so that two threads that each use classes for the
// first time can wait for each other for good. Here they are prepared before the daemon begins.
#import <AppKit/AppKit.h>

#include "platform/macos/Objects.h"

int DaemonMain(int argc, char** argv);

int main(int argc, char** argv) {
  {
    const platform::Pool pool;
    [[[NSWorkspace sharedWorkspace] notificationCenter] self];
    [NSPropertyListSerialization dataWithPropertyList:@[ @1, @0.5, [NSDate date], [NSData data], @{@"a" : @"b"} ]
                                               format:NSPropertyListXMLFormat_v1_0
                                              options:0
                                                error:nullptr];
    [[NSTask launchedTaskWithLaunchPath:@"/bin/true" arguments:@[]] waitUntilExit];
  }
  return DaemonMain(argc, argv);
}
