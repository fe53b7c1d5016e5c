// Files a process removes when a signal ends it (SIGHUP, SIGINT, SIGPIPE, SIGTERM), so that an
// interrupted write leaves no temporary file behind. The handler only unlinks paths stored
// beforehand and then dies of the signal as it would have.
#pragma once

#include <csignal>
#include <string>

namespace qpx {

// Has `path` removed should one of those signals end the process, until ForgetOnSignal; returns
// the handle to pass to it, or -1 when the path is too long or every slot is taken (the file is
// then not removed). Installs the handlers on first use, leaving alone a signal that is ignored.
int RemoveOnSignal(const std::string& path);
// Stops removing the path of `handle` (nothing for -1).
void ForgetOnSignal(int handle);

// Holds those signals back while it lives, so that the steps it covers (creating a file and
// registering it, renaming files into place) happen wholly or not at all before the handler runs.
class SignalsHeldBack {
 public:
  SignalsHeldBack();
  ~SignalsHeldBack();
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

 private:
  sigset_t previous_;
};

}  // namespace qpx
