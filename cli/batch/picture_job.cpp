#include "cli/batch/picture_job.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "operations/transparency.h"

namespace qel::cli {
namespace {

using operations::RowRange;
using operations::StepRecord;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Every image of the tool comes from its own collection.
host::HostImage& AsHostImage(IQEL& image) { return static_cast<host::HostImage&>(image); }

SmartPtr<IQEL> AsInterface(SmartPtr<host::HostImage> image) {
  return SmartPtr<IQEL>::Adopt(static_cast<IQEL*>(image.Detach()));
}

}  // namespace

/// Rows as they are decoded.
class PictureJob::FileSource final : public operations::BandSource {
 public:
  FileSource(const PictureJob& job, double& seconds) : job_(job), seconds_(seconds) {}

  IQEL* Whole() override { return nullptr; }
  SmartPtr<IQEL> NewImage(int rows) override {
    SmartPtr<host::HostImage> image = MakeImage(job_.source().width, rows, job_.source().bits);
    image->SetPalette(ToHostPalette(job_.reader_->info().palette));
    return AsInterface(std::move(image));
  }
  void FillRows(IQEL& image, int at, int count) override {
    const Clock::time_point start = Clock::now();
    host::HostImage& rows = AsHostImage(image);
    job_.reader_->Read({rows.Row(at), rows.stride()}, count);
    seconds_ += SecondsSince(start);
  }

 private:
  const PictureJob& job_;
  double& seconds_;
};

/// Rows of an image.
class PictureJob::ImageSource final : public operations::BandSource {
 public:
  explicit ImageSource(SmartPtr<host::HostImage> image) : image_(std::move(image)) {}

  IQEL* Whole() override { return image_.Get(); }
  SmartPtr<IQEL> NewImage(int rows) override {
    SmartPtr<host::HostImage> image = MakeImage(image_->width(), rows, image_->bit_count());
    image->SetPalette(image_->palette());
    return AsInterface(std::move(image));
  }
  void FillRows(IQEL&, int, int) override {}

 private:
  const SmartPtr<host::HostImage> image_;
};

/// Rows that are encoded.
class PictureJob::FileSink final : public operations::BandSink {
 public:
  FileSink(const PictureJob& job, pictures::ByteSink& sink, double& seconds,
           const Progress& progress)
      : job_(job), sink_(sink), seconds_(seconds), progress_(progress) {}

  void TakeRows(IQEL& image, RowRange rows) override {
    const Clock::time_point start = Clock::now();
    const host::HostImage& from = AsHostImage(image);
    const Shape& shape = job_.forecast_.shape();
    const std::vector<pictures::PaletteEntry> palette = ToFilePalette(from.palette());
    pictures::PictureView view{nullptr, 0, shape.width, shape.height, from.bit_count(), palette};
    if (writer_ == nullptr) {
      pictures::WriteOptions options = job_.tools_.writing;
      options.threads = job_.threads_;
      writer_ = pictures::WriteByRows(sink_, job_.item_.output, view, job_.reader_->info().metadata,
                                      options);
    }
    view.bits = from.Row(rows.begin);
    view.stride = from.stride();
    view.height = rows.size();
    writer_->Write(view);
    seconds_ += SecondsSince(start);
    progress_(static_cast<double>(writer_->rows_written()) / shape.height);
  }

  std::vector<std::string> FinishFile() {
    const Clock::time_point start = Clock::now();
    std::vector<std::string> notes = writer_->Finish();
    seconds_ += SecondsSince(start);
    return notes;
  }

 private:
  const PictureJob& job_;
  pictures::ByteSink& sink_;
  double& seconds_;
  const Progress& progress_;
  std::unique_ptr<pictures::RowWriter> writer_;
};

/// Rows that become an image.
class PictureJob::ImageSink final : public operations::BandSink {
 public:
  explicit ImageSink(int height) : height_(height) {}

  void TakeRows(IQEL& image, RowRange rows) override {
    const host::HostImage& from = AsHostImage(image);
    if (!image_) {
      image_ = MakeImage(from.width(), height_, from.bit_count());
      image_->SetPalette(from.palette());
    }
    for (int y = rows.begin; y < rows.end; ++y, ++next_row_) {
      std::memcpy(image_->Row(next_row_), from.Row(y), static_cast<size_t>(from.RowBytes()));
    }
  }
  SmartPtr<host::HostImage> Take() { return std::move(image_); }

