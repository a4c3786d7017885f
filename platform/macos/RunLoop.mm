#include "platform/RunLoop.h"

#import <AppKit/AppKit.h>

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/Processes.h"
#include "platform/macos/Objects.h"
#include "platform/macos/ProcessTable.h"
#include "platform/posix/Signals.h"

using Call = std::function<void()>;

// One call of a handler, to be made on the queue.
@interface CRDDelivery : NSOperation {
 @private
  Call* call_;
}
- (id)initWithCall:(Call)call;
@end

@implementation CRDDelivery
- (id)initWithCall:(Call)call {
  self = [super init];
  if (self != nil) call_ = new Call(std::move(call));
  return self;
}
- (void)dealloc {
  delete call_;
  [super dealloc];
}
- (void)main {
  const platform::Pool pool;
  const auto run = [self]() noexcept { (*call_)(); };
  run();
}
@end

// Passes on what one registration with a notification centre brings. It lives as long as the process, as the centre
// does, which does not keep it.
@interface CRDObserver : NSObject {
 @private
  std::function<void(NSNotification*)>* receive_;
}
- (id)initWithReceiver:(std::function<void(NSNotification*)>)receive;
- (void)receive:(NSNotification*)notification;
- (void)wake;
@end

@implementation CRDObserver
- (id)initWithReceiver:(std::function<void(NSNotification*)>)receive {
  self = [super init];
  if (self != nil) receive_ = new std::function<void(NSNotification*)>(std::move(receive));
  return self;
}
- (void)dealloc {
  delete receive_;
  [super dealloc];
}
- (void)receive:(NSNotification*)notification {
  const platform::Pool pool;
  (*receive_)(notification);
}
// Ends the run loop's pass, by having been called.
- (void)wake {
}
@end

namespace platform {
namespace {

constexpr double passSeconds = 1.0;
NSString* const processIdKey = @"NSApplicationProcessIdentifier";
NSString* const exitStatusKey = @"NSWorkspaceExitStatusKey";

// Where handlers run, until stopped.
class Delivery {
 public:
  void Add(Call call) {
    const std::lock_guard lock(mutex_);
    if (isStopped_) return;
    [queue_ addOperation:[[[CRDDelivery alloc] initWithCall:std::move(call)] autorelease]];
  }
  void Stop() {
    {
      const std::lock_guard lock(mutex_);
      isStopped_ = true;
    }
    [queue_ cancelAllOperations];
    Await();
  }
  // Until all that was added has been delivered.
  void Await() { [queue_ waitUntilAllOperationsAreFinished]; }

 private:
  NSOperationQueue* const queue_ = [[NSOperationQueue alloc] init];
  std::mutex mutex_;
  bool isStopped_ = false;
};

struct Loop {
  Delivery delivery;
  CRDObserver* const waker = [[CRDObserver alloc] initWithReceiver:[](NSNotification*) {}];
  std::atomic<bool> isWoken = false;
  std::atomic<bool> hasWorkerReturned = false;
  std::vector<DistributedHandler> logoutHandlers;
  bool takesTermination = false;
};

// Never destroyed: notices come until the end.
Loop& MainLoop() {
  static Loop& loop = *new Loop;
  return loop;
}

void EndPass(const Loop& loop) {
  [loop.waker performSelectorOnMainThread:@selector(wake) withObject:nil waitUntilDone:NO];
}

std::map<std::string, std::string> TextsOf(NSDictionary* userInfo) {
  std::map<std::string, std::string> texts;
  for (id key in userInfo) {
    const id value = [userInfo objectForKey:key];
    if (![key isKindOfClass:[NSString class]] || ![value isKindOfClass:[NSString class]]) continue;
    auto name = FromText(key);
    auto text = FromText(value);
    if (name && text) texts.emplace(std::move(*name), std::move(*text));
  }
  return texts;
}

void DeliverTermination(NSNotification* notification, const TerminationHandler& handler) {
  NSDictionary* const info = [notification userInfo];
  const auto processId = FromText([[info objectForKey:processIdKey] stringValue]);
  if (!processId) return;
  const std::int64_t exitStatus = [[info objectForKey:exitStatusKey] longLongValue];
  MainLoop().delivery.Add([handler, processId, exitStatus] { handler(*processId, exitStatus); });
}

void DeliverNotification(NSNotification* notification, const DistributedHandler& handler) {
  auto name = FromText([notification name]);
  if (!name) return;
  MainLoop().delivery.Add([handler, name, userInfo = TextsOf([notification userInfo])] { handler(*name, userInfo); });
}

// The daemon does its work also where these notices cannot be had.
void Register(NSString* name, CRDObserver* observer) {
  @try {
    [[NSDistributedNotificationCenter defaultCenter] addObserver:observer
                                                        selector:@selector(receive:)
                                                            name:name
                                                          object:nil];
  } @catch (NSException*) {
  }
}

// SIGTERM is the end of the session, told as the log-out notice. Looked at once a pass.
void TakeTermination(Loop& loop) {
  if (!std::exchange(loop.takesTermination, true)) CatchTermination(nullptr);
  if (!TerminationRequest()) return;
  for (const DistributedHandler& handler : std::exchange(loop.logoutHandlers, {})) {
    loop.delivery.Add([handler] { handler(logoutName, {}); });
  }
}

}  // namespace

void ObserveTermination(TerminationHandler handler) {
  const Pool pool;
  CRDObserver* const observer = [[CRDObserver alloc]
      initWithReceiver:[handler = std::move(handler)](NSNotification* notice) { DeliverTermination(notice, handler); }];
  [[[NSWorkspace sharedWorkspace] notificationCenter] addObserver:observer
                                                         selector:@selector(receive:)
                                                             name:NSWorkspaceDidTerminateApplicationNotification
                                                           object:nil];
}

void ObserveDistributed(std::optional<std::string> name, DistributedHandler handler) {
  const Pool pool;
  if (!name || *name == logoutName) MainLoop().logoutHandlers.push_back(handler);
  Register(name ? ToText(*name) : nil,
           [[CRDObserver alloc] initWithReceiver:[handler = std::move(handler)](NSNotification* notice) {
             DeliverNotification(notice, handler);
           }]);
}

bool WaitForInput() {
  const Pool pool;
  Loop& loop = MainLoop();
  TakeTermination(loop);
  if (loop.isWoken.exchange(false)) return true;
  // Looked at before the pass, which is the time that a notice of the end still has to come.
  const bool isOver = loop.hasWorkerReturned && !HostLives(WatchedHost());
  const bool hasInput = [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                                                 beforeDate:[NSDate dateWithTimeIntervalSinceNow:passSeconds]] == YES;
  const bool isWoken = loop.isWoken.exchange(false);
  if (isWoken || (hasInput && !isOver)) return true;
  loop.delivery.Await();
  return false;
}

void WakeRunLoop() noexcept {
  const Pool pool;
  MainLoop().isWoken = true;
  EndPass(MainLoop());
}

void WorkerReturned() noexcept {
  const Pool pool;
  MainLoop().hasWorkerReturned = true;
  EndPass(MainLoop());
}

void StopDelivery() {
  const Pool pool;
  MainLoop().delivery.Stop();
}

}  // namespace platform
