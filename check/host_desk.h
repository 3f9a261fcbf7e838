#ifndef QEL_CHECK_HOST_DESK_H_
#define QEL_CHECK_HOST_DESK_H_

#include "check/counting.h"
#include "check/rule.h"
#include "qel/qel.h"

namespace qel::check {

/// A host's library from the module's side: everything is obtained as the module obtains it.
class HostDesk {
 public:
  /// Throws `Broken` when the library has no collection.
  explicit HostDesk(const Subject& subject);

  IComponentCollection* collection() const { return collection_.Get(); }

  /// The locator of strings: from the collection, else a locator of the library that is told where
  /// strings are made. Throws `Broken`.
  SmartPtr<IComponentString> StringLocator() const;
  SmartPtr<ICreatableString> MakeString(std::wstring_view text = {}) const;
  /// An image through the collection. Throws `Broken`.
  SmartPtr<IQELImageDIB> MakeImage() const;
  SmartPtr<IQELImageDIB> MakeImage(int width, int height, int bit_count) const;

 private:
  const Subject& subject_;
  SmartPtr<IComponentCollection> collection_;
};

/// What an image says of itself, asked through its slots.
struct ReportedImage {
  int width = 0;
  int height = 0;
  int planes = 0;
  int bit_count = 0;
  uint32_t model = 0;
  uint8_t* bits = nullptr;
  int stride = 0;

  explicit ReportedImage(IQEL& image);
  int64_t RowBytes() const { return (int64_t{width} * bit_count + 7) / 8; }
  uint8_t* Row(int64_t y) const { return bits + y * stride; }
  /// All rows without their padding, one after the other.
  std::string Pixels() const;
};

}  // namespace qel::check

#endif  // QEL_CHECK_HOST_DESK_H_
