// Rules about a host's collection, locators and strings.

#include "check/host_desk.h"
#include "host/host_collection.h"

namespace qel::check {
namespace {

constexpr wchar_t kNothing[] = L"NoSuchComponent";

/// Checks the counting of an object that answers `iids`, all from each other.
void RequireObject(IUnknown* object, std::initializer_list<const IID*> iids) {
  const uint32_t before = CountOf(object);
  Require(object->AddRef() == before + 1, "AddRef does not return the new count");
  Require(object->Release() == before, "Release does not return the new count");
  for (const IID* const iid : iids) {
    void* found = nullptr;
    Require(object->QueryInterface(*iid, &found) == kOk && found != nullptr,
            "an interface is not answered");
    Require(CountOf(object) == before + 1, "QueryInterface does not add exactly one reference");
    void* back = nullptr;
    static_cast<IUnknown*>(found)->QueryInterface(IID_IUnknown, &back);
    Require(back != nullptr, "IUnknown is not answered from an interface");
    static_cast<IUnknown*>(back)->Release();
    static_cast<IUnknown*>(found)->Release();
  }
  void* other = &other;
  Require(Failed(object->QueryInterface(__IIDOfc("INobodyKnows"), &other)) && other == nullptr,
          "an unknown interface must fail with a null output");
  Require(CountOf(object) == before, "references are lost or left over");
}

void IsAnObject(Subject& subject) {
  const HostDesk desk(subject);
  RequireObject(desk.collection(), {&IID_IUnknown, &IID_IComponentCollection});
}

void MakesImages(Subject& subject) {
  const HostDesk desk(subject);
  for (const IID* const iid : {&IID_IQELImage, &IID_IQELImageDIB}) {
    SmartPtr<IQELImage> images[2];
    for (SmartPtr<IQELImage>& image : images) {
      desk.collection()->CreateComponent(RefString(kImageComponentName), iid, image.PutVoid());
      Require(static_cast<bool>(image), "QELImageDIB is not made");
      Require(CountOf(image.Get()) == 1, "a new image does not come with one reference");
    }
    Require(images[0].Get() != images[1].Get(), "two creations give one image");
  }
}

void RefusesTheUnknown(Subject& subject) {
  const HostDesk desk(subject);
  void* object = &object;
  result_t result =
      desk.collection()->CreateComponent(RefString(kNothing), &IID_IQELImage, &object);
  Require(Failed(result) && object == nullptr, "an unknown component must fail with null");
  object = &object;
  const IID other = __IIDOfc("INobodyKnows");
  result = desk.collection()->CreateComponent(RefString(kImageComponentName), &other, &object);
  Require(Failed(result) && object == nullptr, "an unknown interface must fail with null");
}

void ReadsCountedNames(Subject& subject) {
  const HostDesk desk(subject);
  const wchar_t text[] = L"QELImageDIB and more";
  for (const uint64_t length : {uint64_t{11}, 11 | uint64_t{5} << 32}) {
    SmartPtr<IQELImage> image;
    desk.collection()->CreateComponent({length, text}, &IID_IQELImage, image.PutVoid());
    Require(static_cast<bool>(image), length == 11 ? "names are read past their length"
                                                   : "only the low 32 bits of lengths count");
  }
}

/// Both ways to say "the locator, please".
void GivesLocators(Subject& subject) {
  const HostDesk desk(subject);
  for (const IID* const iid : {static_cast<const IID*>(nullptr), &IID_NULL}) {
    Doing(iid == nullptr ? "a null identifier" : "IID_NULL");
    SmartPtr<IComponentString> locator;
    desk.collection()->CreateComponent(RefString(kImageComponentName), iid, locator.PutVoid());
    Require(static_cast<bool>(locator), "it gives no locator");
    RequireObject(locator.Get(), {&IID_IUnknown, &IID_IComponentString});
    SmartPtr<IQELImageDIB> images[2];
    for (SmartPtr<IQELImageDIB>& image : images) {
      locator->CreateInstance(&IID_IQELImageDIB, image.PutVoid());
      Require(static_cast<bool>(image), "the locator makes no image");
      Require(CountOf(image.Get()) == 1, "its image does not come with one reference");
    }
    Require(images[0].Get() != images[1].Get(), "the locator makes one image only");
  }
}

void FindsItemsByName(Subject& subject) {
  const HostDesk desk(subject);
  const SmartPtr<ICreatableString> name = desk.MakeString(kImageComponentName);
  Doing("FindItem and GetItem of QELImageDIB");
  int index = -1;
  Require(desk.collection()->FindItem(name.Get(), &index) >= 0, "FindItem does not find it");
  SmartPtr<IUnknown> item;
  desk.collection()->GetItem(index, item.Put());
  Require(static_cast<bool>(item), "GetItem gives nothing");
  const auto locator = QueryFor<IComponentString>(item.Get());
  Require(static_cast<bool>(locator), "the item does not answer IComponentString");
  SmartPtr<IQELImageDIB> image;
  locator->CreateInstance(&IID_IQELImageDIB, image.PutVoid());
  Require(static_cast<bool>(image), "the item makes no image");
  Doing("FindItem of an unknown name");
  Require(desk.collection()->FindItem(desk.MakeString(kNothing).Get(), &index) < 0, "it is found");
}

void CountsFromThreads(Subject& subject) {
  const HostDesk desk(subject);
  Doing("the collection");
  IUnknown* const collection = desk.collection();
  RequireCountsFromThreads({&collection, 1});
  Doing("the locator of images");
  SmartPtr<IComponentString> locator;
  desk.collection()->CreateComponent(RefString(kImageComponentName), nullptr, locator.PutVoid());
  IUnknown* const found = locator.Get();
  if (found != nullptr) RequireCountsFromThreads({&found, 1});
}

void KeepsItsCount(Subject& subject) {
  const HostDesk desk(subject);
  const uint32_t before = CountOf(desk.collection());
  GivesLocators(subject);
  MakesImages(subject);
  { FindsItemsByName(subject); }
  Require(CountOf(desk.collection()) == before, "references to the collection are left over");
}

// Strings.

void StringsAreObjects(Subject& subject) {
  const HostDesk desk(subject);
  const SmartPtr<ICreatableString> string = desk.MakeString();
  Require(CountOf(string.Get()) == 1, "a new string does not come with one reference");
  RequireObject(string.Get(), {&IID_IUnknown, &IID_ICreatableString});
  Require(desk.MakeString().Get() != string.Get(), "two creations give one string");
}

void StringsGrow(Subject& subject) {
  const HostDesk desk(subject);
  const SmartPtr<ICreatableString> name = desk.MakeString(L"QEL");
  Doing("AppendChars");
  Require(Succeeded(name->AppendChars(5, L"ImageDIB")), "several characters are not taken");
  Require(Succeeded(name->AppendChars(0, L"")), "no characters are not taken");
  Require(Succeeded(name->AppendChars(3, L"DIB")), "further characters are not taken");
  int index = -1;
  Require(desk.collection()->FindItem(name.Get(), &index) >= 0,
          "the string is not what was appended to it");
}

}  // namespace

Rules CollectionRules() {
  return {
      {"collection", "object", "The collection counts references and answers for itself.",
       &IsAnObject, kCounting},
      {"collection", "images", "Every creation makes a new image with one reference.",
       &MakesImages},
      {"collection", "unknown", "Unknown components and interfaces fail with null.",
       &RefusesTheUnknown},
      {"collection", "counted-names", "Names end where their length says.", &ReadsCountedNames},
      {"collection", "locators", "A null identifier and IID_NULL give the locator.",
       &GivesLocators},
      {"collection", "finding", "FindItem and GetItem give the locator of a named component.",
       &FindsItemsByName},
      {"collection", "threads", "References may be counted from several threads.",
       &CountsFromThreads},
      {"collection", "references", "Nobody keeps a reference to the collection without need.",
       &KeepsItsCount},
  };
}

Rules StringRules() {
  return {
      {"string", "object", "Strings count references and answer for themselves.",
       &StringsAreObjects, kCounting},
      {"string", "growing", "AppendChars appends what it is given.", &StringsGrow},
  };
}

}  // namespace qel::check
