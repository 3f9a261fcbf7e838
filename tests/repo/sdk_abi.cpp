// All interfaces of the SDK as one function's arguments, for check_abi.sh.
#include "qel/qel.h"

using namespace qel;

extern "C" void Interfaces(IQELColorTransform&, IQELTransform&, IQELDeform&, IQELFilterTransform&,
                           IQELMaths&, IQELImageDIB&, IQELImagePalette&, IComponentCollection&,
                           IComponentString&, ICreatableString&, ITransform&, IObjectInfo&,
                           InitializeModuleFunction, CreateFunctionFunction, RGBQUAD, IID) {}
