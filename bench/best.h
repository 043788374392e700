// The best of a benchmark's repetitions, reported beside the median and mean when it is
// registered with ->ComputeStatistics("best", qb::Best) and run with repetitions.
#pragma once

#include <algorithm>
#include <vector>

namespace qb {

inline double Best(const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); }

}  // namespace qb
