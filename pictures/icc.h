#ifndef QEL_PICTURES_ICC_H_
#define QEL_PICTURES_ICC_H_

#include <cstdint>
#include <span>
#include <string>

namespace qel::pictures {

/// The description of a colour profile in UTF-8, such as "sRGB IEC61966-2.1"; "unnamed" when it has
/// none that can be read.
std::string ProfileName(std::span<const uint8_t> profile);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_ICC_H_
