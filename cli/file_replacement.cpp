#include "file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <utility>

namespace qpx {
namespace {

std::atomic<unsigned> nameCounter{0};

// A name beside `path` for a file of this process, with `tag` between them.
std::string SideName(const std::string& path, const char* tag) {
  return path + tag + std::to_string(getpid()) + "-" + std::to_string(nameCounter++);
}

// Creates a new file next to `path`. open(O_EXCL, 0666) rather than mkstemp so that the result
// gets the usual umask-based permissions instead of 0600.
int CreateTempFile(const std::string& path, std::string* tempPath) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    *tempPath = SideName(path, ".tmp-");
    const int fd = open(tempPath->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  errno = EEXIST;
  return -1;
}

// A second name for the file at `path` (not a directory), or empty when there is none.
std::string LinkBackup(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return {};
    throw WriteFailure(path, ErrnoText(errno));
  }
  if (S_ISDIR(st.st_mode)) return {};  // the rename will fail; nothing to keep
  for (int attempt = 0; attempt < 1000; ++attempt) {
    std::string backup = SideName(path, ".old-");
    if (link(path.c_str(), backup.c_str()) == 0) return backup;
    if (errno != EEXIST) break;
  }
  throw WriteFailure(path, "cannot keep the old file: " + ErrnoText(errno));
}

}  // namespace

std::string ErrnoText(int err) {
  std::string text = std::strerror(err);
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

ImageError WriteFailure(const std::string& path, const std::string& reason) {
  return ImageError("cannot write " + QuotePath(path) + ": " + reason);
}

FileReplacement::~FileReplacement() {
  for (const Entry& entry : entries_) {
    if (entry.file != nullptr) std::fclose(entry.file);
    if (!committed_ && !entry.replaced) unlink(entry.temp.c_str());
    if (!entry.backup.empty()) unlink(entry.backup.c_str());
  }
}

FILE* FileReplacement::Add(const std::string& path) {
  if (path.empty()) throw WriteFailure(path, "empty file name");
  Entry& entry = entries_.emplace_back();
  entry.path = path;
  const int fd = CreateTempFile(path, &entry.temp);
  if (fd < 0) {
    const int err = errno;
    entries_.pop_back();
    throw WriteFailure(path, err == ENOENT ? "no such directory" : ErrnoText(err));
  }
  entry.file = fdopen(fd, "wb");
  if (entry.file == nullptr) {
    const int err = errno;
    close(fd);
    throw WriteFailure(path, ErrnoText(err));
  }
  return entry.file;
}

void FileReplacement::Commit() {
  for (Entry& entry : entries_) {
    // Data must be on disk before the rename makes it visible, or a crash could leave an empty
    // file.
    FILE* file = std::exchange(entry.file, nullptr);
    const bool synced = std::fflush(file) == 0 && fsync(fileno(file)) == 0;
    const int syncError = errno;
    if (std::fclose(file) != 0 || !synced) {
      throw WriteFailure(entry.path, ErrnoText(synced ? errno : syncError));
    }
  }
  // A single file needs no way back: its rename either happens or not.
  if (entries_.size() > 1) {
    for (Entry& entry : entries_) entry.backup = LinkBackup(entry.path);
  }
  for (Entry& entry : entries_) {
    if (std::rename(entry.temp.c_str(), entry.path.c_str()) != 0) {
      const int err = errno;
      Restore();
      throw WriteFailure(entry.path, ErrnoText(err));
    }
    entry.replaced = true;
  }
  committed_ = true;
}

void FileReplacement::Restore() {
  for (auto it = entries_.rbegin(); it != entries_.rend(); ++it) {
    if (!it->replaced) continue;
    if (it->backup.empty()) {
      unlink(it->path.c_str());
    } else {
      // Should this rename fail too, the old file stays under its backup name, not lost.
      std::rename(it->backup.c_str(), it->path.c_str());
      it->backup.clear();
    }
  }
}

}  // namespace qpx
