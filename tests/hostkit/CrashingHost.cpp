// A host that dies in the way that a line of its input names. Built without sanitizers: its signals are its own.
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <crhost.hpp>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

// What the analyzer warns of is what this program is for.
// NOLINTBEGIN(clang-analyzer-*, bugprone-exception-escape)
namespace {

// Nothing that the compiler could foresee.
template <typename T>
T Opaque(T value) {
  volatile T hidden = value;
  return hidden;
}

void WriteThroughNull() { *Opaque<volatile int*>(nullptr) = 1; }

void WriteBehindEndOfFile() {
  FILE* file = std::tmpfile();
  auto* page = static_cast<volatile char*>(mmap(nullptr, 1, PROT_WRITE, MAP_SHARED, fileno(file), 0));
  *page = 1;
}

void CallNull() { Opaque<void (*)()>(nullptr)(); }

int Recurse(int depth) {
  volatile char frame[4096];
  frame[0] = static_cast<char>(depth);
  return depth == Opaque(-1) ? 0 : Recurse(depth + 1) + frame[0];
}
void OverflowStack() { Opaque(Recurse(0)); }

void FreeTwice() {
  void* memory = Opaque(std::malloc(5000));
  void* again = Opaque(memory);
  std::free(memory);
  std::free(again);
}

// malloc finds its heap wrecked while it holds its lock.
void WreckHeap() {
  constexpr std::size_t bytes = 20000;  // more than any hole has, so that the rest of the heap is next
  auto* memory = static_cast<char*>(Opaque(std::malloc(bytes)));
  std::memset(memory, 0xFF, Opaque(bytes) + 16);
  Opaque(std::malloc(100000));
}

// There is nothing left to follow, and following it crashes in its turn.
void WreckStack() {
#if defined(__x86_64__)
  asm volatile("mov $8, %%rsp; mov $8, %%rbp; ud2" ::: "memory");
#else
  asm volatile("mov x29, #8; mov sp, x29; udf #0" ::: "memory");
#endif
}

void InThread(void (*crash)()) {
  std::thread([crash] {
    static_cast<void>(crhost::ArmThread());
    crash();
  }).join();
}

void CrashInTwoThreads() {
  std::atomic<int> ready = 0;
  const auto crash = [&ready] {
    ++ready;
    while (ready < 2) {
    }
    WriteThroughNull();
  };
  std::thread other(crash);
  crash();
}

void CrashWithoutDescriptors() {
  const rlimit few{32, 1024};
  setrlimit(RLIMIT_NOFILE, &few);
  while (dup(STDOUT_FILENO) >= 0) {
  }
  WriteThroughNull();
}

void WriteToBrokenPipe() {
  int ends[2];
  if (pipe(ends) != 0) return;
  close(ends[0]);
  static_cast<void>(!write(ends[1], "x", 1));
}

using Handler = void (*)(int, siginfo_t*, void*);

// It has its own signal blocked while it runs.
void HandleFaults(Handler handler) {
  struct sigaction own {};
  own.sa_sigaction = handler;
  own.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigaction(SIGSEGV, &own, nullptr);
}

void PassOn(int signal, siginfo_t* info, void* context) { crhost_on_signal(signal, info, context); }

void CrashWithOwnHandler(void (*crash)(), Handler handler = PassOn) {
  HandleFaults(handler);
  crash();
}

// As WreckStack, by the signal that following the stack meets again.
void WreckStackAndWrite() {
#if defined(__x86_64__)
  asm volatile("mov $8, %%rsp; mov $8, %%rbp; movl $1, 0" ::: "memory");
#else
  asm volatile("mov x29, #8; mov sp, x29; str x29, [x29]" ::: "memory");
#endif
}

// Lives on.
void CrashInFork() {
  const pid_t child = fork();
  if (child == 0) {
    std::cout << "in the fork: " << crhost::AnnounceNormalEnd().Status() << ' ' << crhost_daemon_id() << std::endl;
    WriteThroughNull();
  }
  int status = 0;
  waitpid(child, &status, 0);
  std::cout << "fork died of " << WTERMSIG(status) << std::endl;
}

void AnnounceNormalEnd() { std::cout << "announced: " << crhost::AnnounceNormalEnd().Status() << std::endl; }

const std::map<std::string, std::function<void()>>& Deeds() {
  static const std::map<std::string, std::function<void()>> deeds = {
      {"NullWrite", WriteThroughNull},
      {"BusError", WriteBehindEndOfFile},
      {"NullCall", CallNull},
      {"Abort", std::abort},
      {"UncaughtException", [] { throw std::runtime_error("nobody catches it"); }},
      {"StackOverflow", OverflowStack},
      {"StackOverflowInThread", [] { InThread(OverflowStack); }},
      {"DoubleFree", FreeTwice},
      {"WreckedHeap", WreckHeap},
      {"WreckedStack", WreckStack},
      {"DivisionByZero", [] { Opaque(7 / Opaque(0)); }},
      {"IllegalInstruction", [] { __builtin_trap(); }},
      {"RaisedInThread", [] { InThread([] { std::raise(SIGSYS); }); }},
      {"TwoThreads", CrashInTwoThreads},
      {"NoDescriptors", CrashWithoutDescriptors},
      {"OwnHandler", [] { CrashWithOwnHandler(WriteThroughNull); }},
      {"OwnHandlerOfAWreckedStack", [] { CrashWithOwnHandler(WreckStackAndWrite); }},
      {"handler without context",
       [] {
         CrashWithOwnHandler(WriteThroughNull,
                             [](int signal, siginfo_t*, void*) { crhost_on_signal(signal, nullptr, nullptr); });
       }},
      {"Terminated", [] { kill(getpid(), SIGTERM); }},
      {"BrokenPipe", WriteToBrokenPipe},
      {"crash in a fork", CrashInFork},
      {"announce", AnnounceNormalEnd},
  };
  return deeds;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const rlimit noCoreFile{0, 0};
  setrlimit(RLIMIT_CORE, &noCoreFile);
  crhost::Options options;
  options.Set(CRHOST_DAEMON_PATH, argv[1]).Set(CRHOST_REPORTER_PATH, argv[2]).Set(CRHOST_APP_NAME, "Photo");
  options.Set(CRHOST_SESSION_ID, "session 7").Set(CRHOST_WAIT_SECONDS, "1");
  const crhost::Result started = crhost::Start(options);
  const crhost::Result armed = crhost::ReportSignals(CRHOST_FAULTS | CRHOST_HANDLED_SIGNALS);
  std::cout << started.Text() << armed.Text() << crhost::Start(options).Status() << "\ndaemon " << crhost_daemon_id()
            << std::endl;
  for (std::string line; std::getline(std::cin, line);) Deeds().at(line)();
}
// NOLINTEND(clang-analyzer-*, bugprone-exception-escape)
