// Replacing whole files: new contents go to temporary files beside their paths and are renamed
// into place only once every one of them is complete. A path never holds a partial file, and when
// one of several renames fails the paths already replaced get back what they held.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "image_file.h"

namespace qpx {

// The system's text for the error number `err`, in lower case to follow a colon.
std::string ErrnoText(int err);
// "cannot write 'PATH': REASON".
ImageError WriteFailure(const std::string& path, const std::string& reason);

// Every method throws ImageError, made by WriteFailure.
class FileReplacement {
 public:
  FileReplacement() = default;
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  // Closes and removes the temporary files of a replacement that was not committed.
  ~FileReplacement();

  // A new temporary file beside `path`, open for writing; Commit puts it in place of `path`. The
  // file stays owned by this object.
  FILE* Add(const std::string& path);

  // Flushes each temporary file to disk and closes it, then renames them over their paths in
  // the order they were added; called once. On any failure nothing is left changed: paths
  // already replaced get their old file back, or lose the new one when they had none. For that,
  // with more than one file, each file about to be replaced first gets a second name (a hard
  // link) beside it; where that cannot be made, nothing is replaced.
  void Commit();

 private:
  struct Entry {
    std::string path, temp;
    FILE* file = nullptr;
    std::string backup;  // a second link to the file `path` held, or empty
    bool replaced = false;
  };
  // Puts back what the paths replaced so far held.
  void Restore();

  std::vector<Entry> entries_;
  bool committed_ = false;
};

}  // namespace qpx
