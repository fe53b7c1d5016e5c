// The vector loops of BlurQPX, written once over `T`, which supplies a vector of `kPixels`
// pixels, V, and its operations: Load, Store (unaligned), Set16, Set32, And, Or; for sums in
// 16-bit lanes Widen16 (a vector of bytes into two of lanes), Narrow16 (back; the values are
// 0 to 255), Difference16 (of two vectors of bytes, widened as Widen16 does), Add16, Mul16 (by a
// small count), MulHigh16, ShiftRight16, Shuffle16 (the four lanes of each pixel); the same for
// 32-bit lanes (Widen32 into four, Divide32 in place of the multiplication and shift); and
// Transpose (kPixels vectors of kPixels pixels). Included by each version's own file, whose unnamed
// namespace keeps its copy, built for its own instruction set, to itself.
//
// Both passes work on a block of kPixels rows. The vertical pass takes a strip of kPixels
// columns down the block with the strip's sums in registers, and turns the block's pixels of
// the strip, row by row in the vector, into columns; the horizontal pass then runs along the
// block with one vector of sums holding the same column of every row, and turns the results
// back into rows. Every lane does the plain loops' integer operations on its own sum, and
// unsigned wrap-around in a lane cannot change a sum that ends in range.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "blur_rows.h"
#include "pixel_layout.h"

namespace blur_lanes {
namespace {

template <class T>
struct Lanes16 {
  using V = typename T::V;
  static constexpr int kParts = 2;  // vectors of sums per vector of pixels
  static constexpr int kBytes = 2;  // bytes of one lane
  struct Divisor {
    V bias, multiplier;
    int shift;
  };
  static Divisor MakeDivisor(const BlurJob& job) {
    return {T::Set16(job.divide16.bias), T::Set16(job.divide16.multiplier), job.divide16.shift};
  }
  static void Widen(V bytes, V* parts) { T::Widen16(bytes, parts); }
  static V Narrow(const V* parts) { return T::Narrow16(parts); }
  static V Add(V a, V b) { return T::Add16(a, b); }
  static void Difference(V entering, V leaving, V* parts) {
    T::Difference16(entering, leaving, parts);
  }
  static V Times(V v, uint32_t count) { return T::Mul16(v, static_cast<uint16_t>(count)); }
  static V Divide(V sum, const Divisor& d) {
    return T::ShiftRight16(T::MulHigh16(sum, d.multiplier), d.shift);
  }
  template <int A, int B, int C, int D>
  static V Shuffle(V v) {
    return T::template Shuffle16<A, B, C, D>(v);
  }
};

template <class T>
struct Lanes32 {
  using V = typename T::V;
  static constexpr int kParts = 4;
  static constexpr int kBytes = 4;
  struct Divisor {
    V bias;
    uint32_t multiplier;
    int shift;
  };
  static Divisor MakeDivisor(const BlurJob& job) {
    return {T::Set32(0), job.divide.multiplier, job.divide.shift};
  }
  static void Widen(V bytes, V* parts) { T::Widen32(bytes, parts); }
  static V Narrow(const V* parts) { return T::Narrow32(parts); }
  static V Add(V a, V b) { return T::Add32(a, b); }
  static void Difference(V entering, V leaving, V* parts) {
    V out[kParts];
    T::Widen32(entering, parts);
    T::Widen32(leaving, out);
    for (int p = 0; p < kParts; ++p) parts[p] = T::Sub32(parts[p], out[p]);
  }
  static V Times(V v, uint32_t count) { return T::Mul32(v, count); }
  static V Divide(V sum, const Divisor& d) { return T::Divide32(sum, d.multiplier, d.shift); }
  template <int A, int B, int C, int D>
  static V Shuffle(V v) {
    return T::template Shuffle32<A, B, C, D>(v);
  }
};

template <class T, class Lanes, class In, class Out>
struct BlockPasses {
  using V = typename T::V;
  using Divisor = typename Lanes::Divisor;
  static constexpr int kRows = T::kPixels;
  static constexpr int kParts = Lanes::kParts;
  static constexpr int kColumnBytes = kBytesPerPixel * kRows;
  // How far ahead in their rows the entering and leaving pixels are fetched: the rows come
  // from memory, more of them at once than the processor follows by itself. Fetching past a
  // row's end is harmless.
  static constexpr int kPrefetchBytes = 512;

