// Replacing whole files: new contents go to temporary files beside their paths and are renamed
// into place only once every one of them is complete. A path never holds a partial file, and when
// one of several renames fails the paths already replaced get back what they held.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "image_file.h"

namespace qpx {

// The system's text for the error number `err`, in lower case to follow a colon.
std::string ErrnoText(int err);
// "cannot write 'PATH': REASON" ("standard output" for "-").
ImageError WriteFailure(const std::string& path, const std::string& reason);

// Every method throws ImageError, made by WriteFailure.
//
// What a path names decides how it is written:
// - nothing, or a regular file: a temporary file beside it, renamed over it by Commit; a file
//   that was there keeps its permissions. A symbolic link is followed: the file it points to is
//   replaced, in its own directory, and the link stays.
// - "-": standard output; any other existing file that is not regular or a directory (a device,
//   a pipe): a stream. Its data is collected in memory and written straight through by Commit,
//   before the renames, once every temporary file is complete; it cannot be taken back.
// Should SIGHUP, SIGINT, SIGPIPE or SIGTERM end the process, its temporary files are removed.
class FileReplacement {
 public:
  FileReplacement() = default;
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  // Closes and removes the temporary files of a replacement that was not committed.
  ~FileReplacement();

  // A new file to fill for `path`, open for writing; Commit puts it in place of `path`. The file
  // stays owned by this object.
  FILE* Add(const std::string& path);

  // Flushes each temporary file to disk and closes it, writes the streams, then renames the
  // files over their paths in the order they were added; called once. On any failure no file is
  // left changed: paths already replaced get their old file back, or lose the new one when they
  // had none. For that, with more than one file, each file about to be replaced first gets a
  // second name (a hard link) beside it; where that cannot be made, nothing is replaced.
  void Commit();

 private:
  struct Entry {
    std::string path;    // as given, for messages
    std::string target;  // the file replaced: `path` with symbolic links followed
    std::string temp;    // the temporary file; empty for a stream
    FILE* file = nullptr;
    char* data = nullptr;  // a stream's contents, from open_memstream
    size_t size = 0;
    std::string backup;                      // a second link to the file `target` held, or empty
    int tempHandle = -1, backupHandle = -1;  // removal on a signal
    bool replaced = false;
  };
  void AddReplaced(Entry& entry);
  // Closes the entry's file and removes what it left that is not in place.
  void Close(Entry& entry) const;
  void AddStream(Entry& entry);
  // Writes a stream's contents to its file.
  void WriteStream(const Entry& entry);
  // Puts back what the paths replaced so far held.
  void Restore();

  std::vector<std::unique_ptr<Entry>> entries_;  // stable addresses for open_memstream
  bool committed_ = false;
};

}  // namespace qpx
