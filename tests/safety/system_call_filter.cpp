// Counts the system calls of a thread: a filter turns each into a signal, whose handler counts it and
// makes the call itself from the one place that the filter lets through.
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "tests/safety/guard.h"

#if defined(__x86_64__)

extern "C" {
// nr and six arguments, shifted by one register and the stack; the label is where the kernel returns.
long orvel_test_system_call(long, long, long, long, long, long, long);
extern const char orvel_test_system_call_end;
}
asm(R"(
  .text
  .globl orvel_test_system_call
  .hidden orvel_test_system_call
  .type orvel_test_system_call, @function
orvel_test_system_call:
  mov %rdi, %rax
  mov %rsi, %rdi
  mov %rdx, %rsi
  mov %rcx, %rdx
  mov %r8, %r10
  mov %r9, %r8
  mov 8(%rsp), %r9
  syscall
  .globl orvel_test_system_call_end
  .hidden orvel_test_system_call_end
orvel_test_system_call_end:
  ret
  .size orvel_test_system_call, .-orvel_test_system_call
)");

namespace {

using orvel_test::guardState;

void onFilteredCall(int /*signal*/, siginfo_t* /*info*/, void* context) {
  auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const long number = registers[REG_RAX];
  auto& state = guardState();
  if (state.watching && state.misdeeds.systemCalls++ == 0) state.misdeeds.firstSystemCall = number;
  registers[REG_RAX] =
      orvel_test_system_call(number, registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                             registers[REG_R10], registers[REG_R8], registers[REG_R9]);
}

bool installFilter() {
  struct sigaction action {};
  action.sa_sigaction = onFilteredCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  if (sigaction(SIGSYS, &action, nullptr) != 0) return false;

  const auto gate = reinterpret_cast<std::uint64_t>(&orvel_test_system_call_end);
  const auto load = [](std::size_t offset) {
    return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
  };
  const auto skipUnless = [](std::uint64_t value, std::uint8_t count) {
    return sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(value), 0,
                                count);
  };
  const std::size_t place = offsetof(seccomp_data, instruction_pointer);
  std::array<sock_filter, 9> program{{
      load(offsetof(seccomp_data, nr)),
      skipUnless(SYS_rt_sigreturn, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      load(place),
      skipUnless(gate & 0xFFFFFFFFU, 3),
      load(place + 4),
      skipUnless(gate >> 32U, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
  }};
  sock_fprog filter{};
  filter.len = program.size();
  filter.filter = program.data();
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) == 0;
}

}  // namespace

#else

static bool installFilter() { return false; }

#endif

namespace orvel_test {

bool onWatchedThread(const std::function<void()>& body) {
  bool installed = false;
  std::thread([&] {
    installed = installFilter();
    if (installed) body();
  }).join();
  return installed;
}

}  // namespace orvel_test
