#ifndef QEL_PICTURES_TEXT_BLOCKS_H_
#define QEL_PICTURES_TEXT_BLOCKS_H_

#include <string>
#include <vector>

#include "pictures/byte_reader.h"

namespace qel::pictures {

// XMP is text, edited by the names of its properties with the prefixes that all writers use.

/// States that the picture is upright, and leaves out small pictures of it.
void MakeXmpUpright(std::string& xmp);
/// Corrects the sides where they are stated.
void SetXmpSize(std::string& xmp, int width, int height);
/// Leaves out where the picture was taken.
void DropXmpPlaces(std::string& xmp);

/// IPTC datasets without those that name places.
std::vector<uint8_t> WithoutIptcPlaces(Bytes iptc);

/// The IPTC datasets in a block of resources, as JPEG files have it; may be empty.
Bytes IptcOfResources(Bytes resources);
/// A block of resources with nothing but these datasets.
std::vector<uint8_t> ResourcesOfIptc(Bytes iptc);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_TEXT_BLOCKS_H_
