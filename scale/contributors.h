// Contributor lists: for every output column (or row) of a resampling, the source columns (or
// rows) that contribute to it and their weights, worked out once per direction.
#pragma once

#include <cstdint>

#include "filter_kernels.h"

struct Contributor {
  float weight;
  int32_t pixel;  // source column or row
};

struct ContributorList {
  Contributor* entries;  // owned; null when it could not be allocated
  int32_t count;         // entries in use
  float weightSum;       // sum of the stored weights, summed in double
};

enum class Direction { Across, Down };

// Fills lists[0 .. outputs - 1] for resampling `sourceSize` pixels to `outputs` in one
// direction, with scale = outputs / sourceSize.
void BuildContributorLists(ContributorList* lists, int32_t outputs, int32_t sourceSize,
                           double scale, const ResamplingMode& mode, Direction direction);
// Frees the entries of lists[0 .. outputs - 1] and leaves them empty.
void FreeContributorLists(ContributorList* lists, int32_t outputs);
