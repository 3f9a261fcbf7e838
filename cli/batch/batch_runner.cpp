#include "cli/batch/batch_runner.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <system_error>
#include <thread>

#include "cli/batch/sha256.h"
#include "cli/terminal/console.h"
#include "pictures/atomic_file.h"

namespace qel::cli {
namespace {

constexpr int kTickMilliseconds = 200;

/// Something that one thread waits for beside other descriptors.
class Event {
 public:
  Event() : descriptor_(eventfd(0, EFD_CLOEXEC)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  ~Event() { close(descriptor_); }
  void Set() const { eventfd_write(descriptor_, 1); }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

class Runner {
 public:
  explicit Runner(const Batch& batch) : batch_(batch) { totals_.files = batch.items.size(); }

  ExitCode Run(int jobs, const Interruption& interruption);

 private:
  using Gate = std::shared_lock<std::shared_mutex>;

  Gate PassGate();
  void Work();
  ItemResult Try(size_t index);
  void Make(size_t index, ItemResult& result);
  std::optional<Picture> Load(size_t index, std::string& input_hash);
  bool IsUpToDate(size_t index, const std::string& input_hash);
  void Report(size_t index, const ItemResult& result);
  BatchTotals Totals();
  [[noreturn]] void Leave();

  const Batch& batch_;
  std::atomic<size_t> next_{0};
  std::atomic<int> running_{0};
  Event all_done_;
  std::atomic<bool> leaving_{false};
  std::shared_mutex gate_;
  std::mutex report_mutex_;
  BatchTotals totals_;
};

/// Threads pass here before they change anything that is seen outside. Once the run is being left,
/// nobody passes any more and the process ends with them waiting.
Runner::Gate Runner::PassGate() {
  // Readers of the lock come before its writer: without the flag they could keep it out.
  while (leaving_) pause();
  return Gate(gate_);
}

/// True when an earlier run did this item and both files are as they were then.
bool Runner::IsUpToDate(size_t index, const std::string& input_hash) {
  const BatchItem& item = batch_.items[index];
  // In place, the input of the earlier run is gone: what stands there must be its output.
  if (item.input == item.output) return batch_.manifest->TakeOver(index, item, {}, input_hash);
  if (access(item.output.c_str(), F_OK) != 0) return false;
  const std::string output_hash = Sha256(pictures::ReadFile(item.output, batch_.reading.limits));
  return batch_.manifest->TakeOver(index, item, input_hash, output_hash);
}

/// Reads the input; nothing when there is nothing to do.
std::optional<Picture> Runner::Load(size_t index, std::string& input_hash) {
  const BatchItem& item = batch_.items[index];
  const std::string& name = item.input;
  pictures::ByteSource file(name, batch_.reading.limits);
  pictures::Recognise(file, name, batch_.reading);
  if (batch_.manifest != nullptr) input_hash = Sha256(file.All());
  if (batch_.resume && IsUpToDate(index, input_hash)) return {};
  return DecodePicture(file, name, batch_.reading,
                       [&](const Shape& shape) { batch_.forecaster.Of(item, shape); });
}

void Runner::Make(size_t index, ItemResult& result) {
  const BatchItem& item = batch_.items[index];
  pictures::CheckReplaceable(item.output, batch_.replace);
  const auto start = std::chrono::steady_clock::now();
  std::string input_hash;
  std::optional<Picture> picture = Load(index, input_hash);
  if (!picture) {
    result.status = ItemResult::Status::kSkipped;
    return;
  }
  using Clock = std::chrono::steady_clock;
  const auto since = [](Clock::time_point from) {
    return std::chrono::duration<double>(Clock::now() - from).count();
  };
  PictureTimes times;
  times.reading = since(start);
  times.steps.resize(batch_.steps.size());
  times.megapixels = 1e-6 * picture->image->width() * picture->image->height();
  for (const std::string& note : SurprisesOf(batch_.steps, ShapeOf(*picture->image))) {
    PrintNoteOnce(note);
  }
  std::vector<std::string> notes;
  picture->image = batch_.session.Run(batch_.steps, std::move(picture->image),
                                      batch_.second_pictures, notes, times.steps);
  PrintNotes(item.input, notes);
  const Clock::time_point encoding = Clock::now();
  const std::vector<uint8_t> bytes =
      EncodeImage(item.output, *picture->image, picture->metadata, batch_.writing);
  picture.reset();
  const std::string output_hash = batch_.manifest != nullptr ? Sha256(bytes) : "";
  const Gate gate = PassGate();
  if (batch_.manifest != nullptr) {
    batch_.manifest->RecordStarted(item, input_hash, output_hash);
  }
  if (item.output == "-") {
    WriteToStandardOutput(bytes);
  } else {
    pictures::WriteFileAtomically(item.output, bytes, batch_.replace);
  }
  if (batch_.manifest != nullptr) {
    batch_.manifest->RecordDone(index, item, input_hash, output_hash);
  }
  times.writing = since(encoding);
  if (batch_.stats != nullptr) batch_.stats->Add(times);
}

ItemResult Runner::Try(size_t index) {
  ItemResult result;
  try {
    Make(index, result);
  } catch (const std::exception& error) {
    result = FailureOf(batch_.items[index].input, error);
  }
  return result;
}

void Runner::Report(size_t index, const ItemResult& result) {
  const BatchItem& item = batch_.items[index];
  const Gate gate = PassGate();
  const std::lock_guard lock(report_mutex_);
  if (result.status == ItemResult::Status::kFailed) {
    PrintMessage(result.reason);
    if (batch_.manifest != nullptr) batch_.manifest->RecordFailed(index, item, result.reason);
  }
  totals_.Add(result);
  batch_.progress.Finished(item, result, totals_);
}

void Runner::Work() {
  for (size_t index = next_++; index < batch_.items.size(); index = next_++) {
    Report(index, Try(index));
  }
  if (--running_ == 0) all_done_.Set();
}

BatchTotals Runner::Totals() {
  const std::lock_guard lock(report_mutex_);
  return totals_;
}

void Runner::Leave() {
  leaving_ = true;
  const std::unique_lock gate(gate_);
  const BatchTotals totals = Totals();
  batch_.progress.End(totals, true);
  PrintMessage("interrupted with " + std::to_string(totals.Finished()) + " of " +
               std::to_string(totals.files) + " files finished");
  try {
    if (batch_.manifest != nullptr) batch_.manifest->Finish();
  } catch (const std::exception& error) {
    PrintMessage(MessageOf(error));
  }
  std::_Exit(kInterrupted);
}

ExitCode Runner::Run(int jobs, const Interruption& interruption) {
  const int threads = static_cast<int>(std::min(totals_.files, static_cast<size_t>(jobs)));
  batch_.progress.Start(totals_, threads);
  running_ = threads;
  std::vector<std::jthread> workers;
  for (int i = 0; i < threads; ++i) {
    try {
      workers.emplace_back([this] { Work(); });
    } catch (const std::system_error& error) {
      if (i == 0) {
        throw Failure(kModuleFault, std::string("no thread can be started: ") + error.what());
      }
      PrintMessage("note: only " + std::to_string(i) + " of " + std::to_string(threads) +
                   " threads could be started: " + error.what());
      if ((running_ -= threads - i) == 0) all_done_.Set();
      break;
    }
  }
  while (threads > 0) {
    pollfd waiting[] = {{interruption.descriptor(), POLLIN, 0},
                        {all_done_.descriptor(), POLLIN, 0}};
    if (poll(waiting, std::size(waiting), kTickMilliseconds) == 0) {
      const std::lock_guard lock(report_mutex_);
      batch_.progress.Tick(totals_);
    }
    if (waiting[0].revents != 0) Leave();
    if (waiting[1].revents != 0) break;
  }
  workers.clear();
  batch_.progress.End(totals_, false);
  if (batch_.manifest != nullptr) batch_.manifest->Finish();
  if (totals_.failed > 0 && totals_.files > 1) {
    PrintMessage(
        std::to_string(totals_.failed) + " of " + std::to_string(totals_.files) + " files failed",
        Tone::kAlarm);
  }
  return totals_.Code();
}

}  // namespace

ExitCode RunBatch(const Batch& batch, int jobs, const Interruption& interruption) {
  return Runner(batch).Run(jobs, interruption);
}

}  // namespace qel::cli
