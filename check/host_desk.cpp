#include "check/host_desk.h"

#include "host/host_collection.h"

namespace qel::check {
namespace {

constexpr wchar_t kStringsModule[] = L"Collections";

}  // namespace

HostDesk::HostDesk(const Subject& subject) : subject_(subject) {
  // Sibling modules are found below the working directory, in the folder that this one lies in.
  const std::filesystem::path folder = subject.path().parent_path();
  if (folder.filename() == "_binLIN64") std::filesystem::current_path(folder.parent_path());
  Doing("GlobalComponentCollection");
  const CreationFunction create = subject.library().Find(RefString(kCollectionComponentName));
  Require(create != nullptr, "the library has no such component");
  create(nullptr, &IID_IComponentCollection, collection_.PutVoid());
  Require(static_cast<bool>(collection_), "it is not created with IComponentCollection");
}

SmartPtr<IComponentString> HostDesk::StringLocator() const {
  Doing("CreatableString");
  SmartPtr<IComponentString> locator;
  collection_->CreateComponent(RefString(kStringComponentName), nullptr, locator.PutVoid());
  if (locator) return locator;
  const CreationFunction create = subject_.library().Find(RefString(kLocatorComponentName));
  Require(create != nullptr, "neither the collection nor the library has a locator for strings");
  create(nullptr, &IID_IComponentString, locator.PutVoid());
  Require(static_cast<bool>(locator), "ComponentString does not answer IComponentString");
  locator->SetPart(kLocatorModule, RefString(kStringsModule));
  locator->SetPart(kLocatorComponent, RefString(kStringComponentName));
  return locator;
}

SmartPtr<ICreatableString> HostDesk::MakeString(std::wstring_view text) const {
  SmartPtr<ICreatableString> string;
  StringLocator()->CreateInstance(&IID_ICreatableString, string.PutVoid());
  Require(static_cast<bool>(string), "the locator of strings makes none");
  for (const wchar_t& character : text) string->AppendChars(1, &character);
  return string;
}

SmartPtr<IQELImageDIB> HostDesk::MakeImage() const {
  SmartPtr<IQELImageDIB> image;
  collection_->CreateComponent(RefString(kImageComponentName), &IID_IQELImageDIB, image.PutVoid());
  Require(static_cast<bool>(image), "the collection makes no QELImageDIB with IQELImageDIB");
  return image;
}

SmartPtr<IQELImageDIB> HostDesk::MakeImage(int width, int height, int bit_count) const {
  SmartPtr<IQELImageDIB> image = MakeImage();
  const uint32_t model = bit_count == 32 ? kModelArgb : bit_count == 24 ? kModelBgr : kModelMono;
  Require(Succeeded(image->Create(width, height, 1, bit_count, model)), "Create fails");
  return image;
}

ReportedImage::ReportedImage(IQEL& image) {
  int unread = 0;
  image.GetSize(&width, &height, &planes);
  image.GetFormat(&bit_count, &model, &unread);
  image.GetBits(0, &unread, &bits, &stride);
}

std::string ReportedImage::Pixels() const {
  std::string pixels;
  for (int y = 0; bits != nullptr && y < height; ++y) {
    pixels.append(reinterpret_cast<const char*>(Row(y)), static_cast<size_t>(RowBytes()));
  }
  return pixels;
}

}  // namespace qel::check
