// ScalingQPX(mode, width, height, yield): a new picture of width x height resampled from the
// receiver by the separable filter of `mode` (1 triangle, 2 box, 3 Lanczos 3, 4 Lanczos 8,
// 5 Mitchell, 6 cubic, 7 six-point cubic), rows first into an intermediate image, then
// columns. The result is opaque. Nil for a nil receiver, a mode outside 1 to 7, a size below 1,
// a receiver that cannot be opened or a new picture that cannot be made; no exception, ever.
#include "scaling_qpx.h"

#include <cstdlib>

#include "contributors.h"
#include "picture_methods.h"
#include "resampling_passes.h"
#include "working_buffer.h"
#include "yield_data.h"

namespace {

// The contributor lists of one direction, the record array sized as the host's 32-bit
// records are (12 bytes each), so that its size test comes out alike everywhere.
class ListArray {
 public:
  explicit ListArray(int32_t entries) { Allocate(entries); }
  ~ListArray() { Release(); }
  ListArray(const ListArray&) = delete;
  ListArray& operator=(const ListArray&) = delete;

  // Frees the lists' entries and the array, then allocates an array of `entries` lists.
  void Allocate(int32_t entries) {
    Release();
    if (!NewWorkingBufferFits(uint64_t{12} * static_cast<uint64_t>(entries))) return;
    lists_ = static_cast<ContributorList*>(
        std::calloc(static_cast<size_t>(entries), sizeof(ContributorList)));
    if (lists_ != nullptr) entries_ = entries;
  }
  void FreeEntries() {
    if (lists_ != nullptr) FreeContributorLists(lists_, entries_);
  }
  ContributorList* get() const { return lists_; }

 private:
  void Release() {
    FreeEntries();
    std::free(lists_);
    lists_ = nullptr;
    entries_ = 0;
  }
  ContributorList* lists_ = nullptr;
  int32_t entries_ = 0;
};

// The size test of the intermediate image. Its 32-bit byte count must lie within 1 to
// 0x7FFFFFFF; the count is taken in 64 bits, so that a product the 32-bit arithmetic would
// wrap into a small buffer fails instead.
uint64_t IntermediateBytes(int32_t width, int32_t sourceHeight) {
  const uint64_t bytes =
      static_cast<uint64_t>(width) * static_cast<uint64_t>(sourceHeight) * sizeof(uint32_t);
  return NewWorkingBufferFits(bytes) ? bytes : 0;
}

}  // namespace

REALpicture PictureScalingQPXWith(REALpicture source, int32_t mode, int32_t width, int32_t height,
                                  int32_t yieldInterval, PixelLoops loops) {
  if (source == nullptr) return nullptr;
  const ResamplingMode* filter = FindResamplingMode(mode);
  if (height < 1 || width < 1 || filter == nullptr) return nullptr;
  YieldData yielding{yieldInterval, 0};
  auto yieldCheck = [&] {
    if (yielding.interval != 0) yielding.DoYield();
  };

  PictureReader reader;
  if (!reader.GetPictureEditor(source, true, false)) return nullptr;
  const int32_t sourceWidth = reader.width, sourceHeight = reader.height;
  REALpicture result = nullptr;
  PictureWriter writer;
  {
    const WorkingBuffer<IntermediateWord> intermediate(IntermediateBytes(width, sourceHeight));
    if (!intermediate) {
      reader.clear();
      return nullptr;
    }
    // Without the array of lists nothing can be resampled; nothing was worked out yet.
    ListArray lists(width);
    if (lists.get() == nullptr) {
      reader.clear();
      return nullptr;
    }

    const double xScale = static_cast<double>(width) / static_cast<double>(sourceWidth);
    const double yScale = static_cast<double>(height) / static_cast<double>(sourceHeight);
    yieldCheck();
    BuildContributorLists(lists.get(), width, sourceWidth, xScale, *filter, Direction::Across);
    yieldCheck();
    HorizontalPass(reader, lists.get(), width, intermediate.get(), loops);
    lists.FreeEntries();
    yieldCheck();
    if (height > width) lists.Allocate(height);
    if (lists.get() != nullptr) {
      BuildContributorLists(lists.get(), height, sourceHeight, yScale, *filter, Direction::Down);
      yieldCheck();
      if (writer.NewPictureWriter(reader, width, height)) {
        VerticalPass(intermediate.get(), lists.get(), writer, yielding, loops);
        yieldCheck();
        result = writer.RenderPictureWriter();
        yieldCheck();
      }
    }
  }  // the lists' entries, their array, then the intermediate image are freed here
  reader.clear();
  yieldCheck();
  return result;
}

REALpicture PictureScalingQPX(REALpicture source, int32_t mode, int32_t width, int32_t height,
                              int32_t yield) {
  return PictureScalingQPXWith(source, mode, width, height, yield, ChoosePixelLoops());
}
