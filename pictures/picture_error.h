#ifndef QEL_PICTURES_PICTURE_ERROR_H_
#define QEL_PICTURES_PICTURE_ERROR_H_

#include <stdexcept>
#include <string>

namespace qel::pictures {

/// A picture file could not be read or written. The message names the file, what was wrong, and
/// what would be right.
class PictureError : public std::runtime_error {
 public:
  enum class Kind {
    kNotReadable,    ///< no such file, or no permission
    kUnknownFormat,  ///< content or extension of no format that we know
    kBroken,         ///< truncated or damaged content
    kTooLarge,       ///< beyond the limits
    kUnsupported,    ///< a variety of the format that we do not read
    kDoesNotFit,     ///< the output format cannot hold this picture
    kNotWritable,    ///< the output cannot be written
  };

  PictureError(Kind kind, const std::string& file, const std::string& what)
      : std::runtime_error(file + ": " + what), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// A file that ends too early, or may do so: with more of it the answer could be another.
class TruncatedPicture : public PictureError {
 public:
  TruncatedPicture(const std::string& file, const std::string& what)
      : PictureError(Kind::kBroken, file, what) {}
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PICTURE_ERROR_H_