  // The lane of a pixel's sums that byte j of the stored pixel takes: the byte the source's
  // layout reads the channel from that the destination's keeps at j. The fourth byte is set
  // afterwards.
  static constexpr int SourceLane(int j) {
    return j == Out::kRed     ? In::kRed
           : j == Out::kGreen ? In::kGreen
           : j == Out::kBlue  ? In::kBlue
                              : j;
  }

  struct Store {
    Divisor divisor;
    V keep;    // every byte but the fourth
    V fourth;  // the fourth byte's value, in place
  };
  // Pixels are little-endian words, as the vector lanes see them.
  static Store MakeStore(const BlurJob& job) {
    const int fourthShift = 8 * Out::kFourth;
    return {Lanes::MakeDivisor(job), T::Set32(~(0xFFu << fourthShift)),
            T::Set32(static_cast<uint32_t>(Out::kFourthValue) << fourthShift)};
  }

  // The means of `sums` as pixels in the destination's layout.
  static V Means(const V* sums, const Store& store) {
    constexpr bool kSameBytes =
        SourceLane(0) == 0 && SourceLane(1) == 1 && SourceLane(2) == 2 && SourceLane(3) == 3;
    V means[kParts];
    for (int p = 0; p < kParts; ++p) {
      means[p] = Lanes::Divide(sums[p], store.divisor);
      if constexpr (!kSameBytes) {
        means[p] =
            Lanes::template Shuffle<SourceLane(0), SourceLane(1), SourceLane(2), SourceLane(3)>(
                means[p]);
      }
    }
    return T::Or(T::And(Lanes::Narrow(means), store.keep), store.fourth);
  }

  // `count` pixels (1 to kRows) from `p`; the rest of the vector 0.
  static V LoadPixels(const uint8_t* p, int count) {
    if (count == kRows) return T::Load(p);
    uint8_t bytes[kColumnBytes] = {};
    std::memcpy(bytes, p, static_cast<size_t>(kBytesPerPixel) * count);
    return T::Load(bytes);
  }
  static void StorePixels(uint8_t* p, V v, int count) {
    if (count == kRows) return T::Store(p, v);
    uint8_t bytes[kColumnBytes];
    T::Store(bytes, v);
    std::memcpy(p, bytes, static_cast<size_t>(kBytesPerPixel) * count);
  }

  // sums += times * pixels, lane by lane.
  static void AddTimes(V* sums, V pixels, uint32_t times) {
    V parts[kParts];
    Lanes::Widen(pixels, parts);
    for (int p = 0; p < kParts; ++p) sums[p] = Lanes::Add(sums[p], Lanes::Times(parts[p], times));
  }
  // sums += entering - leaving, lane by lane.
  static void Replace(V* sums, V entering, V leaving) {
    V difference[kParts];
    Lanes::Difference(entering, leaving, difference);
    for (int p = 0; p < kParts; ++p) sums[p] = Lanes::Add(sums[p], difference[p]);
  }

  static V* SumsAt(const BlurBlockBuffers& buffers, int32_t x) {
    return reinterpret_cast<V*>(buffers.sums) + static_cast<size_t>(x / kRows) * kParts;
  }

  static void Prime(const BlurJob& job, const BlurBlockBuffers& buffers) {
    const int32_t width = job.reader.width, last = job.reader.height - 1, r = job.radius;
    const V bias = Lanes::MakeDivisor(job).bias;
    for (int32_t x = 0; x < width; x += kRows) {
      const int count = std::min(kRows, width - x);
      V sums[kParts];
      for (int p = 0; p < kParts; ++p) sums[p] = bias;
      for (int32_t y = 0; y <= last && y <= r; ++y) {
        AddTimes(sums, LoadPixels(job.reader.RowAddress(y) + kBytesPerPixel * x, count),
                 TimesCovered(y, last, r));
      }
      std::memcpy(SumsAt(buffers, x), sums, sizeof sums);
    }
  }

