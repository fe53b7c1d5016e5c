// A one-line progress bar on a terminal. It stays silent unless its file descriptor is a
// terminal and the work has already taken a while, so quick runs and redirected output see
// nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qpx {

class ProgressBar {
 public:
  using Clock = std::chrono::steady_clock;

  struct Settings {
    int fd = 2;
    Clock::duration delay = std::chrono::milliseconds(300);    // before the first drawing
    Clock::duration interval = std::chrono::milliseconds(50);  // between redrawings
  };

  // `total` <= 0: the amount of work is unknown; the bar then shows elapsed time only.
  ProgressBar(std::string label, int64_t total);
  ProgressBar(std::string label, int64_t total, Settings settings);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Whether a bar on standard error would be shown at all.
  static bool Wanted();

  void Advance(int64_t steps = 1);
  // Wipes the bar from the terminal, if it was drawn.
  void Finish();

  bool enabled() const { return enabled_; }
  int64_t done() const { return done_; }

  // The text of the bar, at most `columns` characters.
  static std::string Render(const std::string& label, int64_t done, int64_t total, double seconds,
                            int columns);

 private:
  void Draw(Clock::time_point now);
  int Columns() const;

  std::string label_;
  int64_t total_;
  Settings settings_;
  bool enabled_;
  bool drawn_ = false;
  bool finished_ = false;
  int64_t done_ = 0;
  Clock::time_point start_;
  Clock::time_point lastDraw_;
};

}  // namespace qpx
