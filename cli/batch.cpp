#include "batch.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "progress_bar.h"

namespace qpx {
namespace {

namespace fs = std::filesystem;

void ReplaceAll(std::string& text, const std::string& what, const std::string& with) {
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
    text.replace(at, what.size(), with);
    at += with.size();
  }
}

const char* ExtensionOf(FileFormat format) {
  return format == FileFormat::Jpeg ? ".jpg" : ".png";
}

// The worker's part: runs the file and ends the process with 0 on success, 1 after reporting
// a failure. Never returns.
[[noreturn]] void RunInWorker(const BatchFile& file,
                              const std::function<void(const BatchFile&)>& run) {
  int status = 0;
  try {
    run(file);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qpx: %s: %s\n", QuotePath(file.input).c_str(), e.what());
    status = 1;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  _exit(status);
}

}  // namespace

std::string BatchOutputPath(const std::string& output, const std::string& input,
                            std::optional<FileFormat> format) {
  const fs::path path(input);
  if (input == "-" || !path.has_filename()) {
    throw std::invalid_argument(QuotePath(input) + " names no file to take a result's name from");
  }
  std::string stem = path.stem().string(), extension = path.extension().string();
  if (output.find("{name}") != std::string::npos || output.find("{ext}") != std::string::npos) {
    std::string result = output;
    ReplaceAll(result, "{name}", stem);
    ReplaceAll(result, "{ext}", extension.empty() ? "" : extension.substr(1));
    return result;
  }
  if (format) extension = ExtensionOf(*format);
  const std::string name = stem + extension;
  if (!output.empty() && output.back() == '/') return output + name;
  return (fs::path(output) / name).string();
}

std::vector<BatchFile> PlanBatch(const std::vector<std::string>& inputs, const std::string& output,
                                 std::optional<FileFormat> format) {
  std::vector<BatchFile> files;
  std::map<std::string, std::string> writers;  // output -> the input written there
  for (const std::string& input : inputs) {
    BatchFile file{input, BatchOutputPath(output, input, format)};
    const std::string key = fs::weakly_canonical(fs::absolute(file.output)).string();
    const auto [at, added] = writers.emplace(key, input);
    if (!added) {
      throw std::invalid_argument("the results of " + QuotePath(at->second) + " and " +
                                  QuotePath(input) + " would both be written to " +
                                  QuotePath(file.output));
    }
    files.push_back(std::move(file));
  }
  return files;
}

unsigned ProcessorCount() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) {
    return unsigned(CPU_COUNT(&set));
  }
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? unsigned(online) : 1;
}

int RunBatch(const std::vector<BatchFile>& files, unsigned jobs,
             const std::function<void(const BatchFile&)>& run) {
  ProgressBar bar("files", int64_t(files.size()));
  std::map<pid_t, const BatchFile*> running;
  int failed = 0;
  auto reap = [&] {
    int status = 0;
    const pid_t pid = waitpid(-1, &status, 0);
    if (pid < 0 && errno == ECHILD) {  // none left to wait for: count them as failed
      failed += int(running.size());
      running.clear();
    }
    const auto worker = running.find(pid);
    if (worker == running.end()) return;
    if (WIFSIGNALED(status)) {
      std::fprintf(stderr, "qpx: %s: its worker process ended by signal %d\n",
                   QuotePath(worker->second->input).c_str(), WTERMSIG(status));
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failed;
    running.erase(worker);
    bar.Advance();
  };
  for (const BatchFile& file : files) {
    while (running.size() >= std::max(jobs, 1u)) reap();
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) RunInWorker(file, run);
    if (pid < 0) {
      std::fprintf(stderr, "qpx: %s: no worker process could be started\n",
                   QuotePath(file.input).c_str());
      ++failed;
      bar.Advance();
      continue;
    }
    running.emplace(pid, &file);
  }
  while (!running.empty()) reap();
  bar.Finish();
  return failed;
}

}  // namespace qpx
