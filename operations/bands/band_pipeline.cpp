#include "operations/bands/band_pipeline.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

#include "operations/bands/band_reader.h"
#include "operations/bands/image_rows.h"

namespace qel::operations {
namespace {

/// Second pictures cut to the rows of a band.
class PictureBands final : public PictureSource {
 public:
  PictureBands(PictureSource& pictures, IComponentCollection& host, RowRange rows)
      : pictures_(pictures), host_(host), rows_(rows) {}

  IQEL& Get(const std::string& name) override {
    SmartPtr<IQEL>& band = bands_[name];
    if (!band) band = Cut(pictures_.Get(name));
    return *band.Get();
  }

 private:
  SmartPtr<IQEL> Cut(IQEL& picture) const {
    const Shape shape = ShapeOf(picture);
    if (rows_ == RowRange{0, shape.height}) return SmartPtr<IQEL>::Retain(&picture);
    SmartPtr<IQELImageDIB> band;
    host_.CreateComponent(RefString(kImageComponentName), &IID_IQELImageDIB, band.PutVoid());
    if (!band || Failed(band->Create(shape.width, rows_.size(), 1, shape.bits, shape.model))) {
      throw std::bad_alloc();
    }
    CopyRows(picture, rows_.begin, *band.Get(), 0, rows_.size());
    return SmartPtr<IQEL>::Adopt(band.Detach());
  }

  PictureSource& pictures_;
  IComponentCollection& host_;
  const RowRange rows_;
  std::map<std::string, SmartPtr<IQEL>> bands_;
};

}  // namespace

/// One run of a pipeline.
class BandWork {
 public:
  BandWork(BandPipeline& pipeline, BandSource& source, BandSink& sink, int threads,
           std::vector<StepRecord>& records);

  void Run(int threads);

 private:
  /// A band of the result, or the top-left pixel of the picture before a step that looks outside.
  struct Item {
    std::vector<RowRange> rows;  ///< of the pictures before its steps, and after the last
    std::optional<size_t> corner_of = {};
    size_t number = 0;  ///< of a band
  };
  struct Loaded {
    const Item* item;
    SmartPtr<IQEL> image;
  };
  /// A band of the result: `rows` of `image`.
  struct Made {
    SmartPtr<IQEL> image;
    RowRange rows;
  };
  using Lock = std::unique_lock<std::mutex>;

  void ListItems(int band_rows);
  size_t StepsOf(const Item& item) const { return item.rows.size() - 1; }

  void Work();
  bool DoSomething(Lock& lock);
  void ReadNext(Lock& lock);
  void RunOne(Lock& lock, Loaded loaded);
  void WriteNext(Lock& lock);
  bool CornersAreKnown(const Item& item) const;

  Made RunSteps(const Item& item, SmartPtr<IQEL> image, std::vector<StepRecord>& records);
  void AddRecords(const std::vector<StepRecord>& records);

  const BandPipeline& pipeline_;
  const BandPlan& plan_;
  const Stretch stretch_;
  BandSink& sink_;
  std::vector<Item> items_;
  size_t bands_ = 0;
  const size_t most_in_flight_;

