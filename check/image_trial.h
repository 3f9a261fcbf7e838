#ifndef QEL_CHECK_IMAGE_TRIAL_H_
#define QEL_CHECK_IMAGE_TRIAL_H_

#include <iterator>
#include <optional>
#include <utility>

#include "check/fence.h"
#include "check/host_desk.h"
#include "check/watched_host.h"

// What the rules about a host's images have in common.

namespace qel::check {

inline constexpr int kDepths[] = {1, 4, 8, 16, 24, 32};
inline constexpr std::pair<int, int> kSizes[] = {{33, 21}, {1, 1}, {64, 5}, {7, 40}};

/// A shape in words.
std::string Describe(int width, int height, int depth);

/// A depth that the host has, an ordinary one if possible. Throws `Broken` when it has none.
int UsualDepth(const HostDesk& desk);

/// Fills rows so that every byte tells its place.
void WritePattern(const ReportedImage& image, int salt);
/// What `WritePattern` leaves in the rows, one after the other.
std::string Pattern(const ReportedImage& image, int salt);

/// Calls `body(image, width, height, depth)` with an image of every size and depth, made behind a
/// fence on `side` where one is given. Depths that the host refuses are noted.
template <typename Body>
void ForEachShape(const HostDesk& desk, std::optional<Fence::Side> side, uint32_t model,
                  Body&& body) {
  bool supports_any = false;
  for (const int depth : kDepths) {
    size_t refused = 0;
    for (const auto& [width, height] : kSizes) {
      Doing(Describe(width, height, depth));
      const SmartPtr<IQELImageDIB> image = desk.MakeImage();
      std::optional<Fence> fence;
      if (side) fence.emplace(*side);
      const result_t created =
          image->Create(width, height, 1, depth, model != 0 ? model : UsualModel(depth));
      fence.reset();
      if (Succeeded(created)) {
        body(*image, width, height, depth);
      } else {
        ++refused;
      }
    }
    Require(refused == 0 || refused == std::size(kSizes), "Create fails at some sizes only");
    if (refused != 0) NotSupported(std::to_string(depth) + " bits");
    supports_any |= refused == 0;
  }
  Require(supports_any, "Create fails at every depth");
}

template <typename Body>
void ForEachShape(const HostDesk& desk, Body&& body) {
  ForEachShape(desk, std::nullopt, 0, body);
}

}  // namespace qel::check

#endif  // QEL_CHECK_IMAGE_TRIAL_H_
