// Random numbers as the C library of Linux draws them, so that `noise` and `jitter` give the same
// bytes in the page: an additive feedback generator, x(i) = x(i-3) + x(i-31) mod 2^32, without the
// lowest bit, whose first 31 numbers come from a Lehmer generator (factor 16807 mod 2^31 - 1).

#include <cstdint>
#include <cstdlib>

namespace {

constexpr int kDegree = 31;
constexpr int kSeparation = 3;

uint32_t state[kDegree];
int front = kSeparation;
int rear = 0;
bool seeded = false;

int Draw() {
  state[front] += state[rear];
  const auto value = static_cast<int>(state[front] >> 1);
  front = (front + 1) % kDegree;
  rear = (rear + 1) % kDegree;
  return value;
}

}  // namespace

extern "C" {

void srand(unsigned seed) {
  int64_t word = seed == 0 ? 1 : static_cast<int32_t>(seed);
  for (uint32_t& value : state) {
    value = static_cast<uint32_t>(word);
    word = word * 16807 % 2147483647;
    if (word < 0) word += 2147483647;
  }
  front = kSeparation;
  rear = 0;
  seeded = true;
  for (int i = 0; i < 10 * kDegree; ++i) Draw();
}

int rand() {
  if (!seeded) srand(1);
  return Draw();
}

}  // extern "C"
