#include "check/image_trial.h"

namespace qel::check {

std::string Describe(int width, int height, int depth) {
  return std::to_string(width) + " x " + std::to_string(height) + " at " + std::to_string(depth) +
         " bits";
}

int UsualDepth(const HostDesk& desk) {
  for (const int depth : {24, 32, 8, 4, 1}) {
    if (Succeeded(desk.MakeImage()->Create(3, 2, 1, depth, UsualModel(depth)))) return depth;
  }
  throw Broken("Create fails at every depth");
}

void WritePattern(const ReportedImage& image, int salt) {
  for (int y = 0; y < image.height; ++y) {
    for (int64_t i = 0; i < image.RowBytes(); ++i) {
      image.Row(y)[i] = static_cast<uint8_t>(y * 31 + i * 7 + salt);
    }
  }
}

std::string Pattern(const ReportedImage& image, int salt) {
  std::string pattern;
  for (int y = 0; y < image.height; ++y) {
    for (int64_t i = 0; i < image.RowBytes(); ++i) {
      pattern += static_cast<char>(static_cast<uint8_t>(y * 31 + i * 7 + salt));
    }
  }
  return pattern;
}

}  // namespace qel::check
