// Post NAME PROCESS-ID: the host's side of a distributed notification, in a process of its own.
#import <Foundation/Foundation.h>

#include "platform/macos/Objects.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const platform::Pool pool;
  NSDictionary* const info = @{@"pid" : platform::ToText(argv[2]), @"number" : @7};
  [[NSDistributedNotificationCenter defaultCenter] postNotificationName:platform::ToText(argv[1])
                                                                 object:nil
                                                               userInfo:info
                                                     deliverImmediately:YES];
}
