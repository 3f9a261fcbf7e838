#ifndef QEL_OPERATIONS_ENGINE_H_
#define QEL_OPERATIONS_ENGINE_H_

#include <cstdint>
#include <limits>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "operations/steps.h"

namespace qel::operations {

/// The process's random numbers for one picture, from their first, as long as this lives: results
/// depend neither on the order of pictures nor on other threads, which wait.
class RandomNumbers {
 public:
  RandomNumbers();

 private:
  std::unique_lock<std::mutex> lock_;
};

/// Throws `CallError` when the module has answered a step with a failure.
void Check(const Operation& operation, result_t code);

/// Runs steps on images, by the module's components and the host that they make images at.
/// Threads: any, on pictures of their own.
class Engine {
 public:
  /// Keeps both. The module must have been initialised with `host`. Steps that would make a picture
  /// of more than `max_pixels` are refused.
  Engine(Components components, SmartPtr<IComponentCollection> host,
         int64_t max_pixels = std::numeric_limits<int64_t>::max())
      : components_(std::move(components)), host_(std::move(host)), max_pixels_(max_pixels) {}

  /// Runs one step and returns the picture after it: `picture` itself, changed in place, or a new
  /// one of the host. `notes` gets what the caller should know. Random steps draw what comes next:
  /// hold `RandomNumbers` round them.
  /// Throws `StepError`, `CallError`, and what `pictures` throws.
  SmartPtr<IQEL> RunStep(const Step& step, SmartPtr<IQEL> picture, PictureSource& pictures,
                         std::vector<std::string>& notes) const;

  /// The same for an image that is a band of a picture, as `band` says. Nothing is checked: the
  /// picture's own shape has been. Second pictures lie where the image does, but for composed
  /// operations, which look for their place in them.
  SmartPtr<IQEL> RunOnBand(const Step& step, const Band& band, SmartPtr<IQEL> image,
                           PictureSource& pictures, std::vector<std::string>& notes) const;

  /// Runs the steps one after the other; random ones draw the same numbers for every picture.
  /// `notes` gets what they did to its transparency as well.
  SmartPtr<IQEL> Run(std::span<const Step> steps, SmartPtr<IQEL> picture, PictureSource& pictures,
                     std::vector<std::string>& notes) const;

  int64_t max_pixels() const { return max_pixels_; }
  /// For calls without steps.
  const Components& components() const { return components_; }
  IComponentCollection& host() const { return *host_.Get(); }

 private:
  Components components_;
  SmartPtr<IComponentCollection> host_;
  int64_t max_pixels_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_ENGINE_H_
