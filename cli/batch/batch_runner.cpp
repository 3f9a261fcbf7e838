#include "cli/batch/batch_runner.h"

#include <fmt/core.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <system_error>
#include <thread>

#include "cli/session/sha256.h"
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
  void Work(std::atomic<double>& share);
  ItemResult Try(size_t index, std::atomic<double>& share);
  int ThreadsFor(size_t index) const;
  void Make(size_t index, std::atomic<double>& share, ItemResult& result);
  void Finish(size_t index, const std::string& input_hash, const std::function<std::string()>& hash,
              const std::function<void()>& commit, PictureTimes& times);
  pictures::AtomicFile& OpenOutput(const std::string& path);
  void CloseOutput(const pictures::AtomicFile& file);
  bool IsUpToDate(size_t index, const std::string& input_hash);
  void Report(size_t index, const ItemResult& result);
  BatchTotals Totals();
  [[noreturn]] void Leave();

  const Batch& batch_;
  std::atomic<size_t> next_{0};
  int jobs_ = 1;
  std::atomic<int> running_{0};
  std::atomic<int> working_{0};              ///< pictures at this moment
  std::vector<std::atomic<double>> shares_;  ///< by thread: how much of its picture is done
  std::mutex outputs_mutex_;
  std::list<pictures::AtomicFile> outputs_;  ///< that are being written
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
  const std::string output_hash = HashOfFile(item.output, batch_.tools.reading.limits);
  return batch_.manifest->TakeOver(index, item, input_hash, output_hash);
}

/// How many threads work on a picture that is begun now.
int Runner::ThreadsFor(size_t index) const {
  if (batch_.threads > 0) return batch_.threads;
  const size_t at_once = std::min(static_cast<size_t>(jobs_),
                                  batch_.items.size() - index + static_cast<size_t>(working_ - 1));
  return std::max(1, jobs_ / static_cast<int>(std::max<size_t>(at_once, 1)));
}

pictures::AtomicFile& Runner::OpenOutput(const std::string& path) {
  const std::lock_guard lock(outputs_mutex_);
  return outputs_.emplace_back(path, batch_.replace);
}

void Runner::CloseOutput(const pictures::AtomicFile& file) {
  const std::lock_guard lock(outputs_mutex_);
  outputs_.remove_if([&](const pictures::AtomicFile& each) { return &each == &file; });
}

void Runner::Make(size_t index, std::atomic<double>& share, ItemResult& result) {
  const BatchItem& item = batch_.items[index];
  const JobTools& tools = batch_.tools;
  PictureTimes times;
  times.steps.resize(tools.forecaster.steps.size());
  pictures::ByteSource file(item.input, tools.reading.limits);
  std::string input_hash;
  if (batch_.manifest != nullptr) {
    pictures::Recognise(file, item.input, tools.reading);
    input_hash = Sha256(file);
    if (batch_.resume && IsUpToDate(index, input_hash)) {
      result.status = ItemResult::Status::kSkipped;
      return;
    }
  }
  pictures::CheckReplaceable(item.output, batch_.replace);
  PictureJob job(tools, item, file, ThreadsFor(index));
  times.megapixels = 1e-6 * job.source().width * job.source().height;
  for (const std::string& note : SurprisesOf(tools.forecaster.steps, job.source())) {
    PrintNoteOnce(note);
  }
  const auto progress = [&](double done) { share = done; };
  if (item.output == "-") {
    pictures::MemorySink bytes;
    job.Run(bytes, times, progress);
    Finish(
        index, input_hash, [&] { return Sha256(bytes.file); },
        [&] { WriteToStandardOutput(bytes.file); }, times);
    return;
  }
  pictures::AtomicFile& output = OpenOutput(item.output);
  try {
    job.Run(output, times, progress);
    Finish(
        index, input_hash, [&] { return Sha256(output); }, [&] { output.Commit(); }, times);
  } catch (...) {
    CloseOutput(output);
    throw;
  }
  CloseOutput(output);
}

