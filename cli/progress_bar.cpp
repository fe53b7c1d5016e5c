#include "progress_bar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace qpx {
namespace {

void WriteAll(int fd, const std::string& text) {
  size_t at = 0;
  while (at < text.size()) {
    const ssize_t n = write(fd, text.data() + at, text.size() - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // a broken terminal is no reason to stop the work
    at += static_cast<size_t>(n);
  }
}

}  // namespace

ProgressBar::ProgressBar(std::string label, int64_t total)
    : ProgressBar(std::move(label), total, Settings{}) {}

ProgressBar::ProgressBar(std::string label, int64_t total, Settings settings)
    : label_(std::move(label)),
      total_(total),
      settings_(settings),
      enabled_(isatty(settings.fd) == 1),
      start_(Clock::now()),
      lastDraw_(start_) {}

ProgressBar::~ProgressBar() {
  Finish();
}

bool ProgressBar::Wanted() {
  return isatty(2) == 1;
}

void ProgressBar::Advance(int64_t steps) {
  done_ += steps;
  if (!enabled_ || finished_) return;
  const Clock::time_point now = Clock::now();
  if (now - start_ < settings_.delay) return;
  if (drawn_ && now - lastDraw_ < settings_.interval) return;
  Draw(now);
}

void ProgressBar::Finish() {
  if (finished_) return;
  finished_ = true;
  if (drawn_) WriteAll(settings_.fd, "\r\033[K");
}

void ProgressBar::Draw(Clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - start_).count();
  // Appended piece by piece: GCC 12 warns falsely (-Wrestrict) about "\r" + std::string.
  std::string line = "\r";
  line += Render(label_, done_, total_, seconds, Columns());
  line += "\033[K";
  WriteAll(settings_.fd, line);
  drawn_ = true;
  lastDraw_ = now;
}

int ProgressBar::Columns() const {
  winsize size{};
  if (ioctl(settings_.fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

std::string ProgressBar::Render(const std::string& label, int64_t done, int64_t total,
                                double seconds, int columns) {
  char tail[32];
  std::snprintf(tail, sizeof tail, " %5.1f s", seconds);
  std::string suffix = tail;
  if (total > 0) {
    const int64_t clamped = std::clamp<int64_t>(done, 0, total);
    std::snprintf(tail, sizeof tail, " %3d%%", static_cast<int>(clamped * 100 / total));
    suffix = tail + suffix;
  }
  // The last column stays empty: writing into it makes some terminals wrap.
  const int room = columns - 1 - static_cast<int>(label.size() + suffix.size()) - 3;
  if (room < 4) return std::string(label, 0, static_cast<size_t>(std::max(columns - 1, 0)));
  const int width = std::min(room, 50);
  std::string bar(static_cast<size_t>(width), ' ');
  if (total > 0) {
    const int64_t clamped = std::clamp<int64_t>(done, 0, total);
    std::fill_n(bar.begin(), clamped * width / total, '#');
  } else {
    // Unknown amount of work: a block sweeping back and forth.
    const int block = std::min(3, width);
    const int span = width - block;
    int at = span > 0 ? static_cast<int>(seconds * 10) % (2 * span) : 0;
    if (at > span) at = 2 * span - at;
    std::fill_n(bar.begin() + at, block, '=');
  }
  return label + " [" + bar + "]" + suffix;
}

}  // namespace qpx
