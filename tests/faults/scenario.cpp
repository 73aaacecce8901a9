// fault-scenario USE: runs one use of the library again and again, for failures that come from outside of the
// process. It says "ready", or why it cannot be. SIGUSR1 runs the use once, SIGUSR2 until nothing fails; each
// run writes what the calls answered. Between the runs nothing is called but sigwait and writev, which the
// library does not use.

#include <sys/prctl.h>
#include <sys/uio.h>

#include <algorithm>
#include <csignal>
#include <cstdio>

#include "faults/uses.h"

namespace {

void Tell(std::string line) {
  line += '\n';
  const iovec part{line.data(), line.size()};
  if (::writev(STDOUT_FILENO, &part, 1) < 0) std::perror("fault-scenario");
}

}  // namespace

int main(int argc, char** argv) {
  sigset_t runs;
  ::sigemptyset(&runs);
  ::sigaddset(&runs, SIGUSR1);
  ::sigaddset(&runs, SIGUSR2);
  ::pthread_sigmask(SIG_BLOCK, &runs, nullptr);
  ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);  // strace is not its parent, which some systems would refuse
  const qvtest::Devices devices;
  const auto& uses = devices.uses();
  const auto use =
      std::ranges::find(uses, argc == 2 ? std::string(argv[1]) : std::string(), &qvtest::Use::name);
  if (use == uses.end()) return 2;
  Tell(devices.areAlone() ? "ready" : qvtest::PrivateNetwork::kForbidden);
  for (int signal = 0; ::sigwait(&runs, &signal) == 0;)
    Tell((signal == SIGUSR1 ? use->once(qvtest::Patience(40)) : use->undisturbed()).text());
}