/// Gives an output that is complete its name.
void Runner::Finish(size_t index, const std::string& input_hash,
                    const std::function<std::string()>& hash, const std::function<void()>& commit,
                    PictureTimes& times) {
  const BatchItem& item = batch_.items[index];
  const auto start = std::chrono::steady_clock::now();
  const std::string output_hash = batch_.manifest != nullptr ? hash() : "";
  const Gate gate = PassGate();
  if (batch_.manifest != nullptr) {
    batch_.manifest->RecordStarted(item, input_hash, output_hash);
  }
  commit();
  if (batch_.manifest != nullptr) {
    batch_.manifest->RecordDone(index, item, input_hash, output_hash);
  }
  times.writing += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (batch_.stats != nullptr) batch_.stats->Add(times);
}

ItemResult Runner::Try(size_t index, std::atomic<double>& share) {
  ItemResult result;
  ++working_;
  try {
    Make(index, share, result);
  } catch (const std::exception& error) {
    result = FailureOf(batch_.items[index].input, error);
  }
  --working_;
  share = 0;
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

void Runner::Work(std::atomic<double>& share) {
  for (size_t index = next_++; index < batch_.items.size(); index = next_++) {
    Report(index, Try(index, share));
  }
  if (--running_ == 0) all_done_.Set();
}

BatchTotals Runner::Totals() {
  const std::lock_guard lock(report_mutex_);
  BatchTotals totals = totals_;
  for (const std::atomic<double>& share : shares_) totals.partly += share;
  return totals;
}

void Runner::Leave() {
  leaving_ = true;
  const std::unique_lock gate(gate_);
  const std::unique_lock outputs(outputs_mutex_);
  for (const pictures::AtomicFile& output : outputs_) output.Abandon();
  const BatchTotals totals = Totals();
  batch_.progress.End(totals, true);
  PrintMessage("interrupted with {} of {} files finished", totals.Finished(), totals.files);
  try {
    if (batch_.manifest != nullptr) batch_.manifest->Finish(true);
  } catch (const std::exception& error) {
    PrintMessage(MessageOf(error));
  }
  std::_Exit(kInterrupted);
}

ExitCode Runner::Run(int jobs, const Interruption& interruption) {
  const int threads = static_cast<int>(std::min(totals_.files, static_cast<size_t>(jobs)));
  batch_.progress.Start(totals_, threads);
  jobs_ = jobs;
  running_ = threads;
  shares_ = std::vector<std::atomic<double>>(static_cast<size_t>(threads));
  std::vector<std::jthread> workers;
  for (int i = 0; i < threads; ++i) {
    try {
      workers.emplace_back([this, i] { Work(shares_[static_cast<size_t>(i)]); });
    } catch (const std::system_error& error) {
      if (i == 0) {
        throw Failure(kModuleFault, "no thread can be started: {}", error.what());
      }
      PrintMessage("note: only {} of {} threads could be started: {}", i, threads, error.what());
      if ((running_ -= threads - i) == 0) all_done_.Set();
      break;
    }
  }
  while (threads > 0) {
    pollfd waiting[] = {{interruption.descriptor(), POLLIN, 0},
                        {all_done_.descriptor(), POLLIN, 0}};
    if (poll(waiting, std::size(waiting), kTickMilliseconds) == 0) {
      const BatchTotals totals = Totals();
      const std::lock_guard lock(report_mutex_);
      batch_.progress.Tick(totals);
    }
    if (waiting[0].revents != 0) Leave();
    if (waiting[1].revents != 0) break;
  }
  workers.clear();
  batch_.progress.End(totals_, false);
  if (batch_.manifest != nullptr) batch_.manifest->Finish(false);
  if (totals_.failed > 0 && totals_.files > 1) {
    PrintMessage(fmt::format("{} of {} files failed", totals_.failed, totals_.files), Tone::kAlarm);
  }
  return totals_.Code();
}

}  // namespace

ExitCode RunBatch(const Batch& batch, int jobs, const Interruption& interruption) {
  return Runner(batch).Run(jobs, interruption);
}

}  // namespace qel::cli
