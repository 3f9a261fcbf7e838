#ifndef QEL_CLI_COMMANDS_COMPARE_H_
#define QEL_CLI_COMMANDS_COMPARE_H_

#include <cstdint>
#include <string>

#include "host/host_image.h"

namespace qel::cli {

/// How two pictures differ.
struct Comparison {
  int64_t pixels = 0;            ///< of each picture
  int64_t differing_pixels = 0;  ///< with a channel value that differs by more than the limit
  int largest = 0;  ///< the largest difference of a channel value, within the limit or not
  double psnr = 0;  ///< in decibels over all channel values, alpha included; infinite if equal
};

/// Why two pictures cannot be compared, or empty.
std::string WhyNotComparable(const host::HostImage& a, const host::HostImage& b);

/// Compares two pictures of one shape, of 8, 24 or 32 bits. Channel values that differ by at most
/// `limit` count as equal.
Comparison Compare(const host::HostImage& a, const host::HostImage& b, int limit);

/// A picture of the differences, the largest of which is 255: 8 bits for 8 bits, else 24 bits.
/// Differences of alpha show in all three colours.
SmartPtr<host::HostImage> DrawDifference(const host::HostImage& a, const host::HostImage& b,
                                         int largest);

}  // namespace qel::cli

#endif  // QEL_CLI_COMMANDS_COMPARE_H_
