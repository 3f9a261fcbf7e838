#include "cli/batch/shard.h"

#include <charconv>
#include <cstdlib>
#include <optional>

#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

constexpr size_t kLargestCount = 1'000'000;

std::optional<size_t> ParseNumber(std::string_view text) {
  size_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return {};
  return number;
}

/// A number from the environment; empty when the variable is not set.
std::optional<size_t> Variable(const char* name) {
  const char* const text = std::getenv(name);
  if (text == nullptr) return {};
  const std::optional<size_t> number = ParseNumber(text);
  if (!number) {
    throw Failure(kUsage, "--shard auto: {}={} is no number", name, text);
  }
  return number;
}

size_t RequiredVariable(const char* name) {
  if (const std::optional<size_t> number = Variable(name)) return *number;
  throw Failure(kUsage, "--shard auto: {} is not set", name);
}

Shard Checked(const Shard& shard, const std::string& problem) {
  if (shard.count >= 1 && shard.count <= kLargestCount && shard.index < shard.count) return shard;
  throw Failure(kUsage, "{}", problem);
}

Shard SlurmShard(size_t task) {
  const size_t first = Variable("SLURM_ARRAY_TASK_MIN").value_or(0);
  const size_t step = Variable("SLURM_ARRAY_TASK_STEP").value_or(1);
  const size_t count = RequiredVariable("SLURM_ARRAY_TASK_COUNT");
  const size_t last = Variable("SLURM_ARRAY_TASK_MAX").value_or(first + (count - 1) * step);
  // An array with gaps would leave parts of the work to nobody.
  const bool even = step > 0 && task >= first && (task - first) % step == 0 && last >= first &&
                    (last - first) / step + 1 == count;
  return Checked(even ? Shard{(task - first) / step, count} : Shard{0, 0},
                 "--shard auto: the tasks of the Slurm array must be numbered evenly, as with "
                 "--array=0-9");
}

Shard AutomaticShard() {
  if (const auto task = Variable("SLURM_ARRAY_TASK_ID")) return SlurmShard(*task);
  if (const auto index = Variable("JOB_COMPLETION_INDEX")) {
    return Checked({*index, RequiredVariable("QEL_SHARD_COUNT")},
                   "--shard auto: JOB_COMPLETION_INDEX must be below QEL_SHARD_COUNT");
  }
  throw Failure(kUsage,
                "--shard auto finds neither SLURM_ARRAY_TASK_ID nor JOB_COMPLETION_INDEX in the "
                "environment; write --shard 1/4 for the first of four parts");
}

}  // namespace

Shard ParseShard(const std::string& text) {
  if (text == "auto") return AutomaticShard();
  const size_t slash = text.find('/');
  const auto number = ParseNumber(std::string_view(text).substr(0, slash));
  const auto count =
      slash == text.npos ? std::nullopt : ParseNumber(std::string_view(text).substr(slash + 1));
  // Number 0 wraps to an index beyond every count.
  return Checked({number.value_or(0) - 1, count.value_or(0)},
                 "--shard takes I/N with I from 1 to N, or auto, not " + text);
}

}  // namespace qel::cli