 private:
  const int height_;
  int next_row_ = 0;
  SmartPtr<host::HostImage> image_;
};

PictureJob::PictureJob(const JobTools& tools, const BatchItem& item, pictures::ByteSource& file,
                       int threads)
    : tools_(tools),
      item_(item),
      threads_(threads),
      reader_(pictures::OpenRows(file, item.input, tools.reading)),
      forecast_(
          tools.forecaster.Of(item, ShapeOf(reader_->info()), RowTraffic::Of(*reader_), threads)),
      records_(tools.forecaster.steps.size()) {}

void PictureJob::Run(pictures::ByteSink& sink, PictureTimes& times, const Progress& progress) {
  FileSink target(*this, sink, times.writing, progress);
  std::optional<operations::RandomNumbers> random_numbers;
  for (const Passage& passage : forecast_.passages) {
    if (!passage.from_file && !image_) ReadWhole(times);
    if (passage.by_bands) {
      RunBands(passage, target, times);
      continue;
    }
    for (size_t i = passage.stretch.begin; i < passage.stretch.end; ++i) {
      // From the first random step to the last, whatever other pictures draw.
      const bool random = forecast_.plan.steps()[i].operation->random;
      if (random && !random_numbers) random_numbers.emplace();
      RunWhole(i);
    }
  }
  random_numbers.reset();
  if (image_) {
    target.TakeRows(*image_.Get(), {0, image_->height()});
    image_.Reset();
  }
  const std::vector<std::string> writer_notes = target.FinishFile();
  for (size_t i = 0; i < records_.size(); ++i) times.steps[i] = records_[i].seconds;
  PrintAll(writer_notes);
}

void PictureJob::ReadWhole(PictureTimes& times) {
  const Clock::time_point start = Clock::now();
  image_ = MakeImage(source().width, source().height, source().bits);
  reader_->Read({image_->Bits(), image_->stride()}, image_->height());
  image_->SetPalette(ToHostPalette(reader_->info().palette));
  times.reading += SecondsSince(start);
}

void PictureJob::RunWhole(size_t index) {
  const Clock::time_point start = Clock::now();
  StepRecord& record = records_[index];
  record.before = operations::TransparencyOf(*image_.Get());
  SmartPtr<IQEL> result =
      tools_.session.engine().RunStep(forecast_.plan.steps()[index], AsInterface(std::move(image_)),
                                      tools_.second_pictures, record.notes);
  image_ = SmartPtr<host::HostImage>::Retain(&AsHostImage(*result.Get()));
  record.seconds = SecondsSince(start);
  record.after = operations::TransparencyOf(*image_.Get());
}

void PictureJob::RunBands(const Passage& passage, FileSink& target, PictureTimes& times) {
  const operations::BandPlan& plan = forecast_.plan;
  operations::BandPipeline pipeline(tools_.session.engine(), plan, passage.stretch,
                                    tools_.second_pictures, passage.band_rows);
  FileSource from_file(*this, times.reading);
  ImageSource from_image(std::move(image_));
  ImageSink to_image(plan.ShapeBefore(passage.stretch.end).height);
  operations::BandSource* const source =
      passage.from_file ? static_cast<operations::BandSource*>(&from_file) : &from_image;
  operations::BandSink* const sink =
      passage.to_file ? static_cast<operations::BandSink*>(&target) : &to_image;
  pipeline.Run(*source, *sink, passage.threads, records_);
  image_ = to_image.Take();
}

void PictureJob::PrintAll(const std::vector<std::string>& writer_notes) const {
  PrintNotes(item_.input, reader_->info().notes);
  std::vector<std::string> notes;
  for (size_t i = 0; i < records_.size(); ++i) {
    const StepRecord& record = records_[i];
    notes.insert(notes.end(), record.notes.begin(), record.notes.end());
    std::string note = operations::TransparencyNote(*forecast_.plan.steps()[i].operation,
                                                    *record.before, *record.after);
    if (!note.empty()) notes.push_back(std::move(note));
  }
  PrintNotes(item_.input, notes);
  PrintNotes(item_.output, writer_notes);
}

}  // namespace qel::cli
