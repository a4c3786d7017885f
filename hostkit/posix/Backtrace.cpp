#include "hostkit/posix/Backtrace.h"

#include <fcntl.h>
#include <setjmp.h>
#include <signal.h>
#include <unistd.h>
#include <unwind.h>

namespace hostkit {
namespace {

// Beyond a jump, so not on the stack.
sigjmp_buf beforeUnwinding;
volatile sig_atomic_t isUnwinding = 0;

struct Unwinding {
  std::uintptr_t from;
  Backtrace* backtrace;
};
Unwinding unwinding;

// Its first frames are the handler's own: those up to the interrupted instruction do not count.
_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* /*unused*/) {
  int isInstruction = 0;
  const std::uintptr_t address = _Unwind_GetIPInfo(context, &isInstruction);
  Backtrace& backtrace = *unwinding.backtrace;
  if (backtrace.count == 0 && address != unwinding.from) return _URC_NO_REASON;
  if (backtrace.count != 0 && address == 0) return _URC_END_OF_STACK;
  backtrace.addresses[backtrace.count++] = address;
  return backtrace.count == framesLimit ? _URC_END_OF_STACK : _URC_NO_REASON;
}

_Unwind_Reason_Code PassOver(_Unwind_Context* /*context*/, void* /*unused*/) { return _URC_NO_REASON; }

void Unwind(const Registers& registers, Backtrace& backtrace) {
  unwinding = {registers.instruction, &backtrace};
  if (sigsetjmp(beforeUnwinding, 1) == 0) {
    isUnwinding = 1;
    _Unwind_Backtrace(AddFrame, nullptr);
  }
  isUnwinding = 0;
}

// Memory that may not be there: the system reads it for us, and complains without a signal.
class CarefulReader {
 public:
  CarefulReader() {
    if (pipe(ends_) != 0) return;
    isOpen_ = true;
    for (const int end : ends_) fcntl(end, F_SETFL, O_NONBLOCK);
  }
  CarefulReader(const CarefulReader&) = delete;
  CarefulReader& operator=(const CarefulReader&) = delete;
  ~CarefulReader() {
    if (!isOpen_) return;
    for (const int end : ends_) close(end);
  }

  // False: some of it cannot be read.
  [[nodiscard]] bool Read(std::uintptr_t from, void* to, std::size_t size) const {
    if (!isOpen_) return false;
    const auto* bytes = reinterpret_cast<const void*>(from);  // NOLINT(performance-no-int-to-ptr): a register's content
    const ssize_t written = write(ends_[1], bytes, size);
    return written > 0 && read(ends_[0], to, static_cast<std::size_t>(written)) == static_cast<ssize_t>(size);
  }
  [[nodiscard]] bool CanRead(std::uintptr_t address) const {
    char byte = 0;
    return Read(address, &byte, sizeof byte);
  }

 private:
  int ends_[2] = {-1, -1};
  bool isOpen_ = false;
};

void WalkFrames(const Registers& registers, Backtrace& backtrace) {
  struct Frame {
    std::uintptr_t next;
    std::uintptr_t caller;
  };
  const CarefulReader memory;
  const auto add = [&backtrace](std::uintptr_t address) { backtrace.addresses[backtrace.count++] = address; };
  add(registers.instruction);
  // A call through a bad pointer: what it returns to is not in a frame yet.
  if (!memory.CanRead(registers.instruction)) {
    std::uintptr_t caller = registers.caller;
    if (caller != 0 || memory.Read(registers.stack, &caller, sizeof caller)) add(caller);
  }
  Frame frame{};
  for (std::uintptr_t at = registers.frame; backtrace.count < framesLimit; at = frame.next) {
    if (at % sizeof at != 0 || !memory.Read(at, &frame, sizeof frame) || frame.caller == 0) break;
    add(frame.caller);
    if (frame.next <= at) break;  // the stack grows downwards
  }
}

}  // namespace

void PrepareBacktraces() { _Unwind_Backtrace(PassOver, nullptr); }

void FollowStack(const Registers& registers, Backtrace& backtrace) {
  backtrace.count = 0;
  Unwind(registers, backtrace);
  constexpr std::size_t barelyAnything = 2;
  if (backtrace.count >= barelyAnything) return;
  backtrace.count = 0;
  WalkFrames(registers, backtrace);
}

void ResumeFollowingStack() {
  if (isUnwinding != 0) siglongjmp(beforeUnwinding, 1);
}

}  // namespace hostkit
