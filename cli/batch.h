// Many files through one command: where each result goes, and worker processes that run the
// files side by side (the module is single-threaded, so each process boots its own host).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "image_file.h"

namespace qpx {

struct BatchFile {
  std::string input, output;
};

// Where the result of `input` goes under `output`: a name pattern when it holds "{name}" (the
// input's file name without its extension) or "{ext}" (its extension without the dot), else a
// folder (an existing one, or any path ending in '/') that gets the input's file name. With
// `format`, the name's extension becomes that format's (.png or .jpg) unless a pattern gives
// one. Throws std::invalid_argument for an input that names no file ("-", a folder).
std::string BatchOutputPath(const std::string& output, const std::string& input,
                            std::optional<FileFormat> format);

// Every input with its output; throws std::invalid_argument when two results would be written
// to one file.
std::vector<BatchFile> PlanBatch(const std::vector<std::string>& inputs, const std::string& output,
                                 std::optional<FileFormat> format);

// The processors this process may run on, at least 1.
unsigned ProcessorCount();

// Runs `run(file)` for each file, each in a worker process of its own, at most `jobs` at once.
// A file whose run throws is reported on standard error as "qpx: INPUT: what" and the others
// still run. On a terminal, one progress line counts the files done. Returns how many failed.
int RunBatch(const std::vector<BatchFile>& files, unsigned jobs,
             const std::function<void(const BatchFile&)>& run);

}  // namespace qpx