  std::optional<BandReader> reader_;  ///< of the thread that has set `reading_`

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<StepRecord>& records_;
  std::vector<std::optional<Corner>> corners_;  ///< by step of the stretch
  std::deque<Loaded> loaded_;
  std::map<size_t, Made> made_;  ///< by number of the band
  size_t next_item_ = 0;
  size_t next_band_ = 0;
  size_t in_flight_ = 0;
  bool reading_ = false;
  bool writing_ = false;
  std::exception_ptr fault_;
};

BandWork::BandWork(BandPipeline& pipeline, BandSource& source, BandSink& sink, int threads,
                   std::vector<StepRecord>& records)
    : pipeline_(pipeline),
      plan_(pipeline.plan_),
      stretch_(pipeline.stretch_),
      sink_(sink),
      most_in_flight_(BandPipeline::MostInFlight(threads)),
      records_(records),
      corners_(stretch_.end - stretch_.begin) {
  ListItems(pipeline.band_rows_);
  std::vector<RowRange> rows;
  for (const Item& item : items_) rows.push_back(item.rows.front());
  reader_.emplace(source, std::move(rows), plan_.ShapeBefore(stretch_.begin).height,
                  stretch_.looks_everywhere);
}

/// A band that begins below the top of a picture before a step that looks outside needs that
/// picture's corner. Corners come first: few rows are kept for the first band then.
void BandWork::ListItems(int band_rows) {
  const int height = plan_.ShapeBefore(stretch_.end).height;
  std::vector<Item> bands;
  for (int begin = 0; begin < height; begin += std::min(band_rows, height - begin)) {
    const RowRange result{begin, begin + std::min(band_rows, height - begin)};
    bands.push_back({plan_.RowsFor(stretch_.begin, stretch_.end, result), {}, bands_++});
  }
  // The reader has the corner of the first picture.
  for (size_t i = 1; i < corners_.size(); ++i) {
    if (!plan_.LooksOutside(stretch_.begin + i)) continue;
    const bool needed =
        std::ranges::any_of(bands, [&](const Item& band) { return band.rows[i].begin > 0; });
    if (needed) items_.push_back({plan_.RowsFor(stretch_.begin, stretch_.begin + i, {0, 1}), i});
  }
  std::ranges::move(bands, std::back_inserter(items_));
}

void BandWork::Run(int threads) {
  {
    std::vector<std::jthread> helpers;
    const auto wanted = std::min(static_cast<size_t>(threads), items_.size());
    try {
      while (helpers.size() + 1 < wanted) helpers.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // Fewer threads do the same.
    }
    Work();
  }
  if (fault_) std::rethrow_exception(fault_);
}

void BandWork::Work() {
  Lock lock(mutex_);
  while (!fault_ && next_band_ < bands_) {
    try {
      if (!DoSomething(lock)) changed_.wait(lock);
    } catch (...) {
      if (!lock.owns_lock()) lock.lock();
      if (!fault_) fault_ = std::current_exception();
      changed_.notify_all();
    }
  }
}

/// What is nearest to the end comes first: it frees memory.
bool BandWork::DoSomething(Lock& lock) {
  if (!writing_ && made_.contains(next_band_)) {
    WriteNext(lock);
    return true;
  }
  const auto ready = std::ranges::find_if(
      loaded_, [&](const Loaded& loaded) { return CornersAreKnown(*loaded.item); });
  if (ready != loaded_.end()) {
    Loaded loaded = std::move(*ready);
    loaded_.erase(ready);
    RunOne(lock, std::move(loaded));
    return true;
  }
  if (!reading_ && next_item_ < items_.size() && in_flight_ < most_in_flight_) {
    ReadNext(lock);
    return true;
  }
  return false;
}

bool BandWork::CornersAreKnown(const Item& item) const {
  for (size_t i = 0; i < StepsOf(item); ++i) {
    const bool needed = item.rows[i].begin > 0 && plan_.LooksOutside(stretch_.begin + i);
    if (needed && !corners_[i]) return false;
  }
  return true;
}

void BandWork::ReadNext(Lock& lock) {
  const size_t index = next_item_++;
  reading_ = true;
  ++in_flight_;
  lock.unlock();
  SmartPtr<IQEL> image = reader_->ReadNext();
  lock.lock();
  reading_ = false;
  // Once: threads at work look at it without the lock.
  if (!corners_.empty() && !corners_[0]) corners_[0] = reader_->corner();
  loaded_.push_back({&items_[index], std::move(image)});
  changed_.notify_all();
}

void BandWork::RunOne(Lock& lock, Loaded loaded) {
  lock.unlock();
  std::vector<StepRecord> records(StepsOf(*loaded.item));
  Made made = RunSteps(*loaded.item, std::move(loaded.image), records);
  lock.lock();
  if (loaded.item->corner_of) {
    corners_[*loaded.item->corner_of].emplace(*made.image.Get(), made.rows.begin);
    --in_flight_;
  } else {
    AddRecords(records);
    made_.emplace(loaded.item->number, std::move(made));
  }
  changed_.notify_all();
}

void BandWork::WriteNext(Lock& lock) {
  auto node = made_.extract(next_band_);
  writing_ = true;
  lock.unlock();
  sink_.TakeRows(*node.mapped().image.Get(), node.mapped().rows);
  node.mapped().image.Reset();
  lock.lock();
  writing_ = false;
  --in_flight_;
  ++next_band_;
  changed_.notify_all();
}

BandWork::Made BandWork::RunSteps(const Item& item, SmartPtr<IQEL> image,
                                  std::vector<StepRecord>& records) {
  using Clock = std::chrono::steady_clock;
  int first_row = stretch_.looks_everywhere ? 0 : item.rows.front().begin;
  const auto place = [&](size_t i) {
    return RowRange{item.rows[i].begin - first_row, item.rows[i].end - first_row};
  };
  Transparency transparency = TransparencyOf(*image.Get(), place(0));
  for (size_t i = 0; i < records.size(); ++i) {
    const Clock::time_point start = Clock::now();
    const Step& step = plan_.steps()[stretch_.begin + i];
    if (first_row > 0 && plan_.LooksOutside(stretch_.begin + i)) corners_[i]->PutInto(*image.Get());
    const Band band{plan_.ShapeBefore(stretch_.begin + i), first_row, item.rows[i + 1]};
    const int height = ShapeOf(*image.Get()).height;
    PictureBands bands(pipeline_.pictures_, pipeline_.engine_.host(),
                       {first_row, first_row + height});
    PictureSource& pictures = step.operation->composed() ? pipeline_.pictures_ : bands;
    const IQEL* const before = image.Get();
    image = pipeline_.engine_.RunOnBand(step, band, std::move(image), pictures, records[i].notes);
    const bool is_new = image.Get() != before;
    if (is_new && step.operation->source_rows != nullptr) first_row = item.rows[i + 1].begin;
    records[i].seconds = std::chrono::duration<double>(Clock::now() - start).count();
    records[i].before = transparency;
    records[i].after = transparency = TransparencyOf(*image.Get(), place(i + 1));
  }
  return {std::move(image), place(records.size())};
}

void BandWork::AddRecords(const std::vector<StepRecord>& records) {
  for (size_t i = 0; i < records.size(); ++i) {
    records_[stretch_.begin + i].Add(records[i]);
  }
}

void StepRecord::Add(const StepRecord& other) {
  before = before ? Both(*before, *other.before) : other.before;
  after = after ? Both(*after, *other.after) : other.after;
  seconds += other.seconds;
  for (const std::string& note : other.notes) {
    if (std::ranges::find(notes, note) == notes.end()) notes.push_back(note);
  }
}

BandPipeline::BandPipeline(const Engine& engine, const BandPlan& plan, const Stretch& stretch,
                           PictureSource& pictures, int band_rows)
    : engine_(engine), plan_(plan), stretch_(stretch), pictures_(pictures), band_rows_(band_rows) {}

void BandPipeline::Run(BandSource& source, BandSink& sink, int threads,
                       std::vector<StepRecord>& records) {
  BandWork(*this, source, sink, threads, records).Run(threads);
}

}  // namespace qel::operations
