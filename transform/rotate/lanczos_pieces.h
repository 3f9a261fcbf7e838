#ifndef QEL_TRANSFORM_ROTATE_LANCZOS_PIECES_H_
#define QEL_TRANSFORM_ROTATE_LANCZOS_PIECES_H_

#include <cstddef>

// The Lanczos kernel of six lobes (Duchon 1979) in pieces of cubics. Everything has internal
// linkage: kernel sources are compiled once per processor level.

namespace qel {
namespace {

/// Parts of the way from one pixel to the next.
constexpr size_t kLanczosPieces = 32;
/// Coefficients of one power: of twelve taps, then zeros.
constexpr size_t kLanczosRow = 16;

/// The twelve weights of a position as cubics of its fraction: of fraction (i + 1/2 + t) /
/// `kLanczosPieces`, where t is at most 1/2 from 0, tap k weighs of[i][0][k] + of[i][1][k] t +
/// of[i][2][k] t^2 + of[i][3][k] t^3.
struct LanczosPieces {
  alignas(64) float of[kLanczosPieces][4][kLanczosRow];
};

/// sin(pi x) / (pi x).
constexpr double Sinc(double x) {
  constexpr double kPi = 3.14159265358979323846;
  if (x == 0) return 1;
  const int whole = static_cast<int>(x < 0 ? x - 0.5 : x + 0.5);
  const double angle = kPi * (x - whole);
  double term = angle;
  double sine = angle;
  for (int n = 2; n <= 20; n += 2) {
    term *= -angle * angle / (n * (n + 1));
    sine += term;
  }
  return (whole % 2 == 0 ? sine : -sine) / (kPi * x);
}

/// Each cubic goes through the kernel at Chebyshev's points, and is off by less than 1e-8.
constexpr LanczosPieces MakeLanczosPieces() {
  constexpr int kTaps = 12;
  constexpr int kTapsBefore = 5;
  // The four points between -1/2 and 1/2 are these and their opposites.
  constexpr double kFar = 0.46193976625564337;
  constexpr double kNear = 0.19134171618254489;
  LanczosPieces pieces{};
  for (size_t piece = 0; piece < kLanczosPieces; ++piece) {
    for (int tap = 0; tap < kTaps; ++tap) {
      const auto weight = [&](double t) {
        const double fraction = (static_cast<double>(piece) + 0.5 + t) / kLanczosPieces;
        const double distance = tap - kTapsBefore - fraction;
        return Sinc(distance) * Sinc(distance / 6);
      };
      const auto even = [&](double t) { return (weight(t) + weight(-t)) / 2; };
      const auto odd = [&](double t) { return (weight(t) - weight(-t)) / (2 * t); };
      const auto slope = [](double far, double near) {
        return (far - near) / (kFar * kFar - kNear * kNear);
      };
      const double of_square = slope(even(kFar), even(kNear));
      const double of_cube = slope(odd(kFar), odd(kNear));
      const double coefficients[] = {even(kNear) - of_square * kNear * kNear,
                                     odd(kNear) - of_cube * kNear * kNear, of_square, of_cube};
      for (int power = 0; power < 4; ++power) {
        pieces.of[piece][power][tap] = static_cast<float>(coefficients[power]);
      }
    }
  }
  return pieces;
}

constexpr LanczosPieces kLanczosPieceTable = MakeLanczosPieces();

}  // namespace
}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_LANCZOS_PIECES_H_
