#include "file_replacement.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "signal_cleanup.h"

namespace qpx {
namespace {

std::atomic<unsigned> nameCounter{0};

// A name beside `path` for a file of this process, with `tag` between them.
std::string SideName(const std::string& path, const char* tag) {
  return path + tag + std::to_string(getpid()) + "-" + std::to_string(nameCounter++);
}

// Creates a new file next to `path`, removed should a signal end the process (`handle`).
// open(O_EXCL, 0666) rather than mkstemp so that the result gets the usual umask-based
// permissions instead of 0600.
int CreateTempFile(const std::string& path, std::string* tempPath, int* handle) {
  const SignalsHeldBack heldBack;  // no signal between creating the file and registering it
  for (int attempt = 0; attempt < 1000; ++attempt) {
    *tempPath = SideName(path, ".tmp-");
    const int fd = open(tempPath->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) *handle = RemoveOnSignal(*tempPath);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  errno = EEXIST;
  return -1;
}

// A second name for the file at `path` (not a directory), or empty when there is none.
std::string LinkBackup(const std::string& path, int* handle) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return {};
    throw WriteFailure(path, ErrnoText(errno));
  }
  if (S_ISDIR(st.st_mode)) return {};  // the rename will fail; nothing to keep
  const SignalsHeldBack heldBack;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    std::string backup = SideName(path, ".old-");
    if (link(path.c_str(), backup.c_str()) == 0) {
      *handle = RemoveOnSignal(backup);
      return backup;
    }
    if (errno != EEXIST) break;
  }
  throw WriteFailure(path, "cannot keep the old file: " + ErrnoText(errno));
}

// `path` with symbolic links in its last component followed, to the file they end at (which
// need not exist).
std::string FollowLinks(const std::string& path) {
  std::string current = path;
  for (int depth = 0; depth < 40; ++depth) {
    struct stat st {};
    if (lstat(current.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return current;
    char target[PATH_MAX];
    const ssize_t length = readlink(current.c_str(), target, sizeof target - 1);
    if (length <= 0) throw WriteFailure(path, ErrnoText(errno));
    const std::string link(target, size_t(length));
    const size_t slash = current.rfind('/');
    current =
        link[0] == '/' || slash == std::string::npos ? link : current.substr(0, slash + 1) + link;
  }
  throw WriteFailure(path, ErrnoText(ELOOP));
}

// Whether `target` is written through rather than replaced: an existing file that is neither
// regular nor a directory (for which the rename reports the error).
bool IsStream(const std::string& target) {
  struct stat st {};
  if (stat(target.c_str(), &st) != 0) return false;
  return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
}

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= size_t(written);
  }
  return true;
}

}  // namespace

std::string ErrnoText(int err) {
  std::string text = std::strerror(err);
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

ImageError WriteFailure(const std::string& path, const std::string& reason) {
  return ImageError("cannot write " + (path == "-" ? "standard output" : QuotePath(path)) + ": " +
                    reason);
}

FileReplacement::~FileReplacement() {
  for (const auto& entry : entries_) Close(*entry);
}

void FileReplacement::Close(Entry& entry) const {
  if (entry.file != nullptr) std::fclose(entry.file);
  std::free(entry.data);
  if (!committed_ && !entry.replaced && !entry.temp.empty()) unlink(entry.temp.c_str());
  if (!entry.backup.empty()) unlink(entry.backup.c_str());
  ForgetOnSignal(entry.tempHandle);
  ForgetOnSignal(entry.backupHandle);
}

FILE* FileReplacement::Add(const std::string& path) {
  if (path.empty()) throw WriteFailure(path, "empty file name");
  Entry& entry = *entries_.emplace_back(std::make_unique<Entry>());
  entry.path = path;
  try {
    if (path != "-") entry.target = FollowLinks(path);
    if (path == "-" || IsStream(entry.target)) {
      AddStream(entry);
    } else {
      AddReplaced(entry);
    }
  } catch (...) {
    Close(entry);
    entries_.pop_back();
    throw;
  }
  return entry.file;
}

void FileReplacement::AddStream(Entry& entry) {
  entry.file = open_memstream(&entry.data, &entry.size);
  if (entry.file == nullptr) throw WriteFailure(entry.path, ErrnoText(errno));
}

void FileReplacement::AddReplaced(Entry& entry) {
  struct stat old {};
  const bool existed = stat(entry.target.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  const int fd = CreateTempFile(entry.target, &entry.temp, &entry.tempHandle);
  if (fd < 0) {
    const int err = errno;
    entry.temp.clear();
    throw WriteFailure(entry.path, err == ENOENT ? "no such directory" : ErrnoText(err));
  }
  entry.file = fdopen(fd, "wb");
  if (entry.file == nullptr) {
    const int err = errno;
    close(fd);
    throw WriteFailure(entry.path, ErrnoText(err));
  }
  // The file replaced keeps its permissions.
  if (existed && fchmod(fd, old.st_mode & 0777) != 0) {
    throw WriteFailure(entry.path, ErrnoText(errno));
  }
}

void FileReplacement::WriteStream(const Entry& entry) {
  const bool standardOutput = entry.path == "-";
  const int fd =
      standardOutput ? STDOUT_FILENO : open(entry.target.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) throw WriteFailure(entry.path, ErrnoText(errno));
  const bool written = WriteAll(fd, entry.data, entry.size);
  const int err = errno;
  if (!standardOutput && close(fd) != 0 && written)
    throw WriteFailure(entry.path, ErrnoText(errno));
  if (!written) throw WriteFailure(entry.path, ErrnoText(err));
}

void FileReplacement::Commit() {
  for (const auto& entry : entries_) {
    FILE* file = std::exchange(entry->file, nullptr);
    if (entry->temp.empty()) {  // a stream: closing it sets `data` and `size`
      if (std::fclose(file) != 0) throw WriteFailure(entry->path, ErrnoText(errno));
      continue;
    }
    // Data must be on disk before the rename makes it visible, or a crash could leave an empty
    // file.
    const bool synced = std::fflush(file) == 0 && fsync(fileno(file)) == 0;
    const int syncError = errno;
    if (std::fclose(file) != 0 || !synced) {
      throw WriteFailure(entry->path, ErrnoText(synced ? errno : syncError));
    }
  }
  // A single file needs no way back: its rename either happens or not.
  if (entries_.size() > 1) {
    for (const auto& entry : entries_) {
      if (!entry->temp.empty()) entry->backup = LinkBackup(entry->target, &entry->backupHandle);
    }
  }
  for (const auto& entry : entries_) {
    if (entry->temp.empty()) WriteStream(*entry);
  }
  const SignalsHeldBack heldBack;  // the renames and their undoing go as one step
  for (const auto& entry : entries_) {
    if (entry->temp.empty()) continue;
    if (std::rename(entry->temp.c_str(), entry->target.c_str()) != 0) {
      const int err = errno;
      Restore();
      throw WriteFailure(entry->path, ErrnoText(err));
    }
    entry->replaced = true;
    ForgetOnSignal(std::exchange(entry->tempHandle, -1));
  }
  committed_ = true;
}

void FileReplacement::Restore() {
  for (auto it = entries_.rbegin(); it != entries_.rend(); ++it) {
    Entry& entry = **it;
    if (!entry.replaced) continue;
    if (entry.backup.empty()) {
      unlink(entry.target.c_str());
    } else {
      // Should this rename fail too, the old file stays under its backup name, not lost.
      std::rename(entry.backup.c_str(), entry.target.c_str());
      entry.backup.clear();
    }
  }
}

}  // namespace qpx
