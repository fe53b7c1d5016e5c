// A booted emulated host with the module loaded and pictures of noise to call its methods on,
// shared by the benchmark cases of one kind of application.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host.h"
#include "host_picture.h"
#include "noise.h"

namespace qpxbench {

// A picture of noise handed to a method as an argument, made once per session; with a mask of
// MaskNoise's values when `masked`.
struct PictureArgument {
  Size size;
  bool masked = false;
  auto operator<=>(const PictureArgument&) const = default;
};

// One call of a registered "Picture" method on a picture of noise, and what it has to give.
struct MethodCall {
  std::string method;
  Size source;
  std::vector<qpxhost::Value> arguments;
  // The size of the new picture the method has to give; none for a method that draws into its
  // receiver in place and has to answer true. Such a method is called on the session's canvas,
  // so that the noise the other cases read stays as made.
  std::optional<Size> result;
  // A picture handed before `arguments`, when there is one.
  std::optional<PictureArgument> picture = std::nullopt;
  // Whether the method is called on the noise with a mask of MaskNoise's values (the picture
  // PictureArgument makes) and has to give a new picture with a mask of its own size, held by
  // it alone.
  bool masked = false;
};

// The module this program was built with.
const char* NormalModulePath();

class Session {
 public:
  // The host allows one booted host at a time, so asking for the other kind of application or
  // another build of the module shuts this one down first.
  static Session& For(qpxhost::AppKind app, const std::string& module = NormalModulePath());
  // Shuts the host down while the process is still whole.
  static void End();

  Session(qpxhost::AppKind app, const std::string& module);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  qpxhost::Host& host() { return host_; }
  // A picture of noise of that size, made on first use and then the same for every case.
  qpxhost::HostPicture* Source(Size size) { return PicturesOf(size).source; }
  // A picture of that size for copies to write into.
  qpxhost::HostPicture* Target(Size size) { return PicturesOf(size).target; }
  // A picture of noise of that size for methods to draw into, made on first use; what they
  // draw stays in it.
  qpxhost::HostPicture* Canvas(Size size);
  // The picture `argument` asks for, made on first use and then the same for every case.
  qpxhost::HostPicture* Argument(const PictureArgument& argument);

  // The picture `call` is made on (for a method drawing in place, the canvas of its size), and
  // the arguments it is given.
  qpxhost::HostPicture* Receiver(const MethodCall& call);
  std::vector<qpxhost::Value> Arguments(const MethodCall& call);

  // Makes `call` once outside the timing (the first time it is asked for this kind of host and
  // module, over all sessions); an empty string when it gave a new picture of the expected size
  // that carries exactly one reference (or, drawing in place, answered true), left the pictures
  // it was handed with the references and locks they had and the host as it found it, otherwise
  // what went wrong.
  std::string Check(const MethodCall& call);

 private:
  struct Pictures {
    qpxhost::HostPicture* source = nullptr;
    qpxhost::HostPicture* target = nullptr;
    qpxhost::HostPicture* canvas = nullptr;
  };
  Pictures& PicturesOf(Size size);
  // A new picture of that size with the noise of that size in it.
  qpxhost::HostPicture* NoisePicture(Size size);
  // The receiver, the picture argument and their masks: the pictures `call` is handed.
  std::vector<qpxhost::HostPicture*> Handed(const MethodCall& call);
  std::string CheckedCall(const MethodCall& call);

  static inline std::unique_ptr<Session> current_;
  // Kept over sessions: an interleaved run boots hosts again and again, and some calls take
  // seconds.
  static inline std::set<std::string> checked_;
  qpxhost::AppKind app_;
  std::string module_;
  qpxhost::Host host_;
  std::map<Size, Pictures> pictures_;
  std::map<PictureArgument, qpxhost::HostPicture*> arguments_;
};

// Times `call` on a host of kind `app` with `module` loaded, releasing a new picture inside the
// timing as a host program would: a caller pays for it too. Skips the case, with the
// reason, when the checked call fails.
void TimeMethodCall(benchmark::State& state, qpxhost::AppKind app, const MethodCall& call,
                    const std::string& module = NormalModulePath());

// Copies the rows of `to` from `from`: row y from row y * from.height / to.height, in pieces
// as long as a row of `to`, so every byte of each such source row is read and every byte of
// `to` written. With equal sizes that is a plain row-by-row copy.
void CopyRows(qpxhost::HostPicture& from, qpxhost::HostPicture& to);

// Items and bytes per iteration, so that rates compare.
void SetCounters(benchmark::State& state, int64_t pixels);

}  // namespace qpxbench
