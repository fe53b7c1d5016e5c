// The module's only export: called once by the host when it loads the module.
#include "REALplugin.h"
#include "class_registration.h"
#include "globals.h"
#include "picture_class.h"

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALResolver resolver) {
  gResolver = resolver;
  auto registerPluginVersion =
      reinterpret_cast<RegisterPluginVersionFn>(resolver("RegisterPluginVersion"));
  if (auto getRBVersion = reinterpret_cast<REALGetRBVersionFn>(resolver("REALGetRBVersion"))) {
    rbversion_rbversion = getRBVersion();
  }

  CurrentREALControlVersion = InterfaceVersionForHost(rbversion_rbversion);
  // A host without the service cannot be told the version; it is not called through null.
  if (registerPluginVersion != nullptr) registerPluginVersion(CurrentREALControlVersion);

  FixClassFlags(&pictureClass, rbversion_rbversion);
  RegisterClassRecord(&pictureClass, CurrentREALControlVersion);
}
