// Formats whose libraries are large and may be missing: each is read by a plug-in of its own, which
// is loaded when the first such file is met.

#include <dlfcn.h>
#include <fmt/core.h>

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include "pictures/codec.h"
#include "pictures/format_plugin.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {
namespace {

constexpr char kPackage[] = "qel-formats-extra";

/// The plug-ins that were asked for, loaded or not. They stay: unloading codecs saves nothing.
class Plugins {
 public:
  static Plugins& Instance() {
    static auto* const plugins = new Plugins();
    return *plugins;
  }

  void SetFolder(const std::string& folder) {
    const std::lock_guard lock(mutex_);
    folder_ = folder;
  }

  /// The plug-in of a name. Throws with the reason when it cannot be had.
  const QelFormatPlugin& Get(const Input& input, const std::string& name, const char* format) {
    const std::lock_guard lock(mutex_);
    const auto [found, is_new] = loaded_.try_emplace(name);
    if (is_new) found->second = Load(fmt::format("{}/{}.so", folder_, name));
    if (found->second.plugin != nullptr) return *found->second.plugin;
    input.Unsupported(
        "reading {} takes the package {}, which is not installed or does not fit ({})", format,
        kPackage, found->second.reason);
  }

 private:
  struct Loaded {
    const QelFormatPlugin* plugin = nullptr;
    std::string reason;
  };

  static Loaded Load(const std::string& path) {
    // Never by a name that the loader would look for elsewhere.
    if (path.front() != '/') return {nullptr, "no folder of plug-ins is known"};
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return {nullptr, dlerror()};
    const auto entry =
        reinterpret_cast<QelFormatPluginEntryFunction>(dlsym(library, "QelFormatPluginEntry"));
    const QelFormatPlugin* const plugin = entry == nullptr ? nullptr : entry();
    if (plugin == nullptr || plugin->version != kQelFormatPluginVersion) {
      return {nullptr, fmt::format("{} is of another version", path)};
    }
    return {plugin, {}};
  }

  std::mutex mutex_;
  std::string folder_;
  std::map<std::string, Loaded> loaded_;
};

class PluginDecoder final : public RowDecoder {
 public:
  PluginDecoder(const Input& input, Format format, const std::string& plugin_name,
                const char* format_name)
      : input_(input),
        format_name_(format_name),
        plugin_(Plugins::Instance().Get(input, plugin_name, format_name)),
        handle_(nullptr, plugin_.close) {
    const Bytes file = input.source.All();
    QelPluginPicture picture{};
    QelPluginError error{};
    handle_.reset(plugin_.open(file.data(), file.size(), input.options.upright, &picture, &error));
    if (handle_ == nullptr) Fail(error);
    CheckSize(input, picture.width, picture.height);
    input.Plan(picture.working_bytes);
    input.PlanFile();
    streams = false;
    info.format = format;
    info.width = static_cast<int>(picture.width);
    info.height = static_cast<int>(picture.height);
    info.bit_count = picture.has_alpha != 0 ? 32 : 24;
    if (picture.exif != nullptr) {
      Exif exif = ParseExif(Bytes(picture.exif, picture.exif_bytes)).value_or(Exif());
      exif.SetOrientation(static_cast<int>(picture.orientation));
      TakeExif(input, exif, info.metadata);
    }
    if (picture.xmp != nullptr) TakeXmp(input, {picture.xmp, picture.xmp_bytes}, info.metadata);
    if (picture.profile != nullptr) {
      info.metadata.icc_profile.assign(picture.profile, picture.profile + picture.profile_bytes);
    }
    if (picture.was_reduced != 0) info.notes.emplace_back(kReducedNote);
    if (picture.pictures > 1) {
      info.notes.push_back(
          fmt::format("only the main one of {} pictures was read", picture.pictures));
    }
  }

  void Read(const PixelBuffer& rows, int) override {
    QelPluginError error{};
    if (plugin_.decode(handle_.get(), rows.bits, rows.stride, &error) == 0) Fail(error);
  }

 private:
  [[noreturn]] void Fail(const QelPluginError& error) const {
    const std::string reason = error.text[0] != '\0' ? error.text : "its data are damaged";
    if (error.is_unsupported != 0) {
      input_.Unsupported("this kind of {} is not read: {}", format_name_, reason);
    }
    throw TruncatedPicture(input_.name,
                           fmt::format("truncated or damaged {}: {}", format_name_, reason));
  }

  const Input& input_;
  const char* format_name_;
  const QelFormatPlugin& plugin_;
  std::unique_ptr<void, void (*)(void*)> handle_;
};

}  // namespace

void SetPluginFolder(const std::string& folder) { Plugins::Instance().SetFolder(folder); }

bool IsHeif(Bytes file) {
  constexpr size_t kBrandAt = 8, kBrandBytes = 4;
  constexpr std::string_view kBrands = "heic heix heim heis hevc hevx mif1 msf1 avif avis";
  if (file.size() < kBrandAt + kBrandBytes || !StartsWith(file.subspan(4), "ftyp")) return false;
  const std::string_view brand(reinterpret_cast<const char*>(file.data()) + kBrandAt, kBrandBytes);
  return brand.find(' ') == brand.npos && kBrands.find(brand) != kBrands.npos;
}

std::unique_ptr<RowDecoder> OpenHeif(const Input& input) {
  return std::make_unique<PluginDecoder>(input, Format::kHeif, "qel-heif", "HEIC and AVIF");
}

bool IsJxl(Bytes file) {
  constexpr std::array<uint8_t, 12> kContainer{0,   0,   0,    12,   'J',  'X',
                                               'L', ' ', 0x0D, 0x0A, 0x87, 0x0A};
  return StartsWith(file, "\xFF\x0A") ||
         (file.size() >= kContainer.size() &&
          std::equal(kContainer.begin(), kContainer.end(), file.begin()));
}

std::unique_ptr<RowDecoder> OpenJxl(const Input& input) {
  return std::make_unique<PluginDecoder>(input, Format::kJxl, "qel-jxl", "JPEG XL");
}

}  // namespace qel::pictures
