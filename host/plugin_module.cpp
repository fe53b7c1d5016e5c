#include "plugin_module.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace qpxhost {
namespace {

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
  throw std::runtime_error("cannot load plug-in '" + path + "': " + why);
}

// Every occurrence of `from` in `text` replaced by `to`.
std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Copies `path` to a new temporary file and returns the copy's name. The loader maps a file
// once per name, so a fresh name gives the module fresh globals. Only a regular file is copied;
// the open does not wait for a writer, should `path` be a FIFO.
std::string PrivateCopy(const std::string& path) {
  const int in = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (in < 0) Fail(path, std::strerror(errno));
  struct stat info {};
  if (fstat(in, &info) != 0) {
    const int err = errno;
    close(in);
    Fail(path, std::strerror(err));
  }
  if (!S_ISREG(info.st_mode)) {
    close(in);
    Fail(path, S_ISDIR(info.st_mode) ? "is a directory" : "not a regular file");
  }
  const char* tmp = std::getenv("TMPDIR");
  std::string copy = std::string(tmp && *tmp ? tmp : "/tmp") + "/qpx-plugin-XXXXXX";
  const int out = mkstemp(copy.data());
  if (out < 0) {
    close(in);
    Fail(path, std::string("temporary copy: ") + std::strerror(errno));
  }
  off_t offset = 0;
  bool ok = true;
  while (ok && offset < info.st_size) {
    ok = sendfile(out, in, &offset, static_cast<size_t>(info.st_size - offset)) > 0;
  }
  int err = ok ? 0 : errno != 0 ? errno : EIO;
  if (close(out) != 0 && ok) err = errno;
  close(in);
  if (err != 0) {
    unlink(copy.c_str());
    Fail(path, std::string("temporary copy failed: ") + std::strerror(err));
  }
  return copy;
}

}  // namespace

std::unique_ptr<PluginModule> PluginModule::Load(const std::string& path, REALResolver resolver) {
  const std::string copy = PrivateCopy(path);
  void* handle = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
  unlink(copy.c_str());  // the mapping stays; the name is not needed any more
  // The loader names the file it was given, the private copy; the user knows `path`.
  if (handle == nullptr) {
    std::string why = dlerror();
    if (why.rfind(copy + ": ", 0) == 0) why.erase(0, copy.size() + 2);
    Fail(path, Replaced(why, copy, path));
  }
  auto entry = reinterpret_cast<void (*)(REALResolver)>(dlsym(handle, "REALPluginMain"));
  if (entry == nullptr) {
    dlclose(handle);
    Fail(path, "no REALPluginMain");
  }
  std::unique_ptr<PluginModule> module(new PluginModule(handle));
  entry(resolver);
  return module;
}

// Like the real host, the emulated host never unloads a module: its registered record and the
// tables it allocated at registration live for the life of the process.
PluginModule::~PluginModule() = default;

}  // namespace qpxhost