  static void Vertical(const BlurJob& job, const BlurBlockBuffers& buffers, int32_t first) {
    const int32_t width = job.reader.width, height = job.reader.height;
    const int64_t r = job.radius;
    const Store store = MakeStore(job);
    // Rows past the bottom keep their sums: their means are never stored.
    const uint8_t* entering[kRows];
    const uint8_t* leaving[kRows];
    for (int j = 0; j < kRows; ++j) {
      const int64_t y = int64_t{first} + j;
      const bool inside = y < height;
      entering[j] = job.reader.RowAddress(
          static_cast<int32_t>(inside ? std::min<int64_t>(y + r + 1, height - 1) : 0));
      leaving[j] = inside ? job.reader.RowAddress(static_cast<int32_t>(std::max<int64_t>(y - r, 0)))
                          : entering[j];
    }
    for (int32_t x = 0; x < width; x += kRows) {
      const int count = std::min(kRows, width - x);
      const size_t offset = static_cast<size_t>(kBytesPerPixel) * x;
      V sums[kParts];
      std::memcpy(sums, SumsAt(buffers, x), sizeof sums);
      V means[kRows];
      for (int j = 0; j < kRows; ++j) {
        means[j] = Means(sums, store);
        __builtin_prefetch(entering[j] + offset + kPrefetchBytes);
        __builtin_prefetch(leaving[j] + offset + kPrefetchBytes);
        Replace(sums, LoadPixels(entering[j] + offset, count),
                LoadPixels(leaving[j] + offset, count));
      }
      std::memcpy(SumsAt(buffers, x), sums, sizeof sums);
      T::Transpose(means);
      for (int c = 0; c < kRows; ++c) {
        T::Store(buffers.block + static_cast<size_t>(kColumnBytes) * (x + c), means[c]);
      }
    }
  }

  static void Horizontal(const BlurJob& job, const BlurBlockBuffers& buffers, int32_t first) {
    const int32_t width = job.writer.width, last = width - 1;
    const int64_t r = job.radius;
    const int rows = std::min<int32_t>(kRows, job.writer.height - first);
    const Store store = MakeStore(job);
    auto column = [&](int64_t c) {
      return T::Load(buffers.block + static_cast<size_t>(kColumnBytes) * c);
    };
    V sums[kParts];
    for (int p = 0; p < kParts; ++p) sums[p] = store.divisor.bias;
    for (int32_t c = 0; c <= last && c <= r; ++c) {
      AddTimes(sums, column(c), TimesCovered(c, last, job.radius));
    }
    uint8_t* destination[kRows] = {};
    for (int j = 0; j < rows; ++j) destination[j] = job.writer.RowAddress(first + j);
    for (int32_t x = 0; x < width; x += kRows) {
      V means[kRows];
      for (int c = 0; c < kRows; ++c) {
        const int64_t at = int64_t{x} + c;
        means[c] = Means(sums, store);
        Replace(sums, column(std::min<int64_t>(at + r + 1, last)),
                column(std::max<int64_t>(at - r, 0)));
      }
      T::Transpose(means);
      const int count = std::min(kRows, width - x);
      for (int j = 0; j < rows; ++j) {
        StorePixels(destination[j] + static_cast<size_t>(kBytesPerPixel) * x, means[j], count);
      }
    }
  }
};

// The loops for a pair of layouts that both have bytes, and none for the others.
template <class T>
BlurBlockLoops LoopsFor(int32_t readerFormat, int32_t writerFormat, bool sums16) {
  return WithLayouts(readerFormat, writerFormat, [&]<class In, class Out>() {
    BlurBlockLoops loops;
    if constexpr (In::kReads && Out::kStores) {
      auto fill = [&]<class Lanes>() {
        using Passes = BlockPasses<T, Lanes, In, Out>;
        loops = {T::kPixels, Passes::Prime, Passes::Vertical, Passes::Horizontal};
      };
      if (sums16) {
        fill.template operator()<Lanes16<T>>();
      } else {
        fill.template operator()<Lanes32<T>>();
      }
    }
    return loops;
  });
}

}  // namespace
}  // namespace blur_lanes
